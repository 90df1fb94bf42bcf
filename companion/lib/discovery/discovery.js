// Keeps the list of sessions that the service offers to attach, "discoveredSessions" in the shared state, up to date:
// a look every two seconds while something changes, and less and less often, down to one in fifteen seconds, while
// nothing does. A change that the system tells of ends the wait. A failure to write is logged and tried again with the
// next look.

import fs from 'node:fs';

import { systemClock } from '../clock.js';
import { silentLog } from '../log.js';
import { statePath } from '../places.js';
import { SharedDocument, updateDocument } from '../sharedDocument.js';
import { Scanner } from './scanner.js';

export const busyInterval = 2000;
export const restInterval = 15_000;
/** Changes come in swarms. */
const settleTime = 100;
/** A time of writing alone is told no more often; what reads it counts in minutes. */
export const timesInterval = 15_000;
const lockTimeout = 2000;
const key = 'discoveredSessions';

/** What a reader would notice at once: all but the times, and the order, which follows them. */
function substance(rows) {
  const lines = rows.map(({ mtimeMs, ...row }) => JSON.stringify(row));
  return lines.sort().join('\n');
}

function fileStamp(path) {
  const status = fs.statSync(path, { throwIfNoEntry: false });
  return status && `${status.ino}:${status.size}:${status.mtimeMs}`;
}

/**
 * One look at the sessions on this machine, newest first; those that may be offered, or, unbounded, all of them.
 * @param {{ environment?: NodeJS.ProcessEnv, now?: number, isBounded?: boolean, session?: string,
 *   runningFolders?: (name: string) => Promise<string[]> }} [options] `session`: the beginning of the id of the one that
 *   is looked for among all: of others what they are about may be missing
 * @returns {Promise<import('./scanner.js').Row[]>}
 */
export async function findSessions({ environment = process.env, now = Date.now(), ...options } = {}) {
  const scanner = new Scanner({ environment, log: silentLog, now: () => now, watch: false, ...options });
  try {
    return await scanner.scan(now);
  } finally {
    scanner.close();
  }
}

export class Discovery {
  #clock;
  #environment;
  #hasChanged = false;
  #interval = busyInterval;
  #isStopped = false;
  #log;
  #lookedAt = -Infinity;
  #looking;
  #scanner;
  #seenState;
  #timer;
  #dueAt = Infinity;
  #written;
  #writtenAt = -Infinity;
  #writeRows;

  /**
   * @param {{ environment?: NodeJS.ProcessEnv, log?: import('../log.js').Log, clock?: import('../clock.js').Clock,
   *   writeRows?: (rows: import('./scanner.js').Row[]) => Promise<void>,
   *   runningFolders?: (name: string) => Promise<string[]>, folders?: object }} [options] `folders` are for Folders
   */
  constructor(options = {}) {
    const { environment = process.env, log = silentLog, clock = systemClock, writeRows, runningFolders, folders } = options;
    this.#environment = environment;
    this.#log = log.child({ class: 'Discovery' });
    this.#clock = clock;
    this.#writeRows = writeRows ?? ((rows) => this.#writeState(rows));
    const now = () => clock.now();
    const onChange = () => this.#onChange();
    this.#scanner = new Scanner({ environment, log: this.#log, now, onChange, runningFolders, folders });
  }

  /** How many folders are watched. */
  get watched() {
    return this.#scanner.watched;
  }

  start() {
    this.#schedule(0);
  }

  /** The list stays as it is. Resolves when nothing is under way any more. */
  async stop() {
    this.#clock.clearTimeout(this.#timer);
    this.#timer = undefined;
    this.#isStopped = true;
    this.#scanner.close();
    await this.#looking;
  }

  #schedule(delay) {
    if (this.#isStopped) return;
    this.#clock.clearTimeout(this.#timer);
    this.#dueAt = this.#clock.now() + delay;
    this.#timer = this.#clock.setTimeout(() => { this.#looking = this.#look(); }, delay);
  }

  #onChange() {
    if (this.#hasChanged) return;
    this.#hasChanged = true;
    // A look that is under way sees to the next by itself.
    if (this.#dueAt !== Infinity) this.#hurry();
  }

  #hurry() {
    const delay = Math.max(settleTime, this.#scanner.lookedAt + busyInterval - this.#clock.now());
    if (this.#clock.now() + delay < this.#dueAt) this.#schedule(delay);
  }

  async #look() {
    this.#dueAt = Infinity;
    this.#hasChanged = false;
    this.#lookedAt = this.#clock.now();
    let isBusy = true;
    const rows = await this.#attempt('sessions could not be looked for', () => this.#scanner.scan(this.#lookedAt));
    if (rows && !this.#isStopped) {
      isBusy = await this.#attempt('the list of sessions could not be written', () => this.#publish(rows)) ?? true;
    }
    isBusy ||= this.#hasChanged || this.#scanner.isLate;
    this.#interval = isBusy ? busyInterval : Math.min(this.#interval * 1.5, restInterval);
    this.#schedule(Math.max(settleTime, this.#interval - (this.#clock.now() - this.#lookedAt)));
  }

  /** Nothing where it failed. */
  async #attempt(complaint, work) {
    try {
      return await work();
    } catch (error) {
      this.#log.error(complaint, error);
      return undefined;
    }
  }

  /** True if the rows are others than before. */
  async #publish(rows) {
    const text = JSON.stringify(rows);
    const isSame = text === this.#written?.text;
    const isSubstantial = substance(rows) !== this.#written?.substance;
    const isDue = this.#lookedAt - this.#writtenAt >= timesInterval || this.#lookedAt < this.#writtenAt;
    if (!this.#isTakenAway() && (isSame || (!isSubstantial && !isDue))) return !isSame;
    await this.#writeRows(rows);
    this.#written = { text, substance: substance(rows) };
    this.#writtenAt = this.#lookedAt;
    this.#seenState = fileStamp(statePath(this.#environment));
    return !isSame;
  }

  /** True if another program's document doesn't have our list any more, for as long as it doesn't. */
  #isTakenAway() {
    const path = statePath(this.#environment);
    const stamp = fileStamp(path);
    if (this.#written === undefined || stamp === this.#seenState) return false;
    if (JSON.stringify(SharedDocument.read(path).get(key) ?? []) !== this.#written.text) return true;
    this.#seenState = stamp;
    return false;
  }

  #writeState(rows) {
    return updateDocument(statePath(this.#environment), (document) => {
      // No list says as much as an empty one.
      if (rows.length > 0 || document.get(key) !== undefined) document.set(key, rows);
    }, { timeout: lockTimeout });
  }
}
