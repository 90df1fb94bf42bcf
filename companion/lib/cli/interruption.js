// How the process ends when it is interrupted.

import { isatty } from 'node:tty';

import { exitCodes } from '../words/failure.js';

/** As long as a command may take to undo what it began. */
const undoLimit = 3_000;

/**
 * In the end Node.js puts back how the terminal was, and aborts where that has gone. What the shell sees is the same as
 * if it had ended with the code.
 */
function endByHangUp() {
  process.once('exit', () => {
    process.removeAllListeners('SIGHUP');
    process.kill(process.pid, 'SIGHUP');
  });
}

/**
 * A signal ends a command at once: documents are written in one step, and what is held is let go at the process's exit.
 * One that has something to take back (`undoes`) is given a moment for it, and told the exit code as the reason; a second
 * signal doesn't wait for that.
 * @returns {AbortController & { undoes?: boolean }}
 */
export function interruptible() {
  const controller = new AbortController();
  const hasTerminal = [0, 1, 2].some((fd) => isatty(fd));
  const on = (name, status) => process.on(name, () => {
    if (status === exitCodes.hungUp && hasTerminal) endByHangUp();
    if (!controller.undoes || controller.signal.aborted) process.exit(status);
    controller.abort(status);
    setTimeout(() => process.exit(status), undoLimit).unref();
  });
  on('SIGINT', exitCodes.interrupted);
  on('SIGTERM', exitCodes.terminated);
  on('SIGHUP', exitCodes.hungUp);
  return controller;
}
