// The one daemon of a shared folder. Who listens at `daemon.sock` is it; `daemon.pid` tells the other programs.
//
// A socket that a dead daemon left behind is removed under a short lock, so that of two that start at once only one
// does so. Should the folder be taken away or the socket be replaced all the same, the daemon notices and ends: one
// that nobody can reach must not go on beside its successor.

import fs from 'node:fs';
import path from 'node:path';

import { systemClock } from '../clock.js';
import { FolderWatch } from '../folderWatch.js';
import { daemonLockPath, daemonPidPath, daemonSocketPath, sharedDirectory } from '../places.js';
import { withLock } from '../stateLock.js';
import { readIfPresent, replaceFile } from '../wholeFile.js';
import { askDaemon, DaemonSilent, listen } from './channel.js';

const retryInterval = 50;
const goodbye = 200;

/** The lock's name is made from the name of what it guards. */
const guarded = (environment) => daemonLockPath(environment).replace(/\.lock$/, '');

const identify = (file) => {
  const status = fs.lstatSync(file, { throwIfNoEntry: false });
  return status && `${status.dev}:${status.ino}`;
};

/** This process as the only daemon, from `claimInstance` until `release`. */
export class Instance {
  #server;
  #environment;
  #identity;
  #watch;

  constructor(server, environment) {
    this.#server = server;
    this.#environment = environment;
    this.#identity = identify(daemonSocketPath(environment));
    this.writePid();
  }

  writePid() {
    replaceFile(daemonPidPath(this.#environment), `${process.pid}\n`);
  }

  isHeld() {
    return identify(daemonSocketPath(this.#environment)) === this.#identity;
  }

  /** Calls `onLost` once when the socket isn't this daemon's any more; writes `daemon.pid` again when it is taken away. */
  watch(onLost, clock = systemClock) {
    const names = [daemonSocketPath, daemonPidPath].map((place) => path.basename(place(this.#environment)));
    this.#watch = new FolderWatch(sharedDirectory(this.#environment), names, () => this.#look(onLost), clock);
    this.#watch.start();
    // What happened since the place was taken.
    this.#look(onLost);
  }

  #look(onLost) {
    if (this.isHeld()) {
      if (readIfPresent(daemonPidPath(this.#environment))?.trim() !== String(process.pid)) this.writePid();
    } else {
      this.#watch.stop();
      onLost();
    }
  }

  /** The files go first, so that a successor finds either a daemon or nothing. */
  async release() {
    this.#watch?.stop();
    // Closing removes whatever has the socket's name, and what lies there may be a successor's.
    if (!this.isHeld()) {
      this.#server.unref();
      return;
    }
    const pidFile = daemonPidPath(this.#environment);
    if (readIfPresent(pidFile)?.trim() === String(process.pid)) fs.rmSync(pidFile, { force: true });
    // The last answers are on their way; one who asked nothing isn't waited for.
    const closed = new Promise((resolve) => { this.#server.close(resolve); });
    await Promise.race([closed, new Promise((resolve) => { setTimeout(resolve, goodbye); })]);
  }
}

/** Whether one runs, is about to end, or is none. A silent one is somebody: it can be ended, not pushed aside. */
async function present(environment) {
  try {
    const answer = await askDaemon('status', { environment });
    if (!answer) return 'none';
    return answer.stopping ? 'stopping' : 'running';
  } catch (error) {
    if (error instanceof DaemonSilent) return 'silent';
    throw error;
  }
}

async function attempt(environment, answer) {
  const state = await present(environment);
  if (state !== 'none') return state;
  const socket = daemonSocketPath(environment);
  fs.rmSync(socket, { force: true });
  return new Instance(await listen(socket, answer), environment);
}

/**
 * Becomes the daemon, after one that is about to end; nothing if another one is and stays it.
 * @param {{ environment: NodeJS.ProcessEnv, answer: (question: unknown) => object, limit?: number }} options
 * @returns {Promise<Instance | undefined>}
 */
export async function claimInstance({ environment, answer, limit = 4000 }) {
  fs.mkdirSync(sharedDirectory(environment), { recursive: true, mode: 0o700 });
  const deadline = performance.now() + limit;
  for (;;) {
    const result = await withLock(guarded(environment), () => attempt(environment, answer), { timeout: limit });
    if (result instanceof Instance) return result;
    if (result === 'running' || performance.now() > deadline) return undefined;
    await new Promise((resolve) => { setTimeout(resolve, retryInterval); });
  }
}
