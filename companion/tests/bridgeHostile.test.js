import assert from 'node:assert/strict';
import { EventEmitter } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import test from 'node:test';

import { isOwnHost } from '../lib/bridge/addresses.js';
import { bodyLimit } from '../lib/bridge/http.js';
import { RateLimit } from '../lib/bridge/rateLimit.js';
import { Streams } from '../lib/bridge/streams.js';
import { steppedClock } from './bridgeClock.js';
import { BridgeHome, snapshot } from './bridgeHome.js';
import { until } from './home.js';
import { rawRequest, sendRaw } from './rawHttp.js';

const json = { 'Content-Type': 'application/json' };

function sender(home) {
  return (request) => sendRaw(home.bridge.port, rawRequest(home.bridge.port, request));
}

test('no path reaches a file', async (t) => {
  const home = await BridgeHome.start(t);
  await home.pair();
  const send = sender(home);
  for (const target of [
    '/index.html',
    '/remote.css',
    '/main.js',
    '/../lib/bridge/tokens.js',
    '/..%2f..%2fpackage.json',
    '/%2e%2e/package.json',
    '/....//package.json',
    '//etc/passwd',
    '/\\..\\package.json',
    '/%00',
    '/api/../../package.json',
    '/api/command/',
    '/api/now-playing?token=x',
    '/.claude/tts/bridge-tokens.json',
    '/constructor',
    '/__proto__',
    '/api/',
    '*',
    'http://127.0.0.1/',
    '/%c0%ae%c0%ae/',
    '/favicon.ico',
    '/;/',
  ]) {
    const { status, body } = await send({ target });
    assert.ok([404, 400].includes(status), `${target} gave ${status}`);
    assert.doesNotMatch(body, /root:|"type": "module"|tokens"/, target);
  }
});

test('whoever names another host stays out', async (t) => {
  const home = await BridgeHome.start(t);
  const send = sender(home);
  const { port } = home.bridge;
  for (const Host of [
    'evil.example',
    `evil.example:${port}`,
    'localhost.evil.example',
    '127.0.0.1.evil.example',
    '203.0.113.9',
    '[2001:db8::1]',
    'localhost@evil.example',
    '127.1.evil.example',
    '',
    ' ',
    'localhost:1:2',
    '0x7f.0.0.1.evil',
    '127.evil',
  ]) {
    assert.ok([400, 403].includes((await send({ headers: { Host } })).status), Host);
  }
  assert.ok([400, 403].includes((await send({ headers: { Host: undefined } })).status));
  for (const Host of [`localhost:${port}`, 'localhost', '127.0.0.1', `LOCALHOST:${port}`, `[::1]:${port}`]) {
    assert.equal((await send({ headers: { Host } })).status, 200, Host);
  }
});

test('an address is its own only if some interface has it', () => {
  const own = () => ['192.168.1.7', 'fe80::1'];
  assert.equal(isOwnHost('192.168.1.7:7842', '192.168.1.7', own), true);
  assert.equal(
    isOwnHost('192.168.1.7:7842', '::ffff:192.168.1.7', () => []),
    true,
  );
  assert.equal(
    isOwnHost('[fe80::1]:7842', 'fe80::1%eth0', () => []),
    true,
  );
  assert.equal(isOwnHost('192.168.1.8:7842', '192.168.1.7', own), false);
  assert.equal(isOwnHost('myhost.local:7842', '192.168.1.7', own), false);
});

test('a page of another origin stays out, and is told nothing', async (t) => {
  const home = await BridgeHome.start(t);
  const send = sender(home);
  const { port } = home.bridge;
  const { code } = home.mint();
  const body = JSON.stringify({ code, label: 'x' });
  const post = (headers) =>
    send({
      method: 'POST',
      target: '/api/pair',
      body,
      headers: { ...json, 'Content-Length': body.length, ...headers },
    });
  for (const headers of [
    { Origin: 'http://evil.example' },
    { Origin: 'null' },
    { Origin: 'http://localhost:1' },
    { Origin: `http://evil.example:${port}` },
    { Origin: `https://127.0.0.1:${port}` },
    { Origin: '' },
    { 'Sec-Fetch-Site': 'cross-site' },
    { 'Sec-Fetch-Site': 'same-site' },
    { 'Sec-Fetch-Site': 'none' },
  ]) {
    const answer = await post(headers);
    assert.equal(answer.status, 403, JSON.stringify(headers));
    assert.equal(
      Object.keys(answer.headers).some((name) => name.startsWith('access-control-')),
      false,
    );
  }
  const preflight = await send({
    method: 'OPTIONS',
    target: '/api/command',
    headers: {
      Origin: 'http://evil.example',
      'Access-Control-Request-Method': 'POST',
      'Access-Control-Request-Headers': 'authorization',
    },
  });
  assert.equal(preflight.status, 403);
  assert.equal(
    Object.keys(preflight.headers).some((name) => name.startsWith('access-control-')),
    false,
  );
  assert.equal((await post({ Origin: `http://127.0.0.1:${port}`, 'Sec-Fetch-Site': 'same-origin' })).status, 200);
});

test('a link from elsewhere may open the page, a frame or a script may not', async (t) => {
  const home = await BridgeHome.start(t);
  const send = sender(home);
  const fetched = (site, mode, dest) =>
    send({ headers: { 'Sec-Fetch-Site': site, 'Sec-Fetch-Mode': mode, 'Sec-Fetch-Dest': dest } });
  assert.equal((await fetched('cross-site', 'navigate', 'document')).status, 200);
  assert.equal((await fetched('none', 'navigate', 'document')).status, 200);
  assert.equal((await fetched('cross-site', 'navigate', 'iframe')).status, 403);
  assert.equal((await fetched('cross-site', 'no-cors', 'script')).status, 403);
});

test('a form cannot pair, nor use up tries', async (t) => {
  const home = await BridgeHome.start(t);
  const send = sender(home);
  const { code } = home.mint();
  const body = JSON.stringify({ code });
  for (const type of [
    'text/plain',
    'application/x-www-form-urlencoded',
    'multipart/form-data',
    undefined,
    'application/jsonp',
  ]) {
    const answer = await send({
      method: 'POST',
      target: '/api/pair',
      body,
      headers: { 'Content-Type': type, 'Content-Length': body.length },
    });
    assert.equal(answer.status, 415, type);
  }
  assert.equal((await home.post('/api/pair', { code })).status, 200);
});

test('guessing codes leads nowhere', async (t) => {
  const home = await BridgeHome.start(t, { clock: steppedClock() });
  const { code } = home.mint({ random: () => 999_999 });
  const answers = await Promise.all(
    Array.from({ length: 15 }, (_, i) => home.post('/api/pair', { code: `0000${10 + i}` })),
  );
  const statuses = answers.map((answer) => answer.status);
  assert.equal(statuses.filter((status) => status === 403).length, 1);
  assert.equal(statuses.filter((status) => status === 429).length, 14);
  assert.ok(answers.every((answer) => answer.status === 403 || answer.headers.get('retry-after')));
  for (const answer of answers) assert.doesNotMatch(await answer.text(), new RegExp(code));
  assert.equal(fs.existsSync(home.inShared('bridge-tokens.json')), false);
});

test('five wrong codes shut the right one out', async (t) => {
  const clock = steppedClock();
  const home = await BridgeHome.start(t, { clock });
  const { code } = home.mint({ now: clock.time, random: () => 999_999 });
  for (let i = 0; i < 5; i += 1) {
    assert.equal((await home.post('/api/pair', { code: `00000${i}` })).status, 403);
    clock.time += 1000;
  }
  const answer = await home.post('/api/pair', { code });
  assert.deepEqual([answer.status, (await answer.json()).error], [403, 'wrong-code']);
  assert.equal(fs.existsSync(home.inShared('bridge-tokens.json')), false);
});

test('a code whose time is up lets nobody in', async (t) => {
  const clock = steppedClock();
  const home = await BridgeHome.start(t, { clock });
  const { code } = home.mint({ now: clock.time });
  clock.time += 300_000;
  assert.equal((await home.post('/api/pair', { code })).status, 403);
  assert.equal(fs.existsSync(home.inShared('bridge-tokens.json')), false);
});

test('without a token there is nothing to be had', async (t) => {
  const home = await BridgeHome.start(t);
  const commands = await home.listen();
  home.write('now-playing.json', snapshot({ snippet: 'a private sentence' }));
  const real = (await home.pair()).Authorization.slice('Bearer '.length);
  const send = sender(home);
  for (const Authorization of [
    undefined,
    '',
    'Bearer',
    'Bearer ',
    'Bearer undefined',
    'Bearer null',
    `Basic ${btoa(`:${real}`)}`,
    real,
    `Bearer ${real}x`,
    `Bearer ${real.slice(0, 42)}`,
  ]) {
    const stream = await send({ target: '/api/now-playing', headers: { Authorization } });
    assert.ok([401, 429].includes(stream.status), `${Authorization}: ${stream.status}`);
    assert.doesNotMatch(stream.text, /private sentence/);
  }
  const inAddress = await send({ target: `/api/now-playing?token=${real}` });
  assert.equal(inAddress.status, 404);
  const page = await send({});
  assert.equal(page.status, 200);
  assert.doesNotMatch(page.text, /private sentence/);
  assert.deepEqual(commands, []);
});

test('who guesses tokens is soon told to wait', async (t) => {
  const home = await BridgeHome.start(t, { clock: steppedClock() });
  const statuses = [];
  for (let i = 0; i < 15; i += 1) {
    const answer = await home.command({ Authorization: `Bearer ${String(i).padStart(43, 'a')}` }, 'pause');
    statuses.push(answer.status);
  }
  assert.deepEqual(statuses, [...Array(10).fill(401), ...Array(5).fill(429)]);
});

test('a body has an end', async (t) => {
  const home = await BridgeHome.start(t);
  const headers = await home.pair();
  await home.listen();
  const send = sender(home);
  const post = (more, body) =>
    send({ method: 'POST', target: '/api/command', body, headers: { ...json, ...headers, ...more } });
  assert.equal((await post({ 'Content-Length': bodyLimit + 1 }, '')).status, 413);
  const chunk = `${(bodyLimit + 1).toString(16)}\r\n${'x'.repeat(bodyLimit + 1)}\r\n0\r\n\r\n`;
  assert.equal((await post({ 'Transfer-Encoding': 'chunked' }, chunk)).status, 413);
  assert.equal((await post({ 'Content-Length': 1e15 }, '{')).status, 413);
  const whole = JSON.stringify({ cmd: 'pause', args: {} }).padEnd(bodyLimit);
  assert.equal((await post({ 'Content-Length': whole.length }, whole)).status, 200);
});

test('what is no JSON is refused', async (t) => {
  const home = await BridgeHome.start(t);
  const headers = { ...json, ...(await home.pair()) };
  for (const body of [
    '',
    '{',
    'pause',
    '{"cmd":"pause"}x',
    '\xff\xfe',
    'null',
    '[]',
    '"pause"',
    '{"cmd":["pause"]}',
    '{"cmd":"inject","args":{"text":"\xff"}}',
  ]) {
    const answer = await sender(home)({
      method: 'POST',
      target: '/api/command',
      body,
      headers: { ...headers, 'Content-Length': body.length },
    });
    assert.equal(answer.status, 400, body);
  }
});

test('odd requests get a short answer and the bridge goes on', async (t) => {
  const home = await BridgeHome.start(t);
  const { port } = home.bridge;
  const long = 'a'.repeat(20_000);
  for (const [text, statuses] of [
    ['\x16\x03\x01\x02\x00\x01\x00\x01\xfc', [400]],
    ['GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\nConnection: close\r\n\r\n', [400, 403]],
    [rawRequest(port, { target: `/${long}` }), [414, 431]],
    [rawRequest(port, { target: `/?${'a'.repeat(3000)}` }), [414]],
    [rawRequest(port, { headers: { Cookie: long } }), [431]],
    [
      rawRequest(port, {
        method: 'POST',
        target: '/api/pair',
        headers: { 'Content-Length': '5', 'Transfer-Encoding': 'chunked' },
      }),
      [400],
    ],
    [rawRequest(port, { method: 'BREW' }), [400]],
    [`GET / HTTP/1.1\nHost: 127.0.0.1\nX: a\r\rb\n\n`, [400]],
    [rawRequest(port, { method: 'CONNECT', target: 'evil.example:443' }), [NaN, 400, 405]],
  ]) {
    const answer = await sendRaw(port, text);
    assert.ok(
      statuses.some((status) => Object.is(status, answer.status)),
      `${text.slice(0, 40)} gave ${answer.status}`,
    );
    assert.ok(answer.ended, text.slice(0, 40));
  }
  assert.equal((await fetch(home.origin)).status, 200);
});

test('a sender that dawdles is cut off', { timeout: 30_000 }, async (t) => {
  const home = await BridgeHome.start(t);
  const { port } = home.bridge;
  const [silent, head, body] = await Promise.all([
    sendRaw(port, '', { limit: 20_000 }),
    sendRaw(port, 'GET / HTTP/1.1\r\nHost: 127', { limit: 20_000 }),
    sendRaw(
      port,
      rawRequest(port, { method: 'POST', target: '/api/pair', headers: { ...json, 'Content-Length': 50 }, body: '{' }),
      { limit: 20_000 },
    ),
  ]);
  assert.deepEqual([silent.ended, head.ended, body.ended], [true, true, true]);
  assert.notEqual(body.status, 200);
});

test('one address cannot take all connections', async (t) => {
  const home = await BridgeHome.start(t);
  const sockets = [];
  t.after(() => sockets.forEach((socket) => socket.destroy()));
  let closed = 0;
  for (let i = 0; i < 40; i += 1) {
    const socket = net.connect(home.bridge.port, '127.0.0.1');
    socket.on('error', () => {});
    socket.on('close', () => {
      closed += 1;
    });
    sockets.push(socket);
  }
  await until(() => closed === 20, { what: 'the end of the connections beyond the limit' });
  assert.equal((await fetch(home.origin)).status, 200);
});

test('a device is let in while another behind its address guesses', async (t) => {
  const home = await BridgeHome.start(t, { clock: steppedClock() });
  const headers = await home.pair();
  const guess = { Authorization: `Bearer ${'a'.repeat(43)}` };
  // More than all strangers behind an address may ask, of anything.
  for (let i = 0; i < 100; i += 1) await home.command(guess, 'pause');
  assert.equal((await fetch(home.origin, { headers: guess })).status, 429);
  assert.equal((await home.command(headers, 'pause')).status, 503);
});

test('strangers behind one address may not ask for ever', async (t) => {
  const home = await BridgeHome.start(t, { clock: steppedClock() });
  const ask = async () => {
    const answer = await fetch(home.origin);
    await answer.arrayBuffer();
    return answer.status;
  };
  for (let i = 0; i < 90; i += 1) assert.equal(await ask(), 200);
  assert.equal(await ask(), 429);
  home.clock.step(1000);
  assert.equal(await ask(), 200);
});

test('a stream whose device has stopped reading ends after two beats', () => {
  const clock = steppedClock();
  const streams = new Streams({ feed: { subscribe: () => () => {} }, clock });
  const open = (writableLength) => {
    const response = Object.assign(new EventEmitter(), {
      writableLength, writeHead() {}, flushHeaders() {}, write() {}, destroy() { this.emit('close'); },
    });
    streams.open('phone', response, {});
    return response;
  };
  const [, , late] = [open(0), open(10), open(10)];
  clock.step(15_000);
  assert.equal(streams.size, 3);
  late.writableLength = 0;
  clock.step(15_000);
  assert.equal(streams.size, 2);
});

test('last words that nobody takes are given up', () => {
  const clock = steppedClock();
  const streams = new Streams({ feed: { subscribe: () => () => {} }, clock });
  const ended = [];
  const open = () => {
    const response = Object.assign(new EventEmitter(), {
      writableLength: 0, writeHead() {}, flushHeaders() {}, write() {}, end(words) { ended.push(words); },
      isDestroyed: false, destroy() { this.isDestroyed = true; this.emit('close'); },
    });
    streams.open('phone', response, {});
    return response;
  };
  const [stuck, reader] = Array.from({ length: 6 }, open);
  assert.equal(ended.length, 2);
  reader.emit('close');
  clock.step(4999);
  assert.equal(stuck.isDestroyed, false);
  clock.step(1);
  assert.deepEqual([stuck.isDestroyed, reader.isDestroyed], [true, false]);
  assert.equal(streams.size, 4);
});

test('a stream’s connection serves nothing after it', async (t) => {
  const home = await BridgeHome.start(t);
  const answer = await fetch(`${home.origin}/api/now-playing`, { headers: await home.pair() });
  assert.equal(answer.headers.get('connection'), 'close');
  await answer.body.cancel();
});

test('a device that asks too often is told to wait', async (t) => {
  const home = await BridgeHome.start(t, { clock: steppedClock() });
  const commands = await home.listen();
  const headers = await home.pair();
  const statuses = [];
  for (let i = 0; i < 50; i += 1) statuses.push((await home.command(headers, 'pause')).status);
  assert.deepEqual(statuses, [...Array(45).fill(200), ...Array(5).fill(429)]);
  home.clock.step(1000);
  assert.equal((await home.command(headers, 'pause')).status, 200);
  await until(() => commands.length === 46);
});

test('a device that reads nothing is let go, and there is an end to streams', () => {
  const listeners = [];
  const feed = {
    subscribe: (listener) => {
      listeners.push(listener);
      return () => {};
    },
  };
  const clock = { now: () => 0, setTimeout: () => 0, clearTimeout: () => {} };
  const streams = new Streams({ feed, clock });
  const open = (device, writableLength) => {
    const response = Object.assign(new EventEmitter(), {
      writableLength,
      writeHead: () => {},
      flushHeaders: () => {},
      write: () => {},
      destroy() {
        this.emit('close');
      },
    });
    streams.open(device, response, {});
  };
  open('stuck', 300_000);
  open('well', 100_000);
  for (const listener of listeners) listener({ shown: { nowPlaying: { state: 'idle' } } });
  assert.equal(streams.size, 1);
  for (let i = 1; i < 24; i += 1) {
    assert.equal(streams.hasRoom(`device ${i}`), true);
    open(`device ${i}`, 0);
  }
  assert.equal(streams.hasRoom('one more'), false);
});

test('a bucket fills again with time, and forgotten senders cost nothing', () => {
  const clock = { time: 0, now: () => clock.time };
  const limit = new RateLimit({ perSecond: 2, burst: 3, clock });
  const takes = (count, key = 'a') => Array.from({ length: count }, () => limit.take(key));
  assert.deepEqual(takes(4), [true, true, true, false]);
  assert.equal(limit.take('b'), true);
  clock.time = 500;
  assert.deepEqual(takes(2), [true, false]);
  clock.time = 60_000;
  assert.deepEqual(takes(4), [true, true, true, false]);
  for (let i = 0; i < 5000; i += 1) limit.take(`key ${i}`);
  assert.deepEqual(takes(1), [true]);
});
