// A clock that a test moves by hand.

import { setImmediate } from 'node:timers/promises';

/** @implements {import('../lib/clock.js').Clock} */
export class HandClock {
  #timers = new Map();
  #next = 1;

  constructor(time = 1_700_000_000_000) {
    this.time = time;
  }

  now() {
    return this.time;
  }

  setTimeout(callback, delay) {
    this.#timers.set(this.#next, { callback, due: this.time + delay });
    return this.#next++;
  }

  clearTimeout(timer) {
    this.#timers.delete(timer);
  }

  /** Moves on; what is due runs in its order, and what it set off without waiting for anything outside is done after. */
  async pass(milliseconds) {
    const end = this.time + milliseconds;
    for (;;) {
      const due = [...this.#timers].filter(([, timer]) => timer.due <= end).sort(([, a], [, b]) => a.due - b.due)[0];
      if (!due) break;
      this.#timers.delete(due[0]);
      this.time = due[1].due;
      due[1].callback();
      await setImmediate();
    }
    this.time = end;
    await setImmediate();
  }
}
