import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import test from 'node:test';

import { silentLog } from '../lib/log.js';
import { ServiceWatch } from '../lib/daemon/serviceWatch.js';
import { patientAnswers } from '../lib/folderWatch.js';
import { updateDocument } from '../lib/sharedDocument.js';
import { FarFolder } from './farFolder.js';
import { HandClock } from './handClock.js';
import { temporaryHome, until } from './home.js';

/** A home with a watch whose clock stands still at the present, and a service that writes down what it is told. */
function stage(t) {
  const home = temporaryHome(t);
  const clock = new HandClock(Date.now());
  const far = new FarFolder(path.join(home.home, 'transcripts/far'));
  const transcripts = { answers: patientAnswers({ limit: 100 }), system: far.system };
  const watch = new ServiceWatch({ environment: home.environment, log: silentLog, clock, transcripts });
  t.after(() => far.answerAll());
  t.after(() => watch.stop());
  return { home, clock, far, watch, received: [] };
}

let processId = 1000;

/** Where `isSlow` is set it takes connections and reads nothing. */
async function startService(t, all) {
  const { home, received } = all;
  const socket = home.inShared('service.sock');
  fs.rmSync(socket, { force: true });
  fs.writeFileSync(home.inShared('sonra.lock'), `${processId += 1}\n`);
  const server = net.createServer((client) => {
    t.after(() => client.destroy());
    if (all.isSlow) return;
    let text = '';
    client.on('data', (bytes) => { text += bytes; });
    client.on('error', () => {});
    client.on('close', () => received.push(...text.split('\n').filter(Boolean).map((line) => JSON.parse(line))));
  }).listen(socket);
  t.after(() => server.close());
  await once(server, 'listening');
  return server;
}

/** A row of `sessions` whose transcript was written so many minutes ago. */
function row(home, id, minutes, more = {}) {
  const transcript = path.join(home.home, 'transcripts', id, `${id}.jsonl`);
  fs.mkdirSync(path.dirname(transcript), { recursive: true });
  fs.writeFileSync(transcript, '{}\n');
  age(transcript, minutes);
  return { id, cwd: '/proj', transcript, source: 'codex', offset: 3, attachedAt: 1, ...more };
}

function age(file, minutes) {
  const then = Date.now() / 1000 - minutes * 60;
  fs.utimesSync(file, then, then);
}

const setSessions = (home, sessions) =>
  updateDocument(home.inShared('state.json'), (document) => document.set('sessions', sessions));

const ids = (received) => received.map(({ id }) => id);

test('rows in use are attached again as they stand when the service appears', async (t) => {
  const all = stage(t);
  const { home, watch, received } = all;
  const fresh = row(home, 'fresh', 14, { branch: 'main', title: 'A title' });
  await setSessions(home, [fresh, row(home, 'stale', 16), { id: 'no transcript', cwd: '/x' }, 'no row', { ...fresh, id: 7 }]);
  watch.start();
  await startService(t, all);
  await until(() => received.length > 0);
  assert.deepEqual(received, [{ cmd: 'attach', proto: 1, resume: true, id: 'fresh', cwd: '/proj',
    transcript: fresh.transcript, source: 'codex', branch: 'main', title: 'A title' }]);
});

test('a service that runs already is served at the start, and the next one again', async (t) => {
  const all = stage(t);
  const { home, watch, received } = all;
  await setSessions(home, [row(home, 'a', 1)]);
  const server = await startService(t, all);
  watch.start();
  await until(() => received.length === 1);
  server.close();
  await startService(t, all);
  await until(() => received.length === 2);
  assert.deepEqual(ids(received), ['a', 'a']);
});

test('other events of the folder do not serve a service twice', async (t) => {
  const all = stage(t);
  const { home, watch, received } = all;
  await setSessions(home, [row(home, 'a', 1)]);
  await startService(t, all);
  watch.start();
  await until(() => received.length === 1);
  const lock = home.inShared('sonra.lock');
  fs.writeFileSync(lock, fs.readFileSync(lock));
  // As the service itself does, a moment after it listens; it is seen before anything else happens.
  const looks = t.mock.method(fs, 'statSync').mock;
  fs.chmodSync(home.inShared('service.sock'), 0o600);
  await until(() => looks.calls.some(({ arguments: [file] }) => file === home.inShared('service.sock')));
  looks.restore();
  await setSessions(home, [row(home, 'a', 1), row(home, 'b', 1)]);
  // Another run of the service is the sign that all before it was seen.
  await startService(t, all);
  await until(() => received.length >= 3);
  assert.deepEqual(ids(received), ['a', 'a', 'b']);
});

test('a stale row is resumed once, when its transcript is written again', async (t) => {
  const all = stage(t);
  const { home, watch, received } = all;
  const stale = row(home, 'stale', 60);
  await setSessions(home, [stale, row(home, 'other', 60), row(home, 'fresh', 1)]);
  await startService(t, all);
  watch.start();
  await until(() => received.length === 1);
  fs.appendFileSync(stale.transcript, '{}\n');
  await until(() => received.length === 2);
  fs.appendFileSync(stale.transcript, '{}\n');
  fs.appendFileSync(path.join(home.home, 'transcripts/other/other.jsonl'), '{}\n');
  await until(() => received.length === 3);
  assert.deepEqual(ids(received), ['fresh', 'stale', 'other']);
  assert.ok(received.every(({ resume }) => resume));
});

