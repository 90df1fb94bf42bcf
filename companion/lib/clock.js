// Time as the daemon's parts see it, so that a test can move it by hand.

/**
 * @typedef {object} Clock
 * @property {() => number} now milliseconds since the epoch
 * @property {(callback: () => void, delay: number) => unknown} setTimeout
 * @property {(timer: unknown) => void} clearTimeout
 */

/** @type {Clock} */
export const systemClock = {
  now: () => Date.now(),
  setTimeout: (callback, delay) => setTimeout(callback, delay),
  clearTimeout: (timer) => clearTimeout(timer),
};
