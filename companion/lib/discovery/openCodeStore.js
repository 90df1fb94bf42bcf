// OpenCode's SQLite database, which Node 20 can't read by itself: a short-lived python3 does, whenever the database or
// its log has changed, but at most every five seconds and never for longer than three. A database that can't be read
// keeps the sessions that it had.

import { execFile } from 'node:child_process';
import { fileURLToPath } from 'node:url';

export const lookInterval = 5000;
const limit = 3000;
const mostOutput = 8 * 1024 * 1024;
const program = fileURLToPath(new URL('openCodeStore.py', import.meta.url));

/** @returns {Promise<string>} what the program prints */
function run(path, environment) {
  return new Promise((resolve, reject) => {
    const options = { timeout: limit, killSignal: 'SIGKILL', maxBuffer: mostOutput, env: environment };
    execFile('python3', ['-I', '-S', program, path], options, (error, stdout, stderr) => {
      if (error) reject(Object.assign(error, { said: stderr.trim() }));
      else resolve(stdout);
    }).stdin?.end();
  });
}

/** One database. */
export class OpenCodeStore {
  #path;
  #environment;
  #log;
  #stamp;
  #lookedAt = -Infinity;
  #sessions = [];

  constructor(path, { environment, log }) {
    this.#path = path;
    this.#environment = environment;
    this.#log = log;
    /** True while there is something to look at that had to wait. */
    this.isLate = false;
  }

  /**
   * The newest sessions, of which none is a sub-agent's.
   * @param {string} stamp of the database and its log
   * @param {number} now
   * @returns {Promise<{ id: string, title: string, cwd: string, updated: number, lastText: string, prompt: string }[]>}
   */
  async sessions(stamp, now) {
    this.isLate = stamp !== this.#stamp && now >= this.#lookedAt && now - this.#lookedAt < lookInterval;
    if (stamp === this.#stamp || this.isLate) return this.#sessions;
    this.#lookedAt = now;
    this.#stamp = stamp;
    try {
      this.#sessions = JSON.parse(await run(this.#path, this.#environment));
      OpenCodeStore.#hasPython = true;
    } catch (error) {
      this.#report(error);
    }
    return this.#sessions;
  }

  static #hasPython = true;

  #report(error) {
    if (error.code !== 'ENOENT') {
      const reason = error.said || error.message;
      this.#log.warn('a database of OpenCode could not be read', { path: this.#path, reason });
    } else if (OpenCodeStore.#hasPython) {
      OpenCodeStore.#hasPython = false;
      this.#log.warn('python3 is missing; sessions in the database of OpenCode are not found');
    }
  }
}
