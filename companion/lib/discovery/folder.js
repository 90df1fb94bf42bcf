// What is known of one folder and of the files in it.

const mostDirtyNames = 1000;
/** Failures that say nothing of the file. */
const passing = new Set(['EMFILE', 'ENFILE', 'ENOMEM', 'EIO', 'EAGAIN', 'EINTR', 'ESTALE', 'ETIMEDOUT']);

/** True if the same question may get another answer a moment later. */
export const isPassing = (error) => passing.has(error?.code);

/**
 * @typedef {object} Entry
 * @property {string} name
 * @property {string} path
 * @property {boolean} isFolder
 * @property {boolean} isFile
 * @property {number} mtimeMs
 * @property {number} size
 * @property {number} ino
 * @property {string} stamp another one whenever the file may have changed
 */

/** @returns {Entry} */
export function entryOf(name, file, status) {
  return {
    name,
    path: file,
    isFolder: status.isDirectory(),
    isFile: status.isFile(),
    mtimeMs: status.mtimeMs,
    size: status.size,
    ino: status.ino,
    stamp: `${status.ino}:${status.size}:${status.mtimeMs}:${status.ctimeMs}`,
  };
}

export class Folder {
  entries = new Map();
  dirty = new Set();
  isAllDirty = true;
  lookedAt = -Infinity;
  watcher = undefined;

  constructor(ino, isQuiet) {
    this.ino = ino;
    /** Nothing is expected of it, so that it isn't watched. */
    this.isQuiet = isQuiet;
  }

  touch(name) {
    if (name === undefined || this.dirty.size >= mostDirtyNames) this.isAllDirty = true;
    else this.dirty.add(name);
  }

  close() {
    this.watcher?.close();
    this.watcher = undefined;
  }
}
