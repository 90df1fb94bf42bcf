// How the process ends when it is interrupted.

import { exitCodes } from '../words/failure.js';

/** As long as a command may take to undo what it began. */
const undoLimit = 3_000;

/**
 * A signal ends a command at once: documents are written in one step, and what is held is let go at the process's exit.
 * One that has something to take back (`undoes`) is given a moment for it, and told the exit code as the reason; a second
 * signal doesn't wait for that.
 * @returns {AbortController & { undoes?: boolean }}
 */
export function interruptible() {
  const controller = new AbortController();
  const on = (name, status) => process.on(name, () => {
    if (!controller.undoes || controller.signal.aborted) process.exit(status);
    controller.abort(status);
    setTimeout(() => process.exit(status), undoLimit).unref();
  });
  on('SIGINT', exitCodes.interrupted);
  on('SIGTERM', exitCodes.terminated);
  on('SIGHUP', exitCodes.hungUp);
  return controller;
}
