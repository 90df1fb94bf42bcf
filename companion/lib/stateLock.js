// The lock that every program takes to rewrite a shared document: the file `<document>.lock` with the holder's process
// id in it. It is the same lock between functions of one process, and it isn't re-entrant.
//
// A lock left behind by a process that has died is reclaimed at once, any other after 30 s.

import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

export const staleAfter = 30_000;
export const retryInterval = 25;
export const defaultTimeout = 10_000;
const flockLimit = 1000;
/** The documents whose locks this process holds. */
const held = new Set();

// Whatever ends the process in the middle of its work, the lock goes before its number can be another process's. One that
// was taken away meanwhile, as stale, is somebody else's.
process.on('exit', () => {
  for (const document of held) if (isOurs(lockPath(document))) release(document);
});

export class StateLockError extends Error {
  constructor(lockPath) {
    super(`state-lock: lock timeout (${lockPath})`);
    this.name = 'StateLockError';
    this.lockPath = lockPath;
  }
}

export const lockPath = (document) => `${document}.lock`;

/** The process id in a lock file's text; 0 for anything that isn't a 32-bit decimal number. */
export function holderOf(text) {
  const trimmed = text.trim();
  if (!/^[+-]?\d+$/.test(trimmed)) return 0;
  const pid = Number(trimmed);
  return pid >= -0x80000000 && pid <= 0x7fffffff ? pid : 0;
}

function isDead(pid) {
  try {
    process.kill(pid, 0);
    return false;
  } catch (error) {
    return error.code !== 'EPERM';
  }
}

/** True if a lock file with this text and age, in milliseconds, may be taken away from its holder. */
export function isStale(text, age) {
  const pid = holderOf(text);
  return (pid >= 1 && isDead(pid)) || age > staleAfter;
}

/** The text of a lock file, by its path or descriptor; empty where it can't be read. */
function readHolder(file) {
  try {
    return fs.readFileSync(file, 'utf8');
  } catch {
    return '';
  }
}

const isOurs = (lock) => holderOf(readHolder(lock)) === process.pid;

function openIfAllowed(lock) {
  try {
    return fs.openSync(lock, fs.constants.O_RDONLY | fs.constants.O_NONBLOCK);
  } catch {
    return undefined;
  }
}

/**
 * True if another process is reclaiming the same lock file just now: only one of them may remove it, or the slower would
 * remove the lock that somebody has taken since. Node.js can't lock a file; flock(1) can, and its lock belongs to the open
 * file, so it stays ours behind the tool's end. Where there is no such tool, nobody is.
 */
function isBeingReclaimed(fd) {
  const { status, error } = spawnSync('flock', ['--nonblock', '3'],
    { stdio: ['ignore', 'ignore', 'ignore', fd], timeout: flockLimit });
  return error?.code !== 'ENOENT' && status !== 0;
}

/** Removes a stale lock, but not one that somebody has taken since it was judged. */
function reclaimIfStale(lock) {
  // Held open until the end, so that the file's number can't be given to another file meanwhile.
  const fd = openIfAllowed(lock);
  try {
    // File systems exist whose numbers are larger than a double can tell apart.
    const judged = fd === undefined ? fs.statSync(lock, { bigint: true }) : fs.fstatSync(fd, { bigint: true });
    if (!isStale(fd === undefined ? '' : readHolder(fd), Date.now() - Number(judged.mtimeMs))) return;
    if (fd !== undefined && isBeingReclaimed(fd)) return;
    const present = fs.statSync(lock, { bigint: true });
    if (present.ino === judged.ino && present.dev === judged.dev) fs.unlinkSync(lock);
  } catch {
    // It went away by itself, which is as good.
  } finally {
    if (fd !== undefined) fs.closeSync(fd);
  }
}

/**
 * Lets the lock file appear with the holder in it: one who is killed between two steps would leave an empty file, which
 * holds everybody up until it is stale.
 */
function create(lock) {
  const complete = `${lock}.${process.pid}`;
  try {
    fs.writeFileSync(complete, String(process.pid), { mode: 0o600 });
    fs.linkSync(complete, lock);
    return 'done';
  } catch (error) {
    return error.code === 'EEXIST' ? 'exists' : createInOneStep(lock);
  } finally {
    fs.rmSync(complete, { force: true });
  }
}

/** What one who was killed in `create` left. Where the folder can't be read, or something in it removed, it stays. */
export function sweepLockRemains(folder) {
  try {
    for (const name of fs.readdirSync(folder)) {
      const pid = holderOf(/\.lock\.(\d+)$/.exec(name)?.[1] ?? '');
      const file = path.join(folder, name);
      if (pid >= 1 && isDead(pid) && Date.now() - fs.lstatSync(file).mtimeMs > staleAfter) fs.rmSync(file, { force: true });
    }
  } catch {
    // Another has removed it, or may.
  }
}

/** The way for file systems without hard links. */
function createInOneStep(lock) {
  try {
    fs.writeFileSync(lock, String(process.pid), { mode: 0o600, flag: 'wx' });
    return 'done';
  } catch (error) {
    return error.code === 'EEXIST' ? 'exists' : 'failed';
  }
}

/** One attempt. One that clears a stale lock away is false as well: the next may get the lock. */
export function tryAcquire(document) {
  const lock = lockPath(document);
  const created = create(lock);
  if (created === 'done') held.add(document);
  if (created === 'exists') reclaimIfStale(lock);
  return created === 'done';
}

/** Removes the lock file, whoever holds it. */
export function release(document) {
  held.delete(document);
  fs.rmSync(lockPath(document), { force: true });
}

/** Resolves when the lock is held; fails with StateLockError after `timeout` milliseconds. */
export async function acquire(document, timeout = defaultTimeout) {
  const deadline = performance.now() + timeout;
  while (!tryAcquire(document)) {
    if (performance.now() >= deadline) throw new StateLockError(lockPath(document));
    await sleep(retryInterval);
  }
}

/**
 * Runs `body` under the lock and gives its result, or what it throws, to the caller.
 * @template T
 * @param {string} document
 * @param {() => T} body
 * @param {{ timeout?: number }} [options] in milliseconds
 * @returns {Promise<T>}
 */
export async function withLock(document, body, { timeout = defaultTimeout } = {}) {
  await acquire(document, timeout);
  try {
    return await body();
  } finally {
    release(document);
  }
}