test('a stale row that the service was too slow to take is resumed when it takes it', async (t) => {
  const all = stage(t);
  const { home, clock, watch, received } = all;
  const stale = row(home, 'stale', 60);
  await setSessions(home, [stale, row(home, 'fresh', 1)]);
  await startService(t, all);
  watch.start();
  await until(() => received.length === 1);
  const delays = [];
  const setTimeout = clock.setTimeout.bind(clock);
  clock.setTimeout = (callback, delay) => { delays.push(delay); return setTimeout(callback, delay); };
  all.isSlow = true;
  fs.appendFileSync(stale.transcript, '{}\n');
  await until(() => delays.length === 1);
  await clock.pass(249);
  await clock.pass(1);
  await until(() => delays.length === 2);
  assert.deepEqual(delays, [250, 500]);
  all.isSlow = false;
  await clock.pass(500);
  await until(() => received.length === 2);
  assert.deepEqual(ids(received), ['fresh', 'stale']);
});

test('a stale row that was detached meanwhile does not come back', async (t) => {
  const all = stage(t);
  const { home, watch, received } = all;
  const [gone, kept] = [row(home, 'gone', 60), row(home, 'kept', 60)];
  await setSessions(home, [gone, kept, row(home, 'fresh', 1)]);
  await startService(t, all);
  watch.start();
  await until(() => received.length === 1);
  await setSessions(home, [kept]);
  fs.appendFileSync(gone.transcript, '{}\n');
  fs.appendFileSync(kept.transcript, '{}\n');
  await until(() => received.length === 2);
  assert.deepEqual(ids(received), ['fresh', 'kept']);
});

test('a session in a store counts as written when the log before the store is', async (t) => {
  const all = stage(t);
  const { home, watch, received } = all;
  const store = path.join(home.home, 'opencode.db');
  fs.writeFileSync(store, '');
  age(store, 60);
  const inStore = { id: 's', cwd: '/p', transcript: `${store}#ses_1`, source: 'opencode' };
  await setSessions(home, [inStore, row(home, 'fresh', 1)]);
  await startService(t, all);
  watch.start();
  await until(() => received.length === 1);
  fs.writeFileSync(`${store}-wal`, 'x');
  await until(() => received.length === 2);
  assert.deepEqual(received[1], { cmd: 'attach', proto: 1, resume: true, ...inStore });
});

test('a session whose transcript is a folder is resumed by a new file in it', async (t) => {
  const all = stage(t);
  const { home, watch, received } = all;
  const folder = path.join(home.home, 'message/ses_1');
  fs.mkdirSync(folder, { recursive: true });
  age(folder, 60);
  await setSessions(home, [{ id: 's', cwd: '/p', transcript: folder, source: 'opencode' }, row(home, 'fresh', 1)]);
  await startService(t, all);
  watch.start();
  await until(() => received.length === 1);
  fs.writeFileSync(path.join(folder, 'msg_1.json'), '{}');
  await until(() => received.length === 2);
});

for (const [minutes, what] of [[1, 'in use'], [60, 'written to then']]) {
  test(`a transcript that gives no answer keeps no other session, and is resumed when it does and is ${what}`, async (t) => {
    const all = stage(t);
    const { home, clock, far, watch, received } = all;
    const [away, near] = [row(home, 'far', minutes), row(home, 'near', 60)];
    await setSessions(home, [away, near, row(home, 'fresh', 1)]);
    await startService(t, all);
    watch.start();
    await until(() => received.length === 1);
    fs.appendFileSync(near.transcript, '{}\n');
    await until(() => received.length === 2);
    await clock.pass(60_000);
    assert.equal(far.asked, 1);
    far.answerAll();
    if (minutes === 60) fs.appendFileSync(away.transcript, '{}\n');
    await until(async () => {
      await clock.pass(15_000);
      return received.length === 3;
    });
    assert.deepEqual(ids(received), ['fresh', 'near', 'far']);
  });
}

test('a transcript that is not there yet is waited for', async (t) => {
  const all = stage(t);
  const { home, clock, watch, received } = all;
  const transcript = path.join(home.home, 'later/l.jsonl');
  await setSessions(home, [{ id: 'later', cwd: '/p', transcript, source: 'pi' }, row(home, 'fresh', 1)]);
  await startService(t, all);
  watch.start();
  await until(() => received.length === 1);
  fs.mkdirSync(path.dirname(transcript));
  fs.writeFileSync(transcript, '{}\n');
  await clock.pass(1000);
  await until(() => received.length === 2);
  assert.deepEqual(ids(received), ['fresh', 'later']);
});

test('a socket that nobody listens at is tried again with growing patience', async (t) => {
  const all = stage(t);
  const { home, clock, watch, received } = all;
  await setSessions(home, [row(home, 'a', 1)]);
  const socket = home.inShared('service.sock');
  const dead = net.createServer().listen(socket);
  await once(dead, 'listening');
  fs.linkSync(socket, home.inShared('kept'));
  dead.close();
  fs.renameSync(home.inShared('kept'), socket);
  let tries = 0;
  const setTimeout = clock.setTimeout.bind(clock);
  const delays = [];
  clock.setTimeout = (callback, delay) => { tries += 1; delays.push(delay); return setTimeout(callback, delay); };
  watch.start();
  for (let expected = 1; expected <= 8; expected += 1) {
    await until(() => tries === expected);
    await clock.pass(delays.at(-1));
  }
  assert.deepEqual(delays.slice(0, 8), [250, 500, 1000, 2000, 4000, 8000, 15_000, 15_000]);
  await startService(t, all);
  await until(() => received.length === 1);
});
