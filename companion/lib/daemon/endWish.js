// The wish that the daemon end, for one that isn't there yet. Who asks the daemon finds nobody while a start is under
// way; the wish in the file is what tells the start. Each one is another text, and a start that began with another than
// the present one isn't to go on.

import { randomUUID } from 'node:crypto';

import { daemonEndPath } from '../places.js';
import { makeFolderOf, readIfPresent, replaceFile } from '../wholeFile.js';

/** The newest wish; an empty text where there was none. Where it can't be read there is no place for a daemon either. */
export function lastEndWish(environment) {
  try {
    return readIfPresent(daemonEndPath(environment)) ?? '';
  } catch {
    return '';
  }
}

/** Comes before the question to the daemon: one that takes its place after it sees the wish. */
export function wishEnd(environment) {
  const file = daemonEndPath(environment);
  try {
    makeFolderOf(file);
    replaceFile(file, randomUUID(), { temporary: `${file}.${process.pid}` });
  } catch {
    // A daemon that is there is ended all the same.
  }
}
