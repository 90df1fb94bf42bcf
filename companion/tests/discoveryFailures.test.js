// What the search for sessions does where the system, or another program, doesn't do what it should.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import fsPromises, { readdir, stat } from 'node:fs/promises';
import { syncBuiltinESMExports } from 'node:module';
import path from 'node:path';
import test from 'node:test';

import { silenceInterval } from '../lib/answerLimit.js';
import { busyInterval } from '../lib/discovery/discovery.js';
import { Folders, fullLookInterval, pollInterval } from '../lib/discovery/folders.js';
import { Scanner } from '../lib/discovery/scanner.js';
import { TranscriptReader } from '../lib/discovery/transcriptReader.js';
import { silentLog } from '../lib/log.js';
import { lines, now, put } from './agents.js';
import { begin, change, listed, recordingLog, state } from './discoveryRun.js';
import { FarFolder } from './farFolder.js';
import { temporaryHome, until } from './home.js';

const prompt = (text) => ({ type: 'user', cwd: '/work/app', message: { content: text } });
const place = '.claude/projects/-work-app';
const ids = (home) => listed(home).map(({ sessionId }) => sessionId);
const failure = (code) => Object.assign(new Error(code), { code });

test('a lost list is written once the lock can be had, however often it could not', async (t) => {
  const home = temporaryHome(t);
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const { clock, log } = begin(t, home);
  await clock.ring();
  const lock = home.inShared('state.json.lock');
  fs.writeFileSync(lock, String(process.ppid));
  fs.writeFileSync(home.inShared('state.json'), '{"muted":true}');
  for (let i = 0; i < 2; i += 1) await clock.ring();
  assert.deepEqual(log.lines.map(([level, message]) => `${level} ${message}`),
    Array(2).fill('error the list of sessions could not be written'));
  fs.rmSync(lock);
  await clock.ring();
  assert.deepEqual([ids(home), state(home).muted], [['a'], true]);
});

test('a look that failed is told as such, and is made up for soon', async (t) => {
  const home = temporaryHome(t);
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const { clock, log } = begin(t, home);
  const scan = t.mock.method(Scanner.prototype, 'scan', () => Promise.reject(new Error('no')));
  await clock.ring();
  assert.deepEqual(log.lines.map(([level, message]) => `${level} ${message}`), ['error sessions could not be looked for']);
  assert.equal(clock.wait <= busyInterval, true);
  scan.mock.restore();
  await clock.ring();
  assert.deepEqual(ids(home), ['a']);
});

/** A home with a session, and an aider's far away, which has answered once. */
async function beginWithFarFolder(t, answerLimit = 100) {
  const home = temporaryHome(t);
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const file = put(home, 'far/.aider.chat.history.md', '#### Ask\n\nTold\n', { age: 100 });
  const far = new FarFolder(path.dirname(file));
  t.after(() => far.answerAll());
  far.isAway = false;
  const environment = { ...home.environment, SONRA_AIDER_FOLDERS: path.dirname(file) };
  const run = begin(t, home, { environment, folders: { system: far.system, answerLimit } });
  await run.clock.ring();
  assert.deepEqual(listed(home).map(({ source }) => source), ['claude-code', 'aider']);
  return { home, far, file, ...run };
}

test('a folder that gives no answer any more holds nobody up, and is not asked again meanwhile', async (t) => {
  const { home, far, clock } = await beginWithFarFolder(t);
  far.isAway = true;
  // It is at rest: that folder is all that is asked.
  await clock.ring();
  const { asked } = far;
  await change(clock, () => put(home, `${place}/b.jsonl`, lines(prompt('q')), { age: 1 }));
  await clock.ring();
  assert.deepEqual(ids(home), ['b', 'a']);
  assert.equal(far.asked, asked);
});

test('the end does not wait for a folder that gives no answer', async (t) => {
  const { far, clock, discovery } = await beginWithFarFolder(t, 60_000);
  far.isAway = true;
  const before = far.asked;
  const { timer } = clock;
  clock.time = timer.at;
  timer.callback();
  await until(() => far.asked > before);
  const begun = performance.now();
  await discovery.stop();
  assert.ok(performance.now() - begun < 30_000);
});

test('a transcript that can be asked about and not be read holds no other up, and is read once it can be', async (t) => {
  const home = temporaryHome(t);
  const [far] = ['-far/f', '-near/n'].map((name) => put(home, `.claude/projects/${name}.jsonl`, lines(prompt(name))));
  const { clock } = begin(t, home, { folders: { answerLimit: 50 } });
  let answer;
  const { open } = fsPromises;
  const opened = t.mock.method(fsPromises, 'open', async (file, ...rest) => {
    if (file === far) await new Promise((resolve) => { answer = resolve; });
    return open(file, ...rest);
  });
  syncBuiltinESMExports();
  await clock.ring();
  assert.deepEqual(ids(home), ['n']);
  opened.mock.restore();
  syncBuiltinESMExports();
  answer();
  clock.time += silenceInterval;
  await until(async () => {
    await clock.ring();
    return ids(home).includes('f');
  });
});

