// Starting the service, and waiting until it can be spoken to. The service is its own master: it is detached, belongs
// to no terminal, and outlives who started it. It starts the daemon itself; where that doesn't happen it is done here.

import { spawn } from 'node:child_process';

import { socketPath } from './places.js';
import { isServiceRunning, serviceState, ServiceSilent } from './serviceSocket.js';

const startLimit = 15_000;
const daemonGrace = 2_000;
const pollInterval = 50;

/** The service couldn't be started; the message is for a person. */
export class StartFailed extends Error {
  constructor(message) {
    super(message);
    this.name = 'StartFailed';
  }
}

const sleep = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

/**
 * Polls until `condition` holds; false after `limit` milliseconds.
 * @param {() => boolean | Promise<boolean>} condition
 */
export async function waitFor(condition, limit, interval = pollInterval) {
  const deadline = performance.now() + limit;
  for (;;) {
    if (await condition()) return true;
    if (performance.now() >= deadline) return false;
    await sleep(interval);
  }
}

/** The real neighbours; a test has its own. */
const ownParts = {
  program: async (environment) => (await import('./programs.js')).sonraProgram(environment),
  daemonStatus: async (environment) => (await import('./daemon/daemonControl.js')).daemonStatus({ environment }),
  startDaemon: async (environment) => (await import('./daemon/daemonControl.js')).startDaemon({ environment }),
};

function launch(program, environment) {
  const child = spawn(program, [], { env: environment, cwd: '/', detached: true, stdio: 'ignore' });
  const ended = new Promise((resolve) => {
    child.once('error', (error) => resolve(`couldn't be run (${error.code ?? error.message})`));
    child.once('exit', (code, signal) => resolve(signal ? `was ended by ${signal}` : `ended with code ${code}`));
  });
  child.unref();
  return ended;
}

/**
 * Starts the service unless it runs, and resolves when its socket takes commands. Fails with StartFailed,
 * and with ServiceSilent where one runs that doesn't answer: another launch would only find that.
 * @param {{ environment?: NodeJS.ProcessEnv, limit?: number, parts?: typeof ownParts }} [options]
 * @returns {Promise<'started' | 'running'>}
 */
export async function startService({ environment = process.env, limit = startLimit, parts = ownParts } = {}) {
  const path = socketPath(environment);
  const state = await serviceState({ path });
  if (state === 'running') return 'running';
  if (state === 'silent') throw new ServiceSilent();
  const program = await parts.program(environment);
  if (!program) throw new StartFailed("The sonra program wasn't found. Install it, or name it in SONRA_PROGRAM.");
  let how;
  launch(program, environment).then((text) => { how = text; });
  // A second launch ends at once and successfully when another has just become the service.
  let listening = false;
  await waitFor(async () => {
    listening = await isServiceRunning({ path });
    return listening || (how !== undefined && how !== 'ended with code 0');
  }, limit);
  if (listening) return 'started';
  if (how) throw new StartFailed(`The service didn't start: ${program} ${how}.`);
  throw new StartFailed(`The service didn't take commands within ${Math.round(limit / 1000)} seconds.`);
}

/**
 * Sees to it that the daemon lives beside a running service, which needs a moment to start it. Fails with what
 * starting it fails with.
 * @returns {Promise<boolean>} whether it lives
 */
export async function ensureDaemon({ environment = process.env, grace = daemonGrace, parts = ownParts } = {}) {
  if (environment.TTS_DISABLE_CTL === '1') return false;
  const alive = async () => (await parts.daemonStatus(environment)).alive;
  if (await waitFor(alive, grace)) return true;
  await parts.startDaemon(environment);
  return waitFor(alive, grace);
}
