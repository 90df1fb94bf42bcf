// Errors that nobody caught. One alone needn't end the daemon, whose parts are apart from each other; a row of them
// says that something is broken for good.

const window = 60_000;

export class Troubles {
  #log;
  #clock;
  #most;
  #times = [];

  /** @param {{ log: import('../log.js').Log, clock: import('../clock.js').Clock, most?: number }} options */
  constructor({ log, clock, most = 10 }) {
    this.#log = log;
    this.#clock = clock;
    this.#most = most;
  }

  /** Writes the error down; false if there were too many within a minute. */
  bear(error) {
    const now = this.#clock.now();
    this.#times = [...this.#times.filter((time) => now - time < window), now];
    this.#log.error('unhandled error', error, { stack: String(error?.stack ?? '') });
    return this.#times.length <= this.#most;
  }
}
