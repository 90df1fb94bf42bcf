// Increments "count" in a shared JSON document, by the rules that every party to it follows: the lock file beside
// the document, the same judgement of a stale one, and whole-file replacement that keeps unknown keys.
//
//   node state_lock_peer.mjs <document> <times>
//
// Says "<document>.ready.<pid>" when it stands ready, and begins when "<document>.go" appears.
import fs from 'node:fs';

const STALE_AFTER_MS = 30_000;
const RETRY_MS = 25;
const TIMEOUT_MS = 10_000;

const [document, times] = process.argv.slice(2);
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

function reclaimIfStale() {
  try {
    const fd = fs.openSync(lock, 'r');
    try {
      const judged = fs.fstatSync(fd);
      const text = fs.readFileSync(fd, 'utf8').trim();
      const pid = /^[+-]?\d+$/.test(text) ? Number(text) : 0;
      const isStale = (pid >= 1 && isDead(pid)) || Date.now() - judged.mtimeMs > STALE_AFTER_MS;
      if (isStale && fs.statSync(lock).ino === judged.ino) fs.unlinkSync(lock);
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

function withLock(body) {
  const deadline = Date.now() + TIMEOUT_MS;
  while (!tryAcquire()) {
    if (Date.now() >= deadline) throw new Error(`state-lock: lock timeout (${lock})`);
    sleep(RETRY_MS);
  }
  try {
    body();
  } finally {
    fs.unlinkSync(lock);
  }
}

fs.writeFileSync(`${document}.ready.${process.pid}`, '');
while (!fs.existsSync(`${document}.go`)) sleep(1);

for (let i = 0; i < Number(times); ++i) {
  withLock(() => {
    const content = JSON.parse(fs.readFileSync(document, 'utf8'));
    content.count += 1;
    fs.writeFileSync(`${document}.tmp`, JSON.stringify(content, null, 2));
    fs.renameSync(`${document}.tmp`, document);
  });
  sleep(1);
}
