// Starting, ending and asking the daemon, from any other program.

import { spawn } from 'node:child_process';
import fs from 'node:fs';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

import { daemonErrorsPath, daemonLogPath, daemonPidPath, daemonSocketPath } from '../places.js';
import { nodeProgram } from '../programs.js';
import { packageVersion } from '../version.js';
import { makeFolderOf, readIfPresent } from '../wholeFile.js';
import { askDaemon, DaemonSilent } from './channel.js';
import { lastEndWish, wishEnd } from './endWish.js';
import { daemonEnvironment } from './environment.js';
import { holdsSocket, memoryOf } from './processFacts.js';

const script = fileURLToPath(new URL('main.js', import.meta.url));
const interval = 25;
/** A start that takes its time is looked at more rarely: the machine is busy as it is. */
const longestInterval = 250;
/** At login, when everything starts at once, Node.js alone can take many seconds to load. */
const startLimit = 20_000;
/** How long a daemon that is silent is given to be gone or to answer, before it counts as one that hangs. */
const settleLimit = 2_500;
/** For an answer of one that comes up: on a busy machine it listens long before it has time. */
const comingAnswerLimit = 2_000;
const mostErrors = 1024 * 1024;

/**
 * The daemon works in small bites and rests for most of its life. Without compilers, helper threads and a large young
 * generation it is 5 to 8 MB smaller, at the same cost of a look.
 */
const nodeOptions = ['--max-semi-space-size=1', '--max-old-space-size=96', '--optimize-for-size', '--no-opt',
  '--no-sparkplug', '--single-threaded', '--no-warnings'];

export class DaemonError extends Error {
  constructor(message) {
    super(message);
    this.name = 'DaemonError';
  }
}

/** The daemon was told to end while it was being started. */
export class DaemonToldToEnd extends DaemonError {
  constructor() {
    super('The daemon was told to end meanwhile.');
    this.name = 'DaemonToldToEnd';
  }
}

/** The process id in `daemon.pid`, if that process is the one that listens. */
function verifiedPid(environment) {
  const pid = Number(readIfPresent(daemonPidPath(environment))?.trim());
  return Number.isInteger(pid) && pid > 0 && holdsSocket(pid, daemonSocketPath(environment)) ? pid : undefined;
}

/**
 * @typedef {object} DaemonStatus
 * @property {boolean} alive
 * @property {boolean} [responding] false for one that listens and doesn't answer
 * @property {boolean} [stopping]
 * @property {number} [pid]
 * @property {string} [version]
 * @property {number} [uptimeSeconds]
 * @property {{ rss?: number, pss?: number }} [memory] in bytes
 * @property {number} [bridgePort] where the bridge runs
 * @property {{ [name: string]: 'running' | 'starting' | 'failed' }} [parts]
 */

/** @returns {Promise<DaemonStatus>} */
export async function daemonStatus({ environment = process.env, limit } = {}) {
  try {
    const answer = await askDaemon('status', { environment, limit });
    if (!answer) return { alive: false };
    return { alive: true, responding: true, ...answer, memory: memoryOf(answer.pid) };
  } catch (error) {
    if (!(error instanceof DaemonSilent)) throw new DaemonError(`The daemon cannot be asked: ${error.message}.`);
    const pid = verifiedPid(environment);
    return { alive: true, responding: false, pid, ...(pid ? { memory: memoryOf(pid) } : {}) };
  }
}

/** One that was asked in its last moment is silent once and gone the next time. */
async function settledStatus(environment) {
  const deadline = performance.now() + settleLimit;
  for (;;) {
    const status = await daemonStatus({ environment });
    if (!status.alive || status.responding || performance.now() > deadline) return status;
    await sleep(interval);
  }
}

/**
 * Detached: a session of its own, at the root so that no folder is kept from being unmounted, and with nothing of the
 * terminal's. What Node.js itself may have to say has a file of its own, which stays in its place: the log doesn't.
 */
function spawnDaemon(environment, wish) {
  const file = daemonErrorsPath(environment);
  makeFolderOf(file);
  const isLong = (fs.statSync(file, { throwIfNoEntry: false })?.size ?? 0) > mostErrors;
  const errors = fs.openSync(file, isLong ? 'w' : 'a', 0o600);
  try {
    const options = { detached: true, cwd: '/', env: daemonEnvironment(environment), stdio: ['ignore', 'ignore', errors] };
    const child = spawn(nodeProgram(), [...nodeOptions, script, wish], options);
    child.unref();
    return child;
  } finally {
    fs.closeSync(errors);
  }
}

/**
 * Ends a child that another daemon forestalled, or that takes too long. One that is slow to notice would take the place
 * of that daemon if it were ended in the meantime, and one that came up behind all limits would be nobody's.
 */
async function withdraw(child) {
  if (child.exitCode !== null || child.signalCode !== null) return;
  const exit = new Promise((resolve) => { child.once('exit', resolve); });
  child.kill('SIGTERM');
  const limit = new AbortController();
  await Promise.race([exit, sleep(1000, undefined, { signal: limit.signal }).catch(() => {})]);
  limit.abort();
  if (child.exitCode === null && child.signalCode === null) child.kill('SIGKILL');
}

