// The service and the daemon together: sessions go on after the service was started anew.

import assert from 'node:assert/strict';
import { randomUUID } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import { startDaemon } from '../../lib/daemon/daemonControl.js';
import { sendCommand } from '../../lib/serviceSocket.js';
import { SharedDocument } from '../../lib/sharedDocument.js';
import { daemonHome } from '../daemonProcess.js';
import { until } from '../home.js';
import { serviceLog, startService } from '../serviceProcess.js';

function addSession(home, cwd) {
  const id = randomUUID();
  const transcript = path.join(home.home, '.claude/projects', cwd.replaceAll('/', '-'), `${id}.jsonl`);
  fs.mkdirSync(path.dirname(transcript), { recursive: true });
  fs.writeFileSync(transcript, '{"type":"user","message":{"role":"user","content":"hi"}}\n');
  const say = () => fs.appendFileSync(transcript, '{"type":"user","message":{"role":"user","content":"go on"}}\n');
  return { id, cwd, transcript, say };
}

const rowsOf = (home) => SharedDocument.read(home.inShared('state.json')).list('sessions');
const offsetOf = (home, { id }) => rowsOf(home).find((row) => row.id === id)?.offset;
const tailersOf = (home) => serviceLog(home).filter(({ msg }) => msg.startsWith('native tailer started'));

async function isFollowed(home, session) {
  session.say();
  const { size } = fs.statSync(session.transcript);
  await until(() => offsetOf(home, session) === size, { what: 'a cursor at the end' });
}

for (const signal of ['SIGTERM', 'SIGKILL']) {
  test(`sessions are followed again after the service ended with ${signal}`, { timeout: 90_000 }, async (t) => {
    const home = daemonHome(t);
    const [busy, idle] = [addSession(home, '/work/busy'), addSession(home, '/work/idle')];
    const service = await startService(t, home);
    await startDaemon(home);
    for (const { id, cwd } of [busy, idle]) {
      await sendCommand('attach', { id, cwd }, { path: home.inShared('service.sock') });
    }
    await until(() => tailersOf(home).length === 2, { what: 'both tailers' });
    for (const session of [busy, idle]) await isFollowed(home, session);
    await service.end(signal);

    const hourAgo = Date.now() / 1000 - 3600;
    fs.utimesSync(idle.transcript, hourAgo, hourAgo);
    const next = await startService(t, home);
    await until(() => tailersOf(home).length === 3, { what: 'the tailer of the session in use' });
    await isFollowed(home, busy);
    assert.equal(tailersOf(home).length, 3);

    // The first line wakes the session; from then on it is followed.
    idle.say();
    await until(() => tailersOf(home).length === 4, { what: 'the tailer of the session that was idle' });
    await isFollowed(home, idle);
    assert.deepEqual(rowsOf(home).map(({ id }) => id), [busy.id, idle.id]);
    // Before its home goes.
    await next.end();
  });
}

test('the lone session in use is found and attached by itself', { timeout: 60_000 }, async (t) => {
  const home = daemonHome(t);
  const session = addSession(home, '/work/lone');
  session.say();
  const service = await startService(t, home);
  await startDaemon(home);
  await until(() => rowsOf(home).some(({ id }) => id === session.id), { limit: 20_000, what: 'the row' });
  await isFollowed(home, session);
  await service.end();
});
