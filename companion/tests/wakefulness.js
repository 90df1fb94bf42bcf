// Time as this process had it: while the machine or a debugger holds it up, hardly any goes by.

const interval = 10;
/** What counts of the time between two beats, however late the second comes. */
const most = 100;

/**
 * Starts counting.
 * @param {import('node:test').TestContext} context
 * @returns {() => number} the milliseconds since then in which the process could do its work
 */
export function countAwake(context) {
  let awake = 0;
  let last = performance.now();
  const beat = () => {
    const now = performance.now();
    awake += Math.min(now - last, most);
    last = now;
  };
  const timer = setInterval(beat, interval);
  context.after(() => clearInterval(timer));
  return () => awake;
}
