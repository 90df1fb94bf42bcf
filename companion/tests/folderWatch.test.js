import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { FolderWatch, patientAnswers } from '../lib/folderWatch.js';
import { FarFolder } from './farFolder.js';
import { HandClock } from './handClock.js';
import { temporaryHome, until } from './home.js';

test('a folder watch tells of the files that it was given, and of no others', async (t) => {
  const { home } = temporaryHome(t);
  const events = [];
  const watch = new FolderWatch(home, ['a'], (name) => events.push(name));
  const other = new FolderWatch(home, ['z'], () => events.push('other'));
  t.after(() => { watch.stop(); other.stop(); });
  for (const each of [watch, other]) await each.start();
  events.length = 0;
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
  await watch.start();
  assert.deepEqual([events, watch.isWatching], [1, false]);
  await clock.pass(1000);
  await until(() => events === 2);
  assert.equal(watch.isWatching, false);
  fs.mkdirSync(`${home}/new`);
  await clock.pass(1999);
  assert.deepEqual([events, watch.isWatching], [2, false]);
  await clock.pass(1);
  await until(() => watch.isWatching);
  fs.writeFileSync(`${home}/new/a`, '');
  await until(() => events > 3);
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
  await watch.start();
  fs.renameSync(`${home}/above`, `${home}/away`);
  fs.mkdirSync(folder, { recursive: true });
  await watch.check();
  names.length = 0;
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
  await watch.start();
  names.length = 0;
  const watched = t.mock.method(fs, 'watch').mock;
  await watch.check();
  assert.deepEqual([watched.callCount(), names], [0, []]);
  fs.writeFileSync(`${home}/a`, '');
  await until(() => names.length > 0);
});

test('a folder that gives no answer holds nobody up, and is watched once it gives one', async (t) => {
  const { home } = temporaryHome(t);
  const clock = new HandClock();
  const far = new FarFolder(home);
  const events = [];
  const answers = patientAnswers({ limit: 20 });
  const watch = new FolderWatch(home, undefined, (name) => events.push(name), clock, { answers, system: far.system });
  t.after(() => { watch.stop(); far.answerAll(); });
  await watch.start();
  for (const delay of [1000, 2000, 4000, 8000, 15_000, 15_000]) {
    const before = events.length;
    await clock.pass(delay);
    await until(() => events.length > before);
  }
  assert.deepEqual([far.asked, watch.isWatching, new Set(events)], [1, false, new Set([''])]);
  far.answerAll();
  await until(() => !answers.isSilent(home));
  await clock.pass(15_000);
  await until(() => watch.isWatching);
  assert.equal(far.asked, 2);
});

test('a folder that gives no answer to a check stays watched', async (t) => {
  const { home } = temporaryHome(t);
  const far = new FarFolder(home);
  const answers = patientAnswers({ limit: 20 });
  const watch = new FolderWatch(home, undefined, () => {}, new HandClock(), { answers, system: far.system });
  t.after(() => { watch.stop(); far.answerAll(); });
  far.isAway = false;
  await watch.start();
  far.isAway = true;
  await watch.check();
  assert.deepEqual([far.asked, watch.isWatching], [2, true]);
});

test('one that was stopped while its folder was asked begins no watch', async (t) => {
  const { home } = temporaryHome(t);
  const events = [];
  const watch = new FolderWatch(home, undefined, (name) => events.push(name), new HandClock());
  const start = watch.start();
  watch.stop();
  await start;
  assert.deepEqual([watch.isWatching, events], [false, []]);
});
