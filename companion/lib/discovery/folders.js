// What lies in the folders of the agents, kept up to date at little cost: a folder is watched where the system allows
// it, and then only what changed in it is looked at again. Where no more can be watched, folders are looked through
// every 30 s. Never throws: a folder that is missing or can't be read is empty.

import fs from 'node:fs';
import { readdir, stat } from 'node:fs/promises';
import path from 'node:path';

export const pollInterval = 30_000;
/** The system forgets events when there are too many, and links tell nothing of what they point at. */
export const fullLookInterval = 300_000;
const mostWatched = 1000;
const mostDirtyNames = 1000;
const atOnce = 16;
const noInode = -1;

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

const everything = () => true;

/** Names in a folder; none where it can't be read. */
export async function namesIn(directory, accepts = everything) {
  try {
    return (await readdir(directory)).filter(accepts);
  } catch {
    return [];
  }
}

async function describe(folder, name) {
  const file = path.join(folder, name);
  try {
    const status = await stat(file);
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
  } catch {
    return undefined;
  }
}

async function inodeOf(directory) {
  return (await stat(directory).catch(() => undefined))?.ino;
}

class Folder {
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

export class Folders {
  #folders = new Map();
  #asked = new Set();
  #hasNews = true;
  /** Folders whose own change no other folder's entry tells. */
  #roots = new Set();
  #isWatching;
  #isFull = false;
  #log;
  #now;
  #onChange;

  /**
   * @param {{ watch?: boolean, log: import('../log.js').Log, now: () => number, onChange?: () => void }} options
   * `onChange` is called for each event; what changed is found by the next `list`
   */
  constructor({ watch = true, log, now, onChange = () => {} }) {
    this.#isWatching = watch;
    this.#log = log;
    this.#now = now;
    this.#onChange = onChange;
  }

  /** How many folders are watched. */
  get watched() {
    return [...this.#folders.values()].filter((folder) => folder.watcher).length;
  }

  /**
   * What lies in the folder.
   * @param {string} directory
   * @param {{ accepts?: (name: string) => boolean, names?: string[], ino?: number, isQuiet?: boolean }} [options]
   * `names` are all that is asked for, so that the folder isn't listed; `ino` is the folder's own where its entry is
   * known; where nothing is expected of it, it isn't watched and only looked through every five minutes
   * @returns {Promise<Entry[]>}
   */
  async list(directory, { accepts = everything, names, ino, isQuiet = false } = {}) {
    this.#asked.add(directory);
    if (ino === undefined) this.#roots.add(directory);
    const folder = await this.#folderFor(directory, ino, names ? (name) => names.includes(name) : accepts, isQuiet);
    if (!folder) return [];
    await this.#bringUpToDate(directory, folder, accepts, names);
    return [...folder.entries.values()];
  }

  /** True if asking for the same folders again would give the same. */
  async isUnchanged() {
    if (this.#hasNews || [...this.#folders.values()].some((folder) => this.#isDue(folder))) return false;
    for (const root of this.#roots) {
      if ((await inodeOf(root)) !== this.#folders.get(root)?.ino) return false;
    }
    return !this.#hasNews;
  }

  /** To be called before folders are asked for again, and `forgetOthers` when all have been. */
  startOver() {
    this.#hasNews = false;
    this.#roots.clear();
  }

  /** Forgets the folders that nobody has asked for since it was last called. */
  forgetOthers() {
    for (const [directory, folder] of this.#folders) {
      if (this.#asked.has(directory)) continue;
      folder.close();
      this.#folders.delete(directory);
    }
    this.#asked.clear();
  }

  close() {
    for (const folder of this.#folders.values()) folder.close();
    this.#folders.clear();
    this.#isWatching = false;
  }

  async #folderFor(directory, ino, accepts, isQuiet) {
    ino ??= await inodeOf(directory);
    const known = this.#folders.get(directory);
    if (known && known.ino === ino && (isQuiet || !known.isQuiet)) return known;
    known?.close();
    this.#folders.delete(directory);
    if (ino === undefined) return undefined;
    const folder = new Folder(ino, isQuiet);
    this.#folders.set(directory, folder);
    // First watched and then looked at, so that nothing falls in between.
    if (!isQuiet) this.#watch(directory, folder, accepts);
    return folder;
  }

  #watch(directory, folder, accepts) {
    if (!this.#isWatching || this.#isFull) return;
    try {
      folder.watcher = fs.watch(directory, { persistent: false },
        (event, name) => this.#onEvent(directory, folder, accepts, event, name));
      folder.watcher.on('error', () => {
        folder.close();
        folder.touch();
        this.#hasNews = true;
      });
      if (this.watched >= mostWatched) this.#stopWatchingMore('limit');
    } catch (error) {
      // A folder that may not be read can't be watched either, which is nothing to tell anybody.
      if (error.code === 'ENOSPC' || error.code === 'EMFILE') this.#stopWatchingMore(error.code);
    }
  }

  #onEvent(directory, folder, accepts, event, name) {
    if (name === path.basename(directory) && event === 'rename') {
      // It was moved or removed, unless something in it has its name. Another one may come in its place, with the
      // same number even, and this watch doesn't see it.
      folder.ino = noInode;
    } else if (name === null) {
      folder.touch();
    } else if (accepts(name)) {
      folder.touch(name);
    } else {
      return;
    }
    this.#hasNews = true;
    this.#onChange();
  }

  #stopWatchingMore(reason) {
    this.#isFull = true;
    this.#log.warn('no more folders can be watched; looking through the others every 30 s',
      { reason, watched: this.watched });
  }

  #isDue(folder) {
    const age = this.#now() - folder.lookedAt;
    return age >= (folder.watcher || folder.isQuiet ? fullLookInterval : pollInterval) || age < 0;
  }

  async #bringUpToDate(directory, folder, accepts, names) {
    const isOld = this.#isDue(folder);
    if (!folder.isAllDirty && !isOld && folder.dirty.size === 0) return;
    const isAll = folder.isAllDirty || isOld;
    const changed = isAll ? names ?? await namesIn(directory, accepts) : [...folder.dirty];
    folder.isAllDirty = false;
    folder.dirty.clear();
    if (isAll) folder.lookedAt = this.#now();
    const entries = isAll ? new Map() : folder.entries;
    await this.#describeAll(directory, changed, entries);
    folder.entries = entries;
  }

  async #describeAll(directory, names, entries) {
    let next = 0;
    const work = async () => {
      while (next < names.length) {
        const name = names[next];
        next += 1;
        const entry = await describe(directory, name);
        if (entry) entries.set(name, entry);
        else entries.delete(name);
      }
    };
    await Promise.all(Array.from({ length: Math.min(atOnce, names.length) }, work));
  }
}
