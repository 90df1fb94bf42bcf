// Follows what happens to some files of a folder. The kernel tells; only where it can't, because the folder isn't there
// or the user's watches are used up, are the files looked at now and then instead, until they can be watched again.

import fs from 'node:fs';
import path from 'node:path';

import { systemClock } from './clock.js';

const firstDelay = 1000;
const longestDelay = 15_000;

export class FolderWatch {
  #folder;
  #names;
  #onEvent;
  #clock;
  #watcher;
  #timer;
  #delay = firstDelay;

  /**
   * @param {string} folder
   * @param {Iterable<string> | undefined} names files whose events count; all of them where there is no list
   * @param {() => void} onEvent something may have happened to one of them; called too often rather than too rarely
   * @param {import('./clock.js').Clock} [clock]
   */
  constructor(folder, names, onEvent, clock = systemClock) {
    this.#folder = folder;
    this.#names = names && new Set(names);
    this.#onEvent = onEvent;
    this.#clock = clock;
  }

  start() {
    try {
      this.#watcher = fs.watch(this.#folder, (event, name) => this.#heard(event, name));
      this.#watcher.on('error', () => this.#lost());
      this.#delay = firstDelay;
    } catch {
      this.#lookLater();
    }
  }

  stop() {
    this.#watcher?.close();
    this.#watcher = undefined;
    this.#clock.clearTimeout(this.#timer);
    this.#timer = undefined;
  }

  /** False while the files are looked at now and then. */
  get isWatching() {
    return this.#watcher !== undefined;
  }

  #heard(event, name) {
    // The folder itself was moved or removed: what is watched is no longer what has the name.
    if (name === null || (event === 'rename' && name === path.basename(this.#folder))) this.#lost();
    else if (!this.#names || this.#names.has(name)) this.#onEvent();
  }

  #lost() {
    if (!this.#watcher) return;
    this.#watcher.close();
    this.#watcher = undefined;
    this.#lookLater();
    this.#onEvent();
  }

  #lookLater() {
    this.#timer = this.#clock.setTimeout(() => {
      this.start();
      this.#onEvent();
    }, this.#delay);
    this.#delay = Math.min(this.#delay * 2, longestDelay);
  }
}
