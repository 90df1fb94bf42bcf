import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { askDaemon } from '../lib/daemon/channel.js';
import { claimInstance } from '../lib/daemon/instance.js';
import { temporaryHome, until } from './home.js';

function claim(home, answer, limit) {
  return claimInstance({ environment: home.environment, answer, limit });
}

test('one that is about to end is waited for, and its place is taken', async (t) => {
  const home = temporaryHome(t);
  let asked = 0;
  const first = await claim(home, () => { asked += 1; return { stopping: true }; });
  const claiming = claim(home, () => ({ name: 'second' }));
  await until(() => asked > 1);
  await first.release();
  const second = await claiming;
  t.after(() => second.release());
  assert.deepEqual(await askDaemon('status', home), { name: 'second' });
});

test('one that never ends is left alone after the limit', async (t) => {
  const home = temporaryHome(t);
  const first = await claim(home, () => ({ stopping: true }));
  t.after(() => first.release());
  assert.equal(await claim(home, () => ({}), 100), undefined);
  assert.equal(first.isHeld(), true);
});

test('one that runs keeps its place', async (t) => {
  const home = temporaryHome(t);
  const first = await claim(home, () => ({}));
  t.after(() => first.release());
  assert.equal(await claim(home, () => ({})), undefined);
  assert.equal(first.isHeld(), true);
});

test('release takes the files away, but not those of a successor', async (t) => {
  const home = temporaryHome(t);
  const first = await claim(home, () => ({}));
  fs.renameSync(home.inShared('daemon.sock'), home.inShared('away'));
  const second = await claim(home, () => ({ name: 'second' }));
  t.after(() => second.release());
  assert.equal(first.isHeld(), false);
  await first.release();
  assert.deepEqual(await askDaemon('status', home), { name: 'second' });
  assert.deepEqual(fs.readdirSync(home.shared).sort(), ['away', 'daemon.pid', 'daemon.sock']);
});

test('the loss of the socket is noticed once', async (t) => {
  const home = temporaryHome(t);
  const instance = await claim(home, () => ({}));
  let lost = 0;
  instance.watch(() => { lost += 1; });
  fs.writeFileSync(home.inShared('other'), '');
  fs.rmSync(home.inShared('daemon.pid'));
  await until(() => fs.existsSync(home.inShared('daemon.pid')));
  assert.equal(lost, 0);
  fs.rmSync(home.inShared('daemon.sock'));
  await until(() => lost > 0);
  fs.writeFileSync(home.inShared('daemon.sock'), '');
  await instance.release();
  assert.equal(lost, 1);
});

test('a loss from before the watch began is noticed', async (t) => {
  const home = temporaryHome(t);
  const instance = await claim(home, () => ({}));
  fs.rmSync(home.shared, { recursive: true });
  fs.mkdirSync(home.shared);
  let lost = 0;
  instance.watch(() => { lost += 1; });
  assert.equal(lost, 1);
  await instance.release();
});
