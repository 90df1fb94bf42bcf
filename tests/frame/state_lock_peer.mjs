// Increments "count" in a shared JSON document, by the rules that every party to it follows: the lock file beside
// the document, the same judgement of a stale one, and whole-file replacement that keeps unknown keys.
//
//   node state_lock_peer.mjs <document> <times> [<dead>]
//
// With the id of a process that is gone it never releases, but leaves each lock in that one's name, for whoever comes
// next to reclaim.
//
// Says "<document>.ready.<pid>" when it stands ready, and begins when "<document>.go" appears.
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';

const STALE_AFTER_MS = 30_000;
const RETRY_MS = 25;
const TIMEOUT_MS = 10_000;

const [document, times, dead] = process.argv.slice(2);
const lock = `${document}.lock`;

function sleep(milliseconds) {
  Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, milliseconds);
}

function isDead(pid) {
  try {
    process.kill(pid, 0);
    return false;
  } catch (error) {
    return error.code !== 'EPERM';
  }
}

// Only one reclaimer may remove a stale lock, or the slower would remove the one that somebody has taken since. That
// happens: without this, four parties that reclaim 400 times lose an increment in one run of six. Node.js can't lock a
// file; flock(1) can, and its lock belongs to the open file, so it stays ours behind the tool's end.
function isBeingReclaimed(fd) {
  return spawnSync('flock', ['--nonblock', '3'], { stdio: ['ignore', 'ignore', 'ignore', fd] }).status !== 0;
}

function reclaimIfStale() {
  try {
    const fd = fs.openSync(lock, 'r');
    try {
      const judged = fs.fstatSync(fd);
      const text = fs.readFileSync(fd, 'utf8').trim();
      const pid = /^[+-]?\d+$/.test(text) ? Number(text) : 0;
      const isStale = (pid >= 1 && isDead(pid)) || Date.now() - judged.mtimeMs > STALE_AFTER_MS;
      if (!isStale || isBeingReclaimed(fd)) return;
      if (fs.statSync(lock).ino === judged.ino) fs.unlinkSync(lock);
    } finally {
      fs.closeSync(fd);
    }
  } catch (error) {
    if (error.code !== 'ENOENT') throw error;
  }
}

function tryAcquire() {
  try {
    fs.writeFileSync(lock, String(process.pid), { flag: 'wx', mode: 0o600 });
    return true;
  } catch (error) {
    if (error.code !== 'EEXIST') throw error;
    reclaimIfStale();
    return false;
  }
}

function acquire() {
  const deadline = Date.now() + TIMEOUT_MS;
  while (!tryAcquire()) {
    if (Date.now() >= deadline) throw new Error(`state-lock: lock timeout (${lock})`);
    // Where every turn needs a reclaim, reclaimers shall meet as often as they can.
    if (!dead) sleep(RETRY_MS);
  }
}

function increment() {
  const content = JSON.parse(fs.readFileSync(document, 'utf8'));
  content.count += 1;
  fs.writeFileSync(`${document}.tmp`, JSON.stringify(content, null, 2));
  fs.renameSync(`${document}.tmp`, document);
}

function release() {
  if (dead) fs.writeFileSync(lock, dead);
  else fs.unlinkSync(lock);
}

fs.writeFileSync(`${document}.ready.${process.pid}`, '');
while (!fs.existsSync(`${document}.go`)) sleep(1);

for (let i = 0; i < Number(times); ++i) {
  acquire();
  try {
    increment();
  } finally {
    release();
  }
  if (!dead) sleep(1);
}
