import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import test from 'node:test';

import * as lock from '../lib/stateLock.js';
import { temporaryHome } from './home.js';

/** The id of a process that has ended. */
function deadPid() {
  return spawnSync('/bin/true').pid;
}

function age(file, seconds) {
  const then = Date.now() / 1000 - seconds;
  fs.utimesSync(file, then, then);
}

test('a lock is held by its file, with the holder in it, until it is released', (t) => {
  const document = temporaryHome(t).inShared('x.json');
  assert.equal(lock.lockPath(document), `${document}.lock`);
  assert.equal(lock.tryAcquire(document), true);
  assert.equal(fs.readFileSync(`${document}.lock`, 'utf8'), String(process.pid));
  assert.equal(fs.statSync(`${document}.lock`).mode & 0o777, 0o600);
  assert.equal(lock.tryAcquire(document), false);
  lock.release(document);
  assert.equal(fs.existsSync(`${document}.lock`), false);
});

test('a lock of a dead process is reclaimed at once, and taken by the next attempt', (t) => {
  const document = temporaryHome(t).inShared('x.json');
  fs.writeFileSync(`${document}.lock`, String(deadPid()));
  assert.equal(lock.tryAcquire(document), false);
  assert.equal(lock.tryAcquire(document), true);
});

test('a lock of a live process holds for 30 s and no longer', (t) => {
  const document = temporaryHome(t).inShared('x.json');
  fs.writeFileSync(`${document}.lock`, String(process.ppid));
  // However long it takes to look, it is the same moment.
  const now = Date.now();
  t.mock.method(Date, 'now', () => now);
  age(`${document}.lock`, 29);
  assert.equal(lock.tryAcquire(document), false);
  assert.equal(lock.tryAcquire(document), false);
  age(`${document}.lock`, 31);
  assert.equal(lock.tryAcquire(document), false);
  assert.equal(lock.tryAcquire(document), true);
});

test('what is no process id counts as held until it is old', (t) => {
  const document = temporaryHome(t).inShared('x.json');
  for (const text of ['', 'nobody', '12x', '99999999999', '-5']) {
    fs.writeFileSync(`${document}.lock`, text);
    assert.equal(lock.tryAcquire(document), false);
    assert.equal(fs.existsSync(`${document}.lock`), true, `reclaimed: ${text}`);
    age(`${document}.lock`, 31);
    assert.equal(lock.tryAcquire(document), false);
    assert.equal(fs.existsSync(`${document}.lock`), false, `held: ${text}`);
  }
});

test('waiting ends with the timeout error, and no earlier than the timeout', async (t) => {
  const document = temporaryHome(t).inShared('x.json');
  lock.tryAcquire(document);
  const begin = performance.now();
  await assert.rejects(lock.acquire(document, 80), { name: 'StateLockError', lockPath: `${document}.lock` });
  assert.ok(performance.now() - begin >= 80);
});

test('without any patience the lock is still tried for once', async (t) => {
  const document = temporaryHome(t).inShared('x.json');
  await lock.acquire(document, 0);
  assert.equal(fs.existsSync(`${document}.lock`), true);
  await assert.rejects(lock.acquire(document, 0), { name: 'StateLockError' });
  lock.release(document);
});

test('a holder that belongs to another user is alive', (t) => {
  t.mock.method(process, 'kill', () => { throw Object.assign(new Error('not permitted'), { code: 'EPERM' }); });
  assert.equal(lock.isStale('4711', 0), false);
  assert.equal(lock.isStale('4711', 30_001), true);
});

test('a lock that another has taken since it was judged is not removed', (t) => {
  const document = temporaryHome(t).inShared('x.json');
  const file = `${document}.lock`;
  fs.writeFileSync(file, '4711');
  // The holder is asked after between the judgement and the removal.
  t.mock.method(process, 'kill', () => {
    fs.rmSync(file);
    fs.writeFileSync(file, String(process.ppid));
    throw Object.assign(new Error('no such process'), { code: 'ESRCH' });
  });
  assert.equal(lock.tryAcquire(document), false);
  assert.equal(fs.readFileSync(file, 'utf8'), String(process.ppid));
});

test('a body that fails releases the lock, and the failure reaches the caller', async (t) => {
  const document = temporaryHome(t).inShared('x.json');
  await assert.rejects(lock.withLock(document, () => { throw new Error('mine'); }), { message: 'mine' });
  assert.equal(fs.existsSync(`${document}.lock`), false);
});

test('a process that ends leaves no lock of its own behind, and lets one be that another has taken over', (t) => {
  const document = temporaryHome(t).inShared('x.json');
  const endHolding = (before) => spawnSync(process.execPath, ['--input-type=module', '-e', `
    import fs from 'node:fs';
    import { lockPath, tryAcquire } from ${JSON.stringify(new URL('../lib/stateLock.js', import.meta.url).href)};
    const document = process.argv[1];
    if (!tryAcquire(document)) process.exit(1);
    ${before}
    process.exit(7);`, document], { stdio: ['ignore', 'inherit', 'inherit'] }).status;
  assert.equal(endHolding(''), 7);
  assert.equal(fs.existsSync(`${document}.lock`), false);
  assert.equal(endHolding(`fs.writeFileSync(lockPath(document), '${process.pid}');`), 7);
  assert.equal(fs.readFileSync(`${document}.lock`, 'utf8'), String(process.pid));
});

test('increments of several processes all survive', async (t) => {
  const home = temporaryHome(t);
  const document = home.inShared('counter.json');
  fs.writeFileSync(document, '{"count": 0, "theirs": 1.0}');
  const program = `
    import { updateDocument } from ${JSON.stringify(new URL('../lib/sharedDocument.js', import.meta.url).href)};
    for (let i = 0; i < 40; i += 1) {
      await updateDocument(process.argv[1], (d) => d.set('count', d.get('count') + 1));
    }`;
  const children = [1, 2, 3].map(() => spawn(process.execPath, ['--input-type=module', '-e', program, document],
    { stdio: ['ignore', 'inherit', 'inherit'] }));
  const codes = await Promise.all(children.map(async (child) => (await once(child, 'exit'))[0]));
  assert.deepEqual(codes, [0, 0, 0]);
  assert.equal(fs.readFileSync(document, 'utf8'), '{\n  "count": 120,\n  "theirs": 1.0\n}');
  assert.deepEqual(fs.readdirSync(home.shared), ['counter.json']);
});

test('what one who was killed while taking a lock left behind is swept, and nothing else', (t) => {
  const { shared, inShared } = temporaryHome(t);
  const dead = deadPid();
  const names = [`state.json.lock.${dead}`, `now-playing.json.lock.${process.pid}`, `fresh.json.lock.${dead}`,
    `state.json.${dead}`, 'state.json.lock', 'state.json.lock.theirs', 'state.json.lock.0', 'state.json'];
  for (const name of names) {
    fs.writeFileSync(inShared(name), '');
    if (!name.startsWith('fresh')) age(inShared(name), 31);
  }
  lock.sweepLockRemains(shared);
  assert.deepEqual(fs.readdirSync(shared).sort(), names.slice(1).sort());
  lock.sweepLockRemains(`${shared}/none`);
});
