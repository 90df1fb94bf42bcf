import assert from 'node:assert/strict';
import { once } from 'node:events';
import net from 'node:net';
import test from 'node:test';

import { steppedClock } from './bridgeClock.js';
import { BridgeHome } from './bridgeHome.js';
import { until } from './home.js';
import { rawRequest, sendRaw } from './rawHttp.js';

function assertSafe({ headers, text }) {
  assert.equal(headers['x-content-type-options'], 'nosniff', text);
  assert.equal(headers['cache-control'], 'no-store', text);
  assert.match(headers['content-security-policy'], /default-src 'none'/, text);
  assert.equal(headers.connection, 'close', text);
}

test('whoever expects something is judged like everybody else', async (t) => {
  const home = await BridgeHome.start(t);
  const { port } = home.bridge;
  const send = (headers) => sendRaw(port, rawRequest(port, { headers }));
  const foreign = await send({ Host: 'evil.example', Expect: 'x' });
  assert.equal(foreign.status, 403);
  assertSafe(foreign);
  const unmet = await send({ Expect: 'x' });
  assert.equal(unmet.status, 417);
  assertSafe(unmet);
  assert.equal((await send({ Host: 'evil.example', Expect: '100-continue' })).status, 403);
});

test('only one who may send a body is asked for it', async (t) => {
  const home = await BridgeHome.start(t);
  const commands = await home.listen();
  const headers = await home.pair();
  const { port } = home.bridge;
  const body = '{"cmd":"pause"}';
  const head = (more) => rawRequest(port, {
    method: 'POST',
    target: '/api/command',
    headers: { ...headers, 'Content-Type': 'application/json', 'Content-Length': body.length, Expect: '100-continue', ...more },
  });
  for (const [more, status] of [
    [{ Host: 'evil.example' }, 403],
    [{ Authorization: `Bearer ${'a'.repeat(43)}` }, 401],
    [{ 'Content-Type': 'text/plain' }, 415],
    [{ 'Content-Length': 1e6 }, 413],
  ]) {
    const answer = await sendRaw(port, head(more));
    assert.equal(answer.status, status, answer.text);
    assert.doesNotMatch(answer.text, /100 Continue/);
    assert.ok(answer.ended);
  }
  const socket = net.connect(port, '127.0.0.1').setEncoding('latin1');
  t.after(() => socket.destroy());
  let text = '';
  socket.on('data', (piece) => { text += piece; });
  socket.write(head({}));
  await until(() => text.startsWith('HTTP/1.1 100 Continue\r\n\r\n'), { what: 'the word' });
  socket.write(body);
  await until(() => text.includes('HTTP/1.1 200'), { what: 'the answer' });
  assert.equal(text.split('100 Continue').length, 2, 'once');
  await until(() => commands.length === 1);
});

test('before HTTP/1.1 there is nothing to expect', async (t) => {
  const home = await BridgeHome.start(t);
  const { port } = home.bridge;
  const request = rawRequest(port, { headers: { Expect: 'x' } }).replace('HTTP/1.1', 'HTTP/1.0');
  assert.equal((await sendRaw(port, request)).status, 200);
});

test('a request that cannot be understood is answered like every other', async (t) => {
  const home = await BridgeHome.start(t);
  const { port } = home.bridge;
  for (const [text, status, code] of [
    ['nonsense\r\n\r\n', 400, 'bad-request'],
    [rawRequest(port, { headers: { Cookie: 'a'.repeat(20_000) } }), 431, 'too-large'],
    [rawRequest(port, { method: 'BREW' }), 400, 'bad-request'],
  ]) {
    const answer = await sendRaw(port, text);
    assert.equal(answer.status, status);
    assertSafe(answer);
    assert.equal(JSON.parse(answer.body).error, code);
    assert.equal(answer.headers['content-length'], String(answer.body.length));
    assert.ok(answer.ended);
  }
});

test('one that dawdles is told so', { timeout: 30_000 }, async (t) => {
  const home = await BridgeHome.start(t);
  const answer = await sendRaw(home.bridge.port, 'GET / HTTP/1.1\r\n', { limit: 20_000 });
  assert.equal(answer.status, 408);
  assertSafe(answer);
});

test('nonsense counts like every other request', async (t) => {
  const home = await BridgeHome.start(t, { clock: steppedClock() });
  const { port } = home.bridge;
  for (let i = 0; i < 90; i += 1) assert.equal((await sendRaw(port, 'nonsense\r\n\r\n')).status, 400);
  assert.equal((await sendRaw(port, 'nonsense\r\n\r\n')).status, 429);
  assert.equal((await fetch(home.origin)).status, 429);
});

test('nonsense behind a request puts no second answer into the first', async (t) => {
  const home = await BridgeHome.start(t);
  const headers = await home.pair();
  const { port } = home.bridge;
  const request = rawRequest(port, { target: '/api/now-playing', headers: { ...headers, Connection: 'keep-alive' } });
  const socket = net.connect(port, '127.0.0.1').setEncoding('latin1');
  t.after(() => socket.destroy());
  let text = '';
  socket.on('error', () => {}).on('data', (piece) => { text += piece; });
  socket.write(request);
  await until(() => text.includes('data: '), { what: 'the first picture' });
  const ended = once(socket, 'close');
  socket.write('nonsense\r\n\r\n');
  await ended;
  assert.doesNotMatch(text, /400 Bad Request/);
});
