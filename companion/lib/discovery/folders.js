// What lies in the folders of the agents, kept up to date at little cost: a folder is watched where the system allows
// it, and then only what changed in it is looked at again. Where no more can be watched, folders are looked through
// every 30 s, and watched when that is possible again. Never throws: a folder that is missing, can't be read or gives no
// answer is empty; one that can't be read just now is as it was.

import fs from 'node:fs';
import { readdir, stat } from 'node:fs/promises';
import path from 'node:path';

import { AnswerLimit } from '../answerLimit.js';
import { entryOf, Folder, isPassing } from './folder.js';

export const pollInterval = 30_000;
/** The system forgets events when there are too many, and links tell nothing of what they point at. */
export const fullLookInterval = 300_000;
const mostWatched = 1000;
const noInode = -1;

/** @typedef {import('./folder.js').Entry} Entry */

const everything = () => true;

export class Folders {
  #folders = new Map();
  #asked = new Set();
  #hasNews = true;
  /** Folders whose own change no other folder's entry tells. */
  #roots = new Set();
  #isWatching;
  /** When it was found that no more can be watched. */
  #fullAt = -Infinity;
  #hasToldOfFull = false;
  #isUnsettled = false;
  #log;
  #now;
  #onChange;
  #system;

  /**
   * @param {{ watch?: boolean, log: import('../log.js').Log, now: () => number, onChange?: () => void,
   *   answerLimit?: number, threads?: import('../answerLimit.js').Threads,
   *   system?: { stat: typeof stat, readdir: typeof readdir } }} options
   * `onChange` is called for each event; what changed is found by the next `list`
   */
  constructor({ watch = true, log, now, onChange = () => {}, answerLimit, threads, system = { stat, readdir } }) {
    this.#isWatching = watch;
    this.#log = log;
    this.#now = now;
    this.#onChange = onChange;
    this.#system = system;
    /** Who else asks something of the same folders. */
    this.answers = new AnswerLimit({ now, limit: answerLimit, threads });
  }

  /** True if what is known of a file or folder is that of the look before. */
  get isUnsettled() {
    return this.#isUnsettled;
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

  /** True if there is such a file or folder. May take as long as the system likes. */
  has(file) {
    return this.#system.stat(file).then(() => true, () => false);
  }

  /** True if asking for the same folders again would give the same. */
  async isUnchanged() {
    if (this.#hasNews || [...this.#folders.values()].some((folder) => this.#isDue(folder))) return false;
    for (const root of this.#roots) {
      const known = this.#folders.get(root)?.ino;
      if (await this.#inodeOf(root, known) !== known) return false;
    }
    return !this.#hasNews;
  }

  /** To be called before folders are asked for again, and `forgetOthers` when all have been. */
  startOver() {
    this.#hasNews = false;
    this.#isUnsettled = false;
    this.#roots.clear();
  }

  /** Forgets the folders that nobody has asked for since it was last called. */
  forgetOthers() {
    for (const [directory, folder] of this.#folders) {
      if (this.#asked.has(directory)) continue;
      if (folder.watcher) this.#fullAt = -Infinity;
      folder.close();
      this.#folders.delete(directory);
    }
    this.#asked.clear();
  }

  close() {
    for (const folder of this.#folders.values()) folder.close();
    this.#folders.clear();
    this.#isWatching = false;
    this.answers.close();
  }

  /** @param {number | undefined} otherwise where it gives no answer */
  #inodeOf(directory, otherwise) {
    const question = () => this.#system.stat(directory).then(({ ino }) => ino, (error) => (
      isPassing(error) ? otherwise : undefined));
    return this.answers.ask(directory, question, otherwise);
  }

  async #folderFor(directory, ino, accepts, isQuiet) {
    const known = this.#folders.get(directory);
    ino ??= await this.#inodeOf(directory, known?.ino);
    if (this.answers.isSilent(directory)) return undefined;
    if (known && known.ino === ino && (isQuiet || !known.isQuiet)) return known;
    known?.close();
    this.#folders.delete(directory);
    if (ino === undefined) return undefined;
    const folder = new Folder(ino, isQuiet);
    this.#folders.set(directory, folder);
    // First watched and then looked at, so that nothing falls in between.
    if (!isQuiet) await this.#watch(directory, folder, accepts);
    return folder;
  }

  async #watch(directory, folder, accepts) {
    if (!this.#mayWatch()) return;
    // There is no limit for the beginning of a watch, but a folder that has just answered does so again.
    if (await this.#inodeOf(directory, undefined) === undefined || !this.#isWatching) return;
    try {
      folder.watcher = fs.watch(directory, { persistent: false },
        (event, name) => this.#onEvent(directory, folder, accepts, event, name));
      folder.watcher.on('error', () => {
        folder.close();
        folder.touch();
        this.#hasNews = true;
      });
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

  #mayWatch() {
    const age = this.#now() - this.#fullAt;
    if (!this.#isWatching || (age >= 0 && age < fullLookInterval)) return false;
    if (this.watched < mostWatched) return true;
    this.#stopWatchingMore('limit');
    return false;
  }

  #stopWatchingMore(reason) {
    this.#fullAt = this.#now();
    if (this.#hasToldOfFull) return;
    this.#hasToldOfFull = true;
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
    // One that couldn't be watched, or whose watch has failed.
    if (isOld && folder.lookedAt > -Infinity && !folder.watcher && !folder.isQuiet) {
      await this.#watch(directory, folder, accepts);
    }
    const isAll = folder.isAllDirty || isOld;
    const changed = isAll ? names ?? await this.#namesIn(directory, accepts) : [...folder.dirty];
    if (changed === undefined) {
      this.#leaveUnsettled(folder);
      return;
    }
    folder.isAllDirty = false;
    folder.dirty.clear();
    if (isAll) folder.lookedAt = this.#now();
    const entries = await this.#describeAll(directory, folder, changed);
    if (isAll) folder.entries.clear();
    for (const [name, entry] of entries) {
      if (entry) folder.entries.set(name, entry);
      else folder.entries.delete(name);
    }
  }

  #leaveUnsettled(folder, name) {
    folder.touch(name);
    this.#isUnsettled = true;
  }

  /** Nothing where the folder can't be read just now. */
  async #namesIn(directory, accepts) {
    try {
      return (await this.answers.demand(directory, () => this.#system.readdir(directory))).filter(accepts);
    } catch (error) {
      return isPassing(error) ? undefined : [];
    }
  }

  /** @returns {Promise<[string, Entry | undefined][]>} */
  async #describeAll(directory, folder, names) {
    const entries = [];
    for (const name of names) {
      entries.push([name, await this.#describe(directory, folder, name)]);
    }
    return entries;
  }

  async #describe(directory, folder, name) {
    const file = path.join(directory, name);
    try {
      return entryOf(name, file, await this.answers.demand(directory, () => this.#system.stat(file)));
    } catch (error) {
      if (!isPassing(error)) return undefined;
      this.#leaveUnsettled(folder, name);
      return folder.entries.get(name);
    }
  }
}
