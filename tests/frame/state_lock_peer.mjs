// Increments "count" in a shared JSON document under the companions' lock.
//
//   node state_lock_peer.mjs <document> <times> [<dead>]
//
// With the id of a process that is gone it never releases, but leaves each lock in that one's name, for whoever comes
// next to reclaim.
//
// Says "<document>.ready.<pid>" when it stands ready, and begins when "<document>.go" appears.
import fs from 'node:fs';
import { setTimeout as sleep } from 'node:timers/promises';

import * as stateLock from '../../companion/lib/stateLock.js';

const [document, times, dead] = process.argv.slice(2);

async function acquire() {
  if (!dead) return stateLock.acquire(document);
  const start = performance.now();
  // Where every turn needs a reclaim, reclaimers shall meet as often as they can.
  while (!stateLock.tryAcquire(document)) {
    if (performance.now() - start > 60_000) throw new Error('the lock could not be had in a minute');
  }
}

function increment() {
  const content = JSON.parse(fs.readFileSync(document, 'utf8'));
  content.count += 1;
  fs.writeFileSync(`${document}.tmp`, JSON.stringify(content, null, 2));
  fs.renameSync(`${document}.tmp`, document);
}

function release() {
  if (dead) fs.writeFileSync(stateLock.lockPath(document), dead);
  else stateLock.release(document);
}

fs.writeFileSync(`${document}.ready.${process.pid}`, '');
while (!fs.existsSync(`${document}.go`)) await sleep(1);

for (let i = 0; i < Number(times); ++i) {
  await acquire();
  try {
    increment();
  } finally {
    release();
  }
  if (!dead) await sleep(1);
}
