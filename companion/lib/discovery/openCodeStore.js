// OpenCode's SQLite database, which Node 20 can't read by itself: a short-lived python3 does, whenever the database or
// its log has changed, but at most every five seconds and never for longer than three. A database that can't be read
// keeps the sessions that it had. Where python3 is missing it is looked for again once a minute: it may be installed.

import { execFile } from 'node:child_process';
import { fileURLToPath } from 'node:url';

export const lookInterval = 5000;
export const missingInterval = 60_000;
const limit = 3000;
const mostOutput = 8 * 1024 * 1024;
/** Of all sessions that a database may hold. */
const mostOutputOfAll = 64 * 1024 * 1024;
const program = fileURLToPath(new URL('openCodeStore.py', import.meta.url));

/** @returns {Promise<string>} what the program prints */
function run(path, environment, wanted) {
  return new Promise((resolve, reject) => {
    const maxBuffer = wanted === undefined ? mostOutput : mostOutputOfAll;
    const options = { timeout: limit, killSignal: 'SIGKILL', maxBuffer, env: environment };
    const words = wanted === undefined ? [] : ['--all', wanted];
    execFile('python3', ['-I', '-S', program, path, ...words], options, (error, stdout, stderr) => {
      if (error) reject(Object.assign(error, { said: stderr.trim() }));
      else resolve(stdout);
    }).stdin?.end();
  });
}

/** One database. What it learns of python3 it shares with the others. */
export class OpenCodeStore {
  #path;
  #python;
  #environment;
  #log;
  #wanted;
  #stamp;
  #lookedAt = -Infinity;
  #sessions = [];

  /**
   * @param {string} path
   * @param {{ environment: NodeJS.ProcessEnv, log: import('../log.js').Log, python: { isMissing: boolean },
   *   wanted?: string }} options with `wanted`, which may be empty, all sessions are told of and not the newest alone;
   *   of older ones that don't begin with it without their words
   */
  constructor(path, { environment, log, python, wanted }) {
    this.#path = path;
    this.#python = python;
    this.#environment = environment;
    this.#log = log;
    this.#wanted = wanted;
    /** True while there is something to look at that had to wait. */
    this.isLate = false;
  }

  /**
   * The newest sessions, or all, of which none is a sub-agent's.
   * @param {string} stamp of the database and its log
   * @param {number} now
   * @returns {Promise<{ id: string, title: string, cwd: string, updated: number, lastText: string, prompt: string }[]>}
   */
  async sessions(stamp, now) {
    const passed = now - this.#lookedAt;
    const isFresh = passed >= 0 && passed < (this.#python.isMissing ? missingInterval : lookInterval);
    this.isLate = stamp !== this.#stamp && isFresh && !this.#python.isMissing;
    if (stamp === this.#stamp || isFresh) return this.#sessions;
    this.#lookedAt = now;
    this.#stamp = stamp;
    try {
      this.#sessions = JSON.parse(await run(this.#path, this.#environment, this.#wanted));
      this.#python.isMissing = false;
    } catch (error) {
      this.#report(error);
    }
    return this.#sessions;
  }

  #report(error) {
    if (error.code !== 'ENOENT') {
      const reason = error.said || error.message;
      this.#log.warn('a database of OpenCode could not be read', { path: this.#path, reason });
      return;
    }
    // Nothing has been read, so there is something to read even if nothing changes.
    this.#stamp = undefined;
    if (!this.#python.isMissing) {
      this.#log.warn('python3 is missing; sessions in the database of OpenCode are not found');
    }
    this.#python.isMissing = true;
  }
}
