// What a paired device may ask of the service. Everything that isn't in this table stays out, among it whatever plays a
// file of the computer by its path, ends the service or attaches sessions.

import { socketPath, statePath } from '../places.js';
import { isServiceRunning, sendCommand, ServiceNotRunning } from '../serviceSocket.js';
import { updateDocument } from '../sharedDocument.js';
import { lockTimeout } from './limits.js';

const scrubLimit = 1_000_000;
const textLimit = 16_384;

const isObject = (value) => value !== null && typeof value === 'object' && !Array.isArray(value);
const isText = (value) => typeof value === 'string' && value.trim() !== '' && value.length <= textLimit;
const isWithin = (low, high) => (value) => Number.isInteger(value) && value >= low && value <= high;
const isBoolean = (value) => typeof value === 'boolean';

const plain = { required: {}, optional: {} };

/** The arguments of each command that goes to the socket. */
const socketCommands = {
  pause: plain,
  resume: plain,
  toggle: plain,
  skip: plain,
  previous: plain,
  next: plain,
  restart: plain,
  stop: plain,
  scrub: { required: { index: isWithin(0, scrubLimit) }, optional: {} },
  volume: { required: { value: isWithin(0, 100) }, optional: {} },
  inject: { required: { text: isText }, optional: { submit: isBoolean } },
  speak: {
    required: {},
    optional: { shape: (shape) => ['text', 'clipboard'].includes(shape), value: isText },
    together: ({ shape, value }) => (shape === 'clipboard') === (value === undefined),
  },
};

/** Settings have no command of their own: the service follows its state document. */
const settings = { mute: { muted: true }, unmute: { muted: false } };

export class BadCommand extends Error {
  constructor(message) {
    super(message);
    this.name = 'BadCommand';
  }
}

function checkArguments(cmd, args, { required, optional, together = () => true }) {
  for (const name of Object.keys(args)) {
    if (!Object.hasOwn(required, name) && !Object.hasOwn(optional, name)) {
      throw new BadCommand(`The command "${cmd}" has no such argument.`);
    }
  }
  const fits = Object.entries(required).every(([name, test]) => test(args[name]))
    && Object.entries(optional).every(([name, test]) => args[name] === undefined || test(args[name]))
    && together(args);
  if (!fits) throw new BadCommand(`The arguments of "${cmd}" are missing or out of range.`);
}

/**
 * Does what the device asks. Fails with BadCommand for what isn't allowed and with ServiceNotRunning where nobody would
 * hear it.
 * @param {unknown} request `{ cmd, args? }`
 * @param {{ environment?: NodeJS.ProcessEnv, insist?: () => void }} [options] `insist` throws when it is no longer to be
 *   done; it is asked when all waiting is over
 */
export async function runCommand(request, { environment = process.env, insist = () => {} } = {}) {
  if (!isObject(request) || typeof request.cmd !== 'string') throw new BadCommand('A command is missing.');
  const { cmd, args = {} } = request;
  if (!isObject(args)) throw new BadCommand('The arguments must be an object.');
  const path = socketPath(environment);
  if (Object.hasOwn(settings, cmd)) {
    checkArguments(cmd, args, plain);
    if (!await isServiceRunning({ path })) throw new ServiceNotRunning();
    await updateDocument(statePath(environment), (document) => {
      insist();
      for (const [key, value] of Object.entries(settings[cmd])) document.set(key, value);
    }, { timeout: lockTimeout });
  } else if (Object.hasOwn(socketCommands, cmd)) {
    checkArguments(cmd, args, socketCommands[cmd]);
    insist();
    await sendCommand(cmd, args, { path });
  } else {
    throw new BadCommand('There is no such command.');
  }
  return cmd;
}
