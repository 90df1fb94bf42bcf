// How a command ends, for the command line and the bundle for support alike. A failure carries the sentence that a person
// reads and the code that a script sees.

export const exitCodes = {
  ok: 0, failed: 1, usage: 2, notFound: 3, unavailable: 69, hungUp: 129, interrupted: 130, terminated: 143,
};

/** Ends a command with a sentence on standard error. */
export class CommandFailure extends Error {
  /**
   * @param {string} message
   * @param {{ exit?: number, kind?: string, hint?: string, details?: object }} [options] `kind` names the failure in
   *   JSON; `details` stands beside it there; `hint` are further lines for a person
   */
  constructor(message, { exit = exitCodes.failed, kind = 'failed', hint, details } = {}) {
    super(message);
    Object.assign(this, { exit, kind, hint, details });
  }
}

export function usageError(message) {
  return new CommandFailure(message, { exit: exitCodes.usage, kind: 'usage' });
}

export function notFound(message, options) {
  return new CommandFailure(message, { exit: exitCodes.notFound, kind: 'notFound', ...options });
}

const startHint = 'Start it with "tts start", or add --start to the command.';

/** Whatever was thrown, as a failure with a sentence. */
export function asFailure(error) {
  if (error instanceof CommandFailure) return error;
  switch (error?.name) {
    case 'ServiceNotRunning':
      return new CommandFailure(error.message,
        { exit: exitCodes.unavailable, kind: 'serviceNotRunning', hint: startHint });
    case 'ServiceSilent':
      return new CommandFailure(error.message, { exit: exitCodes.unavailable, kind: 'serviceSilent' });
    case 'StartFailed':
      return new CommandFailure(error.message, { exit: exitCodes.unavailable, kind: 'startFailed' });
    case 'StateLockError':
      return new CommandFailure(`Another program holds ${error.lockPath}; nothing was changed.`, { kind: 'locked' });
    case 'DaemonError':
    case 'NoProgram':
      return new CommandFailure(error.message);
    default:
      return new CommandFailure(`It didn't work: ${error?.message ?? error}`);
  }
}
