// Waits for transcripts to be written again. Their folders are watched, one watch for all that lie in the same, since a
// transcript may be replaced, or come into being only then. One that is a folder itself, with a file for each message,
// is watched as well.

import fs from 'node:fs';
import path from 'node:path';

import { systemClock } from '../clock.js';
import { FolderWatch } from '../folderWatch.js';
import { transcriptFiles, writtenAt } from './transcriptFiles.js';

const isFolder = (file) => fs.statSync(file, { throwIfNoEntry: false })?.isDirectory() ?? false;

export class WrittenAgain {
  #onWritten;
  #clock;
  /** @type {Map<string, { transcript: string, since: number }>} by the session's id */
  #waiting = new Map();
  /** @type {Map<string, FolderWatch>} */
  #watches = new Map();

  /**
   * @param {(id: string) => void} onWritten called once for each session, which isn't waited for any more then
   * @param {import('../clock.js').Clock} [clock]
   */
  constructor(onWritten, clock = systemClock) {
    this.#onWritten = onWritten;
    this.#clock = clock;
  }

  get size() {
    return this.#waiting.size;
  }

  /**
   * Waits for these sessions instead of those before.
   * @param {{ id: string, transcript: string, since: number }[]} rows `since` is the time of the last change known
   */
  waitFor(rows) {
    this.stop();
    for (const { id, transcript, since } of rows) this.#waiting.set(id, { transcript, since });
    for (const [folder, names] of this.#namesByFolder()) {
      const watch = new FolderWatch(folder, names, () => this.#look(), this.#clock);
      this.#watches.set(folder, watch);
      watch.start();
    }
    // What was written before the watch began.
    this.#look();
  }

  stop() {
    for (const watch of this.#watches.values()) watch.stop();
    this.#watches.clear();
    this.#waiting.clear();
  }

  #namesByFolder() {
    const folders = new Map();
    for (const { transcript } of this.#waiting.values()) {
      for (const file of transcriptFiles(transcript)) {
        const folder = path.dirname(file);
        folders.set(folder, [...(folders.get(folder) ?? []), path.basename(file)]);
      }
      if (isFolder(transcript)) folders.set(transcript, undefined);
    }
    return folders;
  }

  #look() {
    const written = [...this.#waiting].filter(([, { transcript, since }]) => writtenAt(transcript) > since);
    for (const [id] of written) this.#waiting.delete(id);
    if (written.length > 0) this.#dropIdleWatches();
    for (const [id] of written) this.#onWritten(id);
  }

  #dropIdleWatches() {
    const needed = this.#namesByFolder();
    for (const [folder, watch] of this.#watches) {
      if (needed.has(folder)) continue;
      watch.stop();
      this.#watches.delete(folder);
    }
  }
}
