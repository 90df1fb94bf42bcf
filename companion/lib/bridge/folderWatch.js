// Tells when a file of a folder changes, by the kernel's word for the folder itself: the files in it are replaced, and
// a watch on one of them would stay with the file that is gone. A folder that was replaced itself is found again at the
// next `rearm`.

import fs from 'node:fs';

export class FolderWatch {
  #folder;
  #onChange;
  #watcher;
  #watched;

  /** @param {(name: string) => void} onChange name of the file, empty where the kernel doesn't tell */
  constructor(folder, onChange) {
    this.#folder = folder;
    this.#onChange = onChange;
  }

  /** Watches the folder that is there now. A failure isn't one: whoever calls looks by himself from time to time. */
  rearm() {
    try {
      fs.mkdirSync(this.#folder, { recursive: true, mode: 0o700 });
      const present = this.#identity();
      if (present === this.#watched) return;
      this.close();
      this.#watched = present;
      this.#watcher = fs.watch(this.#folder, { persistent: false }, (_, name) => this.#onChange(name ?? ''));
      this.#watcher.on('error', () => this.close());
    } catch {
      this.close();
    }
  }

  close() {
    this.#watcher?.close();
    this.#watcher = undefined;
    this.#watched = undefined;
  }

  /** A folder that is made anew may get the number of the one that was removed. */
  #identity() {
    const stat = fs.statSync(this.#folder, { throwIfNoEntry: false });
    return stat && `${stat.dev} ${stat.ino} ${stat.birthtimeMs}`;
  }
}
