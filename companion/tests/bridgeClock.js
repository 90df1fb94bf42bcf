// A clock that stands still until a test moves it.

/** @returns {import('../lib/clock.js').Clock & { time: number, step(milliseconds: number): void }} */
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
