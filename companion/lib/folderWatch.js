// Follows what happens to the files of a folder. The kernel tells; only where it can't, because the folder isn't there,
// gives no answer, or the user's watches are used up, are the files looked at now and then instead, until they can be
// watched again. The folder is watched and not the files: those are replaced, and a watch would stay with the one that
// is gone. Nobody is held up by a folder that gives no answer, which is asked again when the old question was answered.
//
// The kernel is silent when a folder further up is replaced; whoever must notice that as well calls `check` from time
// to time. Keeps no process alive while it watches.

import fs from 'node:fs';
import { stat } from 'node:fs/promises';
import path from 'node:path';

import { AnswerLimit } from './answerLimit.js';
import { systemClock } from './clock.js';

const firstDelay = 1000;
const longestDelay = 15_000;
const noAnswer = null;

/** Its questions are rare enough that the delays are all the patience it takes. */
export const patientAnswers = (options) => new AnswerLimit({ now: Date.now, silence: 0, ...options });

export class FolderWatch {
  #folder;
  #names;
  #onEvent;
  #clock;
  #answers;
  #stat;
  #watcher;
  #watched;
  #timer;
  #delay = firstDelay;
  /** Another one for each start: what an earlier one has asked doesn't count any more. */
  #attempt;

  /**
   * @param {string} folder
   * @param {Iterable<string> | undefined} names files whose events count; all of them where there is no list
   * @param {(name: string) => void} onEvent something may have happened to the file of that name, or, where it is
   *   empty, to any; called too often rather than too rarely
   * @param {import('./clock.js').Clock} [clock]
   * @param {{ answers?: AnswerLimit, system?: { stat: typeof stat } }} [options] `answers` are shared with those who
   *   ask something of the same folders
   */
  constructor(folder, names, onEvent, clock = systemClock, { answers = patientAnswers(), system = { stat } } = {}) {
    this.#folder = folder;
    this.#names = names && new Set(names);
    this.#onEvent = onEvent;
    this.#clock = clock;
    this.#answers = answers;
    this.#stat = system.stat;
  }

  /**
   * Begins; each beginning is told of as an event, since what happened before it isn't seen. Resolves when the folder is
   * watched or is known not to be.
   */
  async start() {
    this.stop();
    const attempt = {};
    this.#attempt = attempt;
    // Asked first: a folder that is replaced in between is found out by the next `check`. And one that has just answered
    // won't hold up the watch, for which there is no limit.
    const identity = await this.#identity();
    if (attempt !== this.#attempt) return;
    if (identity) this.#watch(identity);
    if (!this.isWatching) this.#lookLater();
    this.#onEvent('');
  }

  /** Watches the folder that has the name now, if it is another one or none is watched. */
  async check() {
    if (this.isWatching) {
      const attempt = this.#attempt;
      const identity = await this.#identity();
      // One that gives no answer may still be the same.
      if (attempt !== this.#attempt || identity === this.#watched || identity === noAnswer) return;
    } else if (this.#timer === undefined && this.#attempt) {
      // It is being asked.
      return;
    }
    await this.start();
  }

  stop() {
    this.#attempt = undefined;
    this.#watcher?.close();
    this.#watcher = undefined;
    this.#clock.clearTimeout(this.#timer);
    this.#timer = undefined;
  }

  /** False while the files are looked at now and then. */
  get isWatching() {
    return this.#watcher !== undefined;
  }

  #watch(identity) {
    try {
      this.#watcher = fs.watch(this.#folder, { persistent: false }, (event, name) => this.#heard(event, name));
      this.#watcher.on('error', () => this.#lost());
      this.#watched = identity;
      this.#delay = firstDelay;
    } catch {
      // The user's watches are used up, or the folder is gone or may not be read.
    }
  }

  /** A folder that is made anew may get the number of the one that was removed. Nothing where it isn't there. */
  #identity() {
    const question = () => this.#stat(this.#folder)
      .then(({ dev, ino, birthtimeMs }) => `${dev} ${ino} ${birthtimeMs}`, () => undefined);
    return this.#answers.ask(this.#folder, question, noAnswer);
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
    this.#timer = this.#clock.setTimeout(() => this.start(), this.#delay);
    this.#delay = Math.min(this.#delay * 2, longestDelay);
  }
}
