// When a session was last written to, by the files of its transcript.

import fs from 'node:fs';

/** How long after its last line a session counts as being in use. */
export const freshFor = 15 * 60 * 1000;

/**
 * The files whose change means that the session may have gone on. A session in an SQLite store is named by the store,
 * "#" and its id; what is written to it is in the write-ahead log first.
 * @param {string} transcript
 */
export function transcriptFiles(transcript) {
  const store = transcript.match(/^(.*\.db)#[^#/]*$/s)?.[1];
  return store === undefined ? [transcript] : [store, `${store}-wal`];
}

/** Milliseconds since the epoch of the newest change; 0 where there is no file. */
export function writtenAt(transcript) {
  const times = transcriptFiles(transcript).map((file) => {
    try {
      return fs.statSync(file).mtimeMs;
    } catch {
      return 0;
    }
  });
  return Math.max(...times);
}