for (const code of ['EMFILE', 'EIO']) {
  test(`a row stays where ${code} keeps its file, or its folder, from being looked at, and is looked at again soon`, async (t) => {
    const home = temporaryHome(t);
    const file = put(home, `${place}/a.jsonl`, lines(prompt('p')));
    const failing = new Set();
    const guard = (ask) => (target, ...rest) => (failing.has(target) ? Promise.reject(failure(code)) : ask(target, ...rest));
    const { clock } = begin(t, home, { folders: { system: { stat: guard(stat), readdir: guard(readdir) } } });
    await clock.ring();
    for (const [target, aiTitle] of [[file, 'First'], [path.dirname(file), 'Later']]) {
      failing.add(target);
      // The system says that it has forgotten what happened.
      await change(clock, () => put(home, `${place}/a.jsonl`, lines(prompt('p'), { type: 'ai-title', aiTitle })));
      clock.time += fullLookInterval;
      await clock.ring();
      assert.deepEqual(ids(home), ['a'], target);
      assert.equal(clock.wait <= busyInterval, true);
      failing.clear();
      await clock.ring();
      assert.equal(listed(home)[0].title, aiTitle);
    }
  });
}

test('a row stays where its transcript cannot be read just now, and is read again soon, but not for ever', async (t) => {
  const home = temporaryHome(t);
  const file = put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const { clock } = begin(t, home);
  await clock.ring();
  const read = t.mock.method(TranscriptReader.prototype, 'read', () => Promise.reject(failure('EMFILE')));
  await change(clock, () => fs.appendFileSync(file, lines({ type: 'ai-title', aiTitle: 'New' })));
  // By then the new time alone would be written, and all be at rest.
  for (let i = 0; i < 9; i += 1) await clock.ring();
  assert.deepEqual([ids(home), clock.wait <= busyInterval], [['a'], true]);
  for (let i = 0; i < 20; i += 1) await clock.ring();
  assert.deepEqual([ids(home), clock.wait > busyInterval], [['a'], true]);
  read.mock.restore();
  await until(async () => {
    await clock.ring();
    return listed(home)[0].title === 'New';
  });
});

/** Folders of which each look is made by hand. */
function watchedFolders(t) {
  const home = temporaryHome(t);
  for (const name of ['a', 'b']) put(home, `root/${name}/file`, '');
  const log = recordingLog();
  const stage = { time: now, log };
  const folders = new Folders({ log, now: () => stage.time });
  t.after(() => folders.close());
  stage.folders = folders;
  stage.look = async (...names) => {
    folders.startOver();
    for (const name of names) await folders.list(path.join(home.home, 'root', name));
    folders.forgetOthers();
    return folders.watched;
  };
  return stage;
}

test('folders are watched again a while after nothing more could be', async (t) => {
  const stage = watchedFolders(t);
  const watch = t.mock.method(fs, 'watch', () => { throw failure('ENOSPC'); });
  assert.equal(await stage.look('a', 'b'), 0);
  watch.mock.restore();
  stage.time += pollInterval;
  assert.equal(await stage.look('a', 'b'), 0);
  stage.time = now + fullLookInterval;
  assert.equal(await stage.look('a', 'b'), 2);
  assert.equal(stage.log.lines.length, 1);
});

test('folders are watched when others are not any more', async (t) => {
  const stage = watchedFolders(t);
  assert.equal(await stage.look('a'), 1);
  const watch = t.mock.method(fs, 'watch', () => { throw failure('ENOSPC'); });
  assert.equal(await stage.look('a', 'b'), 1);
  watch.mock.restore();
  await stage.look('b');
  stage.time += pollInterval;
  assert.equal(await stage.look('b'), 1);
});

test('a folder whose watch has failed is watched again', async (t) => {
  const stage = watchedFolders(t);
  const watchers = [];
  const { watch } = fs;
  const mocked = t.mock.method(fs, 'watch', (...words) => {
    watchers.push(watch(...words));
    return watchers.at(-1);
  });
  assert.equal(await stage.look('a'), 1);
  watchers[0].emit('error', failure('EIO'));
  assert.equal(await stage.look('a'), 0);
  stage.time += pollInterval;
  assert.equal(await stage.look('a'), 1);
  mocked.mock.restore();
});