function ended(child) {
  return new Promise((resolve) => {
    child.once('error', (error) => resolve(error.message));
    child.once('exit', (code, signal) => resolve(code === 0 ? undefined : `it ended with ${signal ?? code}`));
  });
}

/** True for a daemon that an update of the package, or another installation, has left running. */
const isOfAnotherVersion = ({ version }) => packageVersion() !== undefined && version !== packageVersion();

/**
 * Tells a daemon to end by its process: asked over the socket, one that has meanwhile come in its place would end.
 * Resolves when it is about to; fails with DaemonError where it doesn't.
 */
async function dismiss(old, environment, isOver) {
  if (holdsSocket(old.pid, daemonSocketPath(environment))) signal(old.pid, 'SIGTERM');
  while (!isOver()) {
    const { alive, stopping, pid } = await daemonStatus({ environment, limit: 500 });
    if (!alive || stopping || pid !== old.pid) return;
    await sleep(interval);
  }
  throw new DaemonError('A daemon of another version runs and does not end; stop-daemon ends it.');
}

/**
 * Waits until a daemon answers, this child or one that forestalled it. Nothing where there is none by the end of the
 * wait.
 * @param {() => boolean} mayGoOn false when the wait is to end
 * @returns {Promise<number | undefined>} its process id
 */
async function pidOfComing(environment, mayGoOn) {
  for (let pause = interval; mayGoOn(); pause = Math.min(pause * 1.1, longestInterval)) {
    const { responding, stopping, pid } = await daemonStatus({ environment, limit: comingAnswerLimit });
    if (responding && !stopping) return pid;
    await sleep(pause);
  }
  return undefined;
}

/**
 * Starts the daemon and resolves when it answers and `daemon.pid` is written. One that runs already is left alone,
 * unless it is of another version: then it is replaced.
 * Fails with DaemonError: soon where the daemon ends or one hangs, else after `limit` milliseconds and the few seconds
 * that a last question and the end of its own attempt may take. Fails with DaemonToldToEnd where somebody ended it
 * meanwhile.
 * @param {{ environment?: NodeJS.ProcessEnv, limit?: number, now?: () => number }} [options] `now` never goes back, as
 *   the time of day may
 * @returns {Promise<{ pid: number, started: boolean }>}
 */
export async function startDaemon({
  environment = process.env, limit = startLimit, now = () => performance.now(),
} = {}) {
  const deadline = now() + limit;
  const isOver = () => now() >= deadline;
  const wish = lastEndWish(environment);
  const before = await settledStatus(environment);
  if (before.alive && !before.responding) throw new DaemonError('The daemon runs and does not answer; stop-daemon ends it.');
  if (before.alive && !before.stopping) {
    if (!isOfAnotherVersion(before)) return { pid: before.pid, started: false };
    await dismiss(before, environment, isOver);
  }
  const isToldToEnd = () => lastEndWish(environment) !== wish;
  if (isToldToEnd()) throw new DaemonToldToEnd();
  const child = spawnDaemon(environment, wish);
  let failure;
  ended(child).then((reason) => { failure = reason; });
  const pid = await pidOfComing(environment, () => !isOver() && failure === undefined && !isToldToEnd());
  // By its own doing; withdrawn, it ends as well.
  const why = failure ?? `it did not come up within ${limit / 1000} s`;
  if (pid !== child.pid) await withdraw(child);
  if (pid !== undefined) return { pid, started: pid === child.pid };
  if (isToldToEnd()) throw new DaemonToldToEnd();
  throw new DaemonError(`The daemon could not be started: ${why}. Its log is ${daemonLogPath(environment)}.`);
}

function signal(pid, name) {
  try {
    process.kill(pid, name);
  } catch {
    // It ended by itself.
  }
}

/** True for the daemon with the process id `old`; where one of the two isn't known, it may be. */
const isStill = ({ alive, pid }, old) => alive && (old === undefined || pid === undefined || pid === old);

/** Its successor isn't waited for. */
async function waitUntilGone(old, environment, limit) {
  const deadline = performance.now() + limit;
  while (performance.now() < deadline) {
    if (!isStill(await daemonStatus({ environment, limit: 250 }), old)) return true;
    await sleep(interval);
  }
  return false;
}

/**
 * Asks the daemon to end and waits for it; one that doesn't is ended by its process id, and one that is only being
 * started doesn't come up. One that comes in its place is left alone. Fails with DaemonError if neither helps.
 * @returns {Promise<{ stopped: boolean }>} false if none ran
 */
export async function stopDaemon({ environment = process.env, limit = 4000 } = {}) {
  wishEnd(environment);
  const answer = await askDaemon('stop', { environment }).catch(() => ({ pid: verifiedPid(environment) }));
  if (!answer) return { stopped: false };
  const old = answer.pid;
  if (await waitUntilGone(old, environment, limit)) return { stopped: true };
  for (const name of ['SIGTERM', 'SIGKILL']) {
    const pid = verifiedPid(environment);
    if (pid && isStill({ alive: true, pid }, old)) signal(pid, name);
    if (await waitUntilGone(old, environment, 1000)) return { stopped: true };
  }
  throw new DaemonError('The daemon runs and cannot be ended.');
}
