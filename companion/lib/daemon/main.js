// The daemon's process. It ends with 0 when it was asked to, when another daemon runs, or when its folder was taken
// away, and with 1 when it can't go on.

import process from 'node:process';

import { isHeldUp } from '../answerLimit.js';
import { systemClock } from '../clock.js';
import { Log, RotatingFile } from '../log.js';
import { daemonLogPath, sharedDirectory } from '../places.js';
import { sweepLockRemains } from '../stateLock.js';
import { packageVersion } from '../version.js';
import { Daemon } from './daemon.js';
import { lastEndWish } from './endWish.js';
import { closeInherited } from './inheritance.js';
import { claimInstance } from './instance.js';
import { Troubles } from './troubles.js';

const endLimit = 3000;
/** For those before it to go or to get done, which on a busy machine takes a while; less than whoever starts it waits. */
const claimLimit = 15_000;
const environment = process.env;

closeInherited();
// All that it writes is its user's alone.
process.umask(0o077);

const log = new Log(new RotatingFile(daemonLogPath(environment)));
const daemon = new Daemon({ environment, log });
const troubles = new Troubles({ log, clock: systemClock });
const startedAt = Date.now();
/** Of what runs: an update may replace the files at any time. */
const version = packageVersion();
/** As it was when the start began. */
const wish = process.argv[2] ?? lastEndWish(environment);
/** @type {import('./instance.js').Instance | undefined} */
let instance;
let ending = false;

function answer(question) {
  if (question === 'stop') setImmediate(end, 'asked');
  const uptimeSeconds = Math.round((Date.now() - startedAt) / 1000);
  return { ...daemon.report(), stopping: ending || question === 'stop', pid: process.pid, uptimeSeconds, version };
}

async function end(reason) {
  if (ending) return;
  ending = true;
  // One that hasn't become the daemon has nothing to end, and nothing to say.
  if (!instance) process.exit(0);
  log.info('daemon ends', { input: { reason } });
  // A part that can't end mustn't keep the daemon.
  await Promise.race([daemon.stop(), new Promise((resolve) => { setTimeout(resolve, endLimit); })]);
  await instance.release();
  // Nothing is left to be done, and a usual end would wait for the file system.
  if (isHeldUp()) process.kill(process.pid, 'SIGKILL');
  process.exit(0);
}

function bear(error) {
  if (!instance || !troubles.bear(error)) process.exit(1);
}

for (const name of ['SIGTERM', 'SIGINT']) process.on(name, () => end(name));
process.on('SIGHUP', () => {});
process.on('uncaughtException', bear);
process.on('unhandledRejection', bear);

try {
  instance = await claimInstance({ environment, answer, limit: claimLimit });
} catch (error) {
  log.error('daemon cannot start', error);
  process.exit(1);
}
if (!instance) process.exit(0);
// Nobody has been answered yet: those who ask from now on hear that it ends.
if (lastEndWish(environment) !== wish) await end('told to before it was up');
log.info('daemon up', { input: { pid: process.pid, node: process.version } });
sweepLockRemains(sharedDirectory(environment));
instance.watch(() => end('its socket was taken away'));
await daemon.start();
