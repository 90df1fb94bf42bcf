// Follows what happens to the files of a folder. The kernel tells; only where it can't, because the folder isn't there
// or the user's watches are used up, are the files looked at now and then instead, until they can be watched again.
// The folder is watched and not the files: those are replaced, and a watch would stay with the one that is gone.
//
// The kernel is silent when a folder further up is replaced; whoever must notice that as well calls `check` from time
// to time. Keeps no process alive while it watches.

import fs from 'node:fs';
import path from 'node:path';

import { systemClock } from './clock.js';

const firstDelay = 1000;
const longestDelay = 15_000;

/** A folder that is made anew may get the number of the one that was removed. */
function identityOf(folder) {
  const stat = fs.statSync(folder, { throwIfNoEntry: false });
  return stat && `${stat.dev} ${stat.ino} ${stat.birthtimeMs}`;
}

export class FolderWatch {
  #folder;
  #names;
  #onEvent;
  #clock;
  #watcher;
  #watched;
  #timer;
  #delay = firstDelay;

  /**
   * @param {string} folder
   * @param {Iterable<string> | undefined} names files whose events count; all of them where there is no list
   * @param {(name: string) => void} onEvent something may have happened to the file of that name, or, where it is
   *   empty, to any; called too often rather than too rarely
   * @param {import('./clock.js').Clock} [clock]
   */
  constructor(folder, names, onEvent, clock = systemClock) {
    this.#folder = folder;
    this.#names = names && new Set(names);
    this.#onEvent = onEvent;
    this.#clock = clock;
  }

  start() {
    this.stop();
    try {
      // Asked first: a folder that is replaced in between is found out by the next `check`.
      this.#watched = identityOf(this.#folder);
      this.#watcher = fs.watch(this.#folder, { persistent: false }, (event, name) => this.#heard(event, name));
      this.#watcher.on('error', () => this.#lost());
      this.#delay = firstDelay;
    } catch {
      this.#lookLater();
    }
  }

  /** Watches the folder that has the name now, if it is another one or none is watched. Tells of no event. */
  check() {
    if (!this.isWatching || !this.#isSame()) this.start();
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

  #isSame() {
    try {
      return identityOf(this.#folder) === this.#watched;
    } catch {
      return false;
    }
  }

  #heard(event, name) {
    // The folder itself was moved or removed: what is watched is no longer what has the name.
    if (name === null || (event === 'rename' && name === path.basename(this.#folder))) this.#lost();
    else if (!this.#names || this.#names.has(name)) this.#onEvent(name);
  }

  #lost() {
    if (!this.#watcher) return;
    this.#watcher.close();
    this.#watcher = undefined;
    this.#lookLater();
    this.#onEvent('');
  }

  #lookLater() {
    this.#timer = this.#clock.setTimeout(() => {
      this.start();
      this.#onEvent('');
    }, this.#delay);
    this.#delay = Math.min(this.#delay * 2, longestDelay);
  }
}
