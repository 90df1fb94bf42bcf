import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import test from 'node:test';

import { isServiceRunning, sendCommand, sendLines, serviceState } from '../lib/serviceSocket.js';
import { temporaryHome } from './home.js';

async function listener(t, path, { takes = true } = {}) {
  const received = [];
  const server = net.createServer({ allowHalfOpen: !takes }, (socket) => {
    if (takes) socket.on('data', (bytes) => received.push(bytes.toString()));
    t.after(() => socket.destroy());
  }).listen(path);
  await once(server, 'listening');
  t.after(() => server.close());
  return received;
}

test('a command arrives as one line', async (t) => {
  const path = temporaryHome(t).inShared('s.sock');
  const received = await listener(t, path);
  await sendCommand('scrub', { index: 3 }, { path });
  assert.equal(received.join(''), '{"index":3,"proto":1,"cmd":"scrub"}\n');
});

test('arguments cannot name another command', async (t) => {
  const path = temporaryHome(t).inShared('s.sock');
  const received = await listener(t, path);
  await sendCommand('pause', { cmd: 'quit', proto: 9 }, { path });
  assert.deepEqual(JSON.parse(received.join('')), { cmd: 'pause', proto: 1 });
});

test('where nobody listens the error says so', async (t) => {
  const path = temporaryHome(t).inShared('s.sock');
  await assert.rejects(sendCommand('pause', {}, { path }), { name: 'ServiceNotRunning' });
  assert.equal(await isServiceRunning({ path }), false);
  assert.equal(await serviceState({ path }), 'absent');
});

test('a service that does not take the line is given up', async (t) => {
  const path = temporaryHome(t).inShared('s.sock');
  await listener(t, path, { takes: false });
  await assert.rejects(sendLines(['x'.repeat(5_000_000)], { path, limit: 100 }), {
    name: 'ServiceSilent', message: "The Sonra service doesn't answer.",
  });
  assert.equal(await serviceState({ path, limit: 50 }), 'silent');
  assert.equal(await isServiceRunning({ path, limit: 50 }), false);
});

test('one that was held up itself does not take that for silence', async (t) => {
  const path = temporaryHome(t).inShared('s.sock');
  const received = await listener(t, path);
  const sending = sendCommand('pause', {}, { path, limit: 200 });
  // Longer than it would wait, and what has come meanwhile is looked at after the clock.
  setImmediate(() => Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, 600));
  await sending;
  assert.equal(received.join(''), '{"proto":1,"cmd":"pause"}\n');
});

test('the file of a service that has died is no service', async (t) => {
  const home = temporaryHome(t);
  const path = home.inShared('s.sock');
  const server = net.createServer().listen(home.inShared('t.sock'));
  await once(server, 'listening');
  fs.renameSync(home.inShared('t.sock'), path);
  server.close();
  await once(server, 'close');
  assert.ok(fs.existsSync(path));
  assert.equal(await serviceState({ path }), 'absent');
});
