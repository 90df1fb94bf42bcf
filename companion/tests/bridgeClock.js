// Clocks of which a test has a say.

import { systemClock } from '../lib/clock.js';

/**
 * One that stands still until a test moves it.
 * @returns {import('../lib/clock.js').Clock & { time: number, step(milliseconds: number): void }}
 */
export function steppedClock(time = Date.now()) {
  let timers = [];
  return {
    time,
    now() {
      return this.time;
    },
    setTimeout(callback, delay) {
      const timer = { callback, at: this.time + delay };
      timers.push(timer);
      return timer;
    },
    clearTimeout(timer) {
      timers = timers.filter((each) => each !== timer);
    },
    /** Calls what is due by then, once. */
    step(milliseconds) {
      this.time += milliseconds;
      const due = timers.filter(({ at }) => at <= this.time);
      timers = timers.filter((each) => !due.includes(each));
      for (const { callback } of due) callback();
    },
  };
}

/** The real clock, but for what would be done now and then without a reason: what happens, somebody was told of. */
export function quietClock() {
  return { ...systemClock, setTimeout: (callback, delay) => (delay < 5000 ? setTimeout(callback, delay) : undefined) };
}
