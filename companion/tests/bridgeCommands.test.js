import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import test from 'node:test';
import { setTimeout as pause } from 'node:timers/promises';

import { Turns } from '../lib/bridge/turns.js';
import { BridgeHome } from './bridgeHome.js';
import { until } from './home.js';
import { rawRequest } from './rawHttp.js';
import { countAwake } from './wakefulness.js';

/** A connection of the device's own, on which it sends without waiting for answers. */
async function openLine(t, home) {
  const socket = net.connect(home.bridge.port, '127.0.0.1');
  t.after(() => socket.destroy());
  const line = { text: '', ended: false };
  socket.setEncoding('latin1').on('data', (piece) => { line.text += piece; });
  socket.on('error', () => {}).on('close', () => { line.ended = true; });
  await once(socket, 'connect');
  line.send = (headers, cmd) => {
    const body = JSON.stringify({ cmd });
    socket.write(rawRequest(home.bridge.port, {
      method: 'POST',
      target: '/api/command',
      headers: { ...headers, 'Content-Type': 'application/json', 'Content-Length': body.length, Connection: 'keep-alive' },
      body,
    }));
  };
  line.answers = (status = '') => line.text.split(`HTTP/1.1 ${status}`).length - 1;
  line.end = () => socket.destroy();
  return line;
}

test('turns: one after another for each device, whatever becomes of them', async () => {
  const turns = new Turns();
  const done = [];
  const gates = [];
  const work = (name) => () => new Promise((resolve, reject) => {
    done.push(name);
    gates.push({ resolve: () => resolve(name), reject: () => reject(new Error(name)) });
  });
  const first = turns.take('a', work('a1'));
  const second = turns.take('a', work('a2'));
  const third = turns.take('a', work('a3'));
  const other = turns.take('b', work('b1'));
  await pause(0);
  assert.deepEqual(done, ['a1', 'b1']);
  gates[0].reject();
  await assert.rejects(first, /a1/);
  await pause(0);
  assert.deepEqual(done, ['a1', 'b1', 'a2']);
  gates[2].resolve();
  assert.equal(await second, 'a2');
  await pause(0);
  gates[3].resolve();
  gates[1].resolve();
  assert.deepEqual([await third, await other], ['a3', 'b1']);
  const fourth = turns.take('a', work('a4'));
  await pause(0);
  gates[4].resolve();
  assert.equal(await fourth, 'a4');
});

test('what was asked last holds, though all had to wait for the lock', async (t) => {
  const home = await BridgeHome.start(t);
  await home.listen();
  const headers = await home.pair();
  const line = await openLine(t, home);
  const lock = home.inShared('state.json.lock');
  // Each waits with a rhythm of its own: without an order the lock goes to whoever looks next when it is free.
  for (let round = 0; round < 8; round += 1) {
    const cmds = round % 2 ? ['mute', 'unmute'] : ['unmute', 'mute'];
    fs.writeFileSync(lock, String(process.pid));
    line.send(headers, cmds[0]);
    await pause(20);
    line.send(headers, cmds[1]);
    await pause(60 + 3 * round);
    fs.rmSync(lock);
    await until(() => line.answers(200) === 2 * round + 2, { what: `the answers of round ${round}` });
    assert.equal(home.read('state.json').muted, cmds[1] === 'mute', `round ${round}`);
  }
});

test('a command behind one that waits, waits too', async (t) => {
  const home = await BridgeHome.start(t);
  const commands = await home.listen();
  const [headers, others] = [await home.pair(), await home.pair('Another')];
  const [line, other] = [await openLine(t, home), await openLine(t, home)];
  const lock = home.inShared('state.json.lock');
  fs.writeFileSync(lock, String(process.pid));
  line.send(headers, 'mute');
  line.send(headers, 'pause');
  other.send(others, 'skip');
  await until(() => commands.length > 0);
  await pause(200);
  assert.deepEqual(commands.map(({ cmd }) => cmd), ['skip']);
  fs.rmSync(lock);
  await until(() => commands.length === 2);
  assert.equal(home.read('state.json').muted, true, 'first what was asked first');
});

test('a device that is removed while its command waits has no say any more', async (t) => {
  const home = await BridgeHome.start(t);
  const commands = await home.listen();
  const headers = await home.pair();
  const line = await openLine(t, home);
  const lock = home.inShared('state.json.lock');
  fs.writeFileSync(lock, String(process.pid));
  line.send(headers, 'mute');
  line.send(headers, 'pause');
  // Both have come in, and the first waits for the lock.
  await pause(200);
  home.write('bridge-tokens.json', { tokens: [] });
  await until(() => line.ended, { what: 'the end of the connection' });
  fs.rmSync(lock);
  await pause(300);
  assert.equal(home.read('state.json').muted, undefined);
  assert.deepEqual(commands, []);
});

test('a device of which nobody knows any more whether it is paired has none either', async (t) => {
  const home = await BridgeHome.start(t);
  await home.listen();
  const headers = await home.pair();
  const line = await openLine(t, home);
  const lock = home.inShared('state.json.lock');
  fs.writeFileSync(lock, String(process.pid));
  line.send(headers, 'mute');
  await pause(200);
  home.write('bridge-tokens.json', '{"tokens":[');
  fs.rmSync(lock);
  await until(() => line.answers(503) === 1, { what: 'the answer' });
  assert.equal(home.read('state.json').muted, undefined);
});

test('what its sender has given up isn’t done later', async (t) => {
  const home = await BridgeHome.start(t);
  const commands = await home.listen();
  const headers = await home.pair();
  const line = await openLine(t, home);
  const lock = home.inShared('state.json.lock');
  fs.writeFileSync(lock, String(process.pid));
  line.send(headers, 'mute');
  line.send(headers, 'pause');
  await pause(200);
  line.end();
  await pause(100);
  fs.rmSync(lock);
  await pause(300);
  assert.equal(home.read('state.json').muted, undefined);
  assert.deepEqual(commands, []);
});

test('a connection of a removed device ends, though nothing goes on there', async (t) => {
  const home = await BridgeHome.start(t);
  await home.listen();
  const headers = await home.pair();
  const line = await openLine(t, home);
  line.send(headers, 'pause');
  await until(() => line.answers(200) === 1);
  home.write('bridge-tokens.json', { tokens: [] });
  let sent = 1;
  await until(() => {
    // It would end by itself if it rested.
    if (!line.ended && line.answers() === sent) {
      line.send(headers, 'pause');
      sent += 1;
    }
    return line.ended;
  }, { what: 'the end' });
});

test('a device that cannot be removed is told so in time, and stays paired', { timeout: 60_000 }, async (t) => {
  const home = await BridgeHome.start(t);
  await home.listen();
  const headers = await home.pair();
  const lock = home.inShared('bridge-tokens.json.lock');
  fs.writeFileSync(lock, String(process.pid));
  const awake = countAwake(t);
  const answer = await home.post('/api/unpair', {}, headers);
  assert.equal(answer.status, 500);
  assert.ok(awake() < 8000, 'before the page gives up');
  fs.rmSync(lock);
  assert.equal(home.read('bridge-tokens.json').tokens.length, 1);
  assert.equal((await home.command(headers, 'pause')).status, 200);
});
