import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { FolderWatch } from '../lib/folderWatch.js';
import { HandClock } from './handClock.js';
import { temporaryHome, until } from './home.js';

test('a folder watch tells of the files that it was given, and of no others', async (t) => {
  const { home } = temporaryHome(t);
  const events = [];
  const watch = new FolderWatch(home, ['a'], (name) => events.push(name));
  const other = new FolderWatch(home, ['z'], () => events.push('other'));
  for (const each of [watch, other]) each.start();
  t.after(() => { watch.stop(); other.stop(); });
  fs.writeFileSync(`${home}/b`, '');
  fs.writeFileSync(`${home}/a`, '');
  await until(() => events.length > 0);
  assert.deepEqual(new Set(events), new Set(['a']));
});

test('a folder that is not there is looked for with growing patience, and watched once it is', async (t) => {
  const { home } = temporaryHome(t);
  const clock = new HandClock();
  let events = 0;
  const watch = new FolderWatch(`${home}/new`, ['a'], () => { events += 1; }, clock);
  t.after(() => watch.stop());
  watch.start();
  assert.equal(watch.isWatching, false);
  await clock.pass(1000);
  assert.deepEqual([events, watch.isWatching], [1, false]);
  fs.mkdirSync(`${home}/new`);
  await clock.pass(1999);
  assert.equal(watch.isWatching, false);
  await clock.pass(1);
  assert.equal(watch.isWatching, true);
  fs.writeFileSync(`${home}/new/a`, '');
  await until(() => events > 2);
  fs.rmSync(`${home}/new`, { recursive: true });
  await until(() => !watch.isWatching);
});

test('a folder below one that was replaced is followed after a check, and only then', async (t) => {
  const { home } = temporaryHome(t);
  const folder = `${home}/above/watched`;
  fs.mkdirSync(folder, { recursive: true });
  const names = [];
  const watch = new FolderWatch(folder, undefined, (name) => names.push(name), new HandClock());
  t.after(() => watch.stop());
  watch.start();
  fs.renameSync(`${home}/above`, `${home}/away`);
  fs.mkdirSync(folder, { recursive: true });
  watch.check();
  fs.writeFileSync(`${home}/away/watched/old`, '');
  fs.writeFileSync(`${folder}/new`, '');
  await until(() => names.length > 0);
  assert.deepEqual(new Set(names), new Set(['new']));
});

test('a check of what is watched already changes nothing', async (t) => {
  const { home } = temporaryHome(t);
  const names = [];
  const watch = new FolderWatch(home, ['a'], (name) => names.push(name), new HandClock());
  t.after(() => watch.stop());
  watch.start();
  fs.writeFileSync(`${home}/a`, '');
  // What the kernel has told by now would be lost with the watch.
  watch.check();
  await until(() => names.length > 0);
});
