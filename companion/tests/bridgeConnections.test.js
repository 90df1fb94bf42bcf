import assert from 'node:assert/strict';
import { EventEmitter, once } from 'node:events';
import http from 'node:http';
import net from 'node:net';
import test from 'node:test';

import { lanAddresses, networkOf } from '../lib/bridge/addresses.js';
import { Connections, senderOf } from '../lib/bridge/connections.js';
import { steppedClock } from './bridgeClock.js';
import { BridgeHome } from './bridgeHome.js';
import { until } from './home.js';
import { rawRequest } from './rawHttp.js';
import { countAwake } from './wakefulness.js';

class FakeSocket extends EventEmitter {
  destroyed = false;

  constructor(remoteAddress) {
    super();
    this.remoteAddress = remoteAddress;
  }

  destroy() {
    this.destroyed = true;
    this.emit('close');
  }
}

function setUp() {
  const connections = new Connections({ clock: steppedClock() });
  const connect = (address, device) => {
    const socket = new FakeSocket(address);
    connections.admit(socket);
    if (device) connections.assign(socket, device);
    return socket;
  };
  const many = (count, address, device) => Array.from({ length: count }, () => connect(address, device));
  return { connections, connect, many };
}

const living = (sockets) => sockets.filter((socket) => !socket.destroyed).length;

test('strangers from many addresses keep neither a device nor this computer out', () => {
  const { connections, connect, many } = setUp();
  const phone = connect('192.168.1.7', 'phone');
  const strangers = Array.from({ length: 10 }, (_, i) => many(20, `10.0.0.${i}`)).flat();
  assert.equal(living(strangers), 31);
  assert.equal(living([phone]), 1);
  const own = [connect('127.0.0.1'), connect('::1'), connect('::ffff:127.0.0.1')];
  assert.equal(living(own), 3);
  assert.equal(living(strangers), 31);
  const another = connect('192.168.1.8');
  assert.equal(living([another]), 1);
  assert.equal(living(strangers), 30);
  many(40, '10.0.0.3');
  assert.equal(living([phone, another, ...own]), 5, 'whoever floods ends his own');
  assert.equal(connections.size, 35);
});

test('where all places are devices’, one more waits', () => {
  const { connect, many } = setUp();
  const phones = [...many(16, '192.168.1.7', 'a'), ...many(16, '192.168.1.8', 'b')];
  assert.equal(connect('10.0.0.1').destroyed, true);
  assert.equal(living(phones), 32);
  assert.equal(connect('127.0.0.1').destroyed, false);
});

test('one address has twenty, of which the oldest stranger goes', () => {
  const { connect, many } = setUp();
  const phone = connect('192.168.1.7', 'phone');
  const first = many(19, '192.168.1.7');
  const next = connect('192.168.1.7');
  assert.deepEqual([phone.destroyed, first[0].destroyed, first[1].destroyed, next.destroyed], [false, true, false, false]);
});

test('ends of all kinds', () => {
  const { connections, connect } = setUp();
  const sockets = [connect('127.0.0.1'), connect('10.0.0.1', 'a'), connect('10.0.0.1', 'b'), connect('10.0.0.1')];
  sockets.forEach((socket, i) => { socket.localAddress = i === 0 ? '127.0.0.1' : '::ffff:10.0.0.9'; });
  const destroyed = () => sockets.map((socket) => socket.destroyed);
  connections.endOf('a');
  assert.deepEqual(destroyed(), [false, true, false, false]);
  connections.endUnassigned();
  assert.deepEqual(destroyed(), [true, true, false, true]);
  connections.endRemote();
  assert.deepEqual(destroyed(), [true, true, true, true]);
  assert.equal(connections.size, 0);
});

for (const [address, network] of [
  ['192.168.1.7', '192.168.1.7'],
  ['::ffff:192.168.1.7', '192.168.1.7'],
  ['::ffff:c0a8:107', '192.168.1.7'],
  ['0:0:0:0:0:FFFF:c0a8:0107', '192.168.1.7'],
  ['127.0.0.1', '127.0.0.1'],
  ['::ffff:7f00:1', '127.0.0.1'],
  ['::1', '::1'],
  ['2001:db8::1', '2001:db8:0:0'],
  ['2001:db8::ffff:1:2', '2001:db8:0:0'],
  ['2001:db8:0:0:7:6:5:4', '2001:db8:0:0'],
  ['2001:db8:0:1::4', '2001:db8:0:1'],
  ['fe80::1%eth0', 'fe80:0:0:0'],
  ['fe80::aaaa:bbbb:cccc:dddd', 'fe80:0:0:0'],
  ['fd12:3456::9', 'fd12:3456:0:0'],
  ['FD12:3456:0:0:1::', 'fd12:3456:0:0'],
]) {
  test(`${address} counts as ${network}`, () => {
    assert.equal(networkOf(address), network);
    assert.equal(senderOf({ remoteAddress: address }), network);
  });
}

/** Sends and reads nothing. */
function deafSocket(t, port, text) {
  const socket = net.connect({ port, host: '127.0.0.1', onread: undefined });
  t.after(() => socket.destroy());
  socket.pause();
  socket.on('error', () => {});
  socket.write(text);
  return socket;
}

/** Whether the other end has let go: a socket that reads nothing isn't told, but what it writes comes back. */
function hasEnded(socket) {
  return socket.destroyed || socket.errored || !socket.write('\r\n');
}

test('many requests at once that nobody reads the answers of end the connection', async (t) => {
  const home = await BridgeHome.start(t);
  const request = rawRequest(home.bridge.port, { headers: { Connection: 'keep-alive' } });
  const awake = countAwake(t);
  const socket = deafSocket(t, home.bridge.port, request.repeat(85));
  await until(() => hasEnded(socket), { limit: 30_000, what: 'the end' });
  assert.ok(awake() < 4000, 'before one ends that rests');
});

test('an answer that nobody reads ends in time', () => {
  const clock = steppedClock();
  const connections = new Connections({ clock });
  const [stuck, done, stream] = ['a', 'b', 'c'].map(() => new FakeSocket('10.0.0.1'));
  const responses = [stuck, done, stream].map((socket) => {
    const response = new EventEmitter();
    connections.admit(socket);
    connections.begin(socket, response);
    return response;
  });
  responses[1].emit('finish');
  connections.untime(stream, responses[2]);
  clock.step(19_999);
  assert.equal(stuck.destroyed, false);
  clock.step(1);
  assert.deepEqual([stuck.destroyed, done.destroyed, stream.destroyed], [true, false, false]);
});

test('one after another a connection may ask as often as it likes', () => {
  const { connections, connect } = setUp();
  const socket = connect('10.0.0.1');
  for (let i = 0; i < 50; i += 1) {
    const response = new EventEmitter();
    connections.begin(socket, response);
    response.emit('finish');
    response.emit('close');
  }
  assert.equal(socket.destroyed, false);
});

test('where as many listen as may, one more is told to wait', async (t) => {
  const home = await BridgeHome.start(t);
  const tokens = Array.from({ length: 7 }, (_, i) => String(i).repeat(43));
  home.write('bridge-tokens.json', { tokens: tokens.map((token) => ({ label: 'x', createdAt: 1, token })) });
  const open = async (token, i) => {
    const request = http.get({
      host: '127.0.0.1',
      // As if from many: one address has fewer connections.
      localAddress: `127.0.0.${2 + (i % 3)}`,
      port: home.bridge.port,
      path: '/api/now-playing',
      headers: { Authorization: `Bearer ${token}` },
      agent: false,
    });
    t.after(() => request.destroy());
    request.on('error', () => {});
    const [response] = await once(request, 'response');
    response.on('error', () => {}).resume();
    return response.statusCode;
  };
  for (let i = 0; i < 24; i += 1) assert.equal(await open(tokens[i % 6], i), 200);
  assert.equal(await open(tokens[6], 0), 429);
  assert.equal(await open(tokens[0], 0), 200, 'in the place of its own oldest');
});

test('leaving the local network ends who came from there', async (t) => {
  const outer = lanAddresses().find((address) => !address.startsWith('['));
  if (!outer) return t.skip('this machine has no address but its own');
  const home = await BridgeHome.start(t, { state: { bridgeLan: true } });
  const headers = await home.pair();
  const open = async (host) => {
    const abort = new AbortController();
    t.after(() => abort.abort());
    const { body } = await fetch(`http://${host}:${home.bridge.port}/api/now-playing`, { headers, signal: abort.signal });
    const stream = { ended: false };
    (async () => { for await (const _ of body); })().catch(() => {}).finally(() => { stream.ended = true; });
    return stream;
  };
  const [here, there] = [await open('127.0.0.1'), await open(outer)];
  home.write('state.json', { bridgeLan: false });
  await until(() => there.ended, { what: 'the end of the stream from the local network' });
  assert.equal(here.ended, false);
  return undefined;
});

test('a stranger ends when the bridge moves', async (t) => {
  const home = await BridgeHome.start(t);
  const socket = net.connect(home.bridge.port, '127.0.0.1');
  t.after(() => socket.destroy());
  let ended = false;
  socket.on('error', () => {}).on('close', () => { ended = true; }).resume();
  socket.write('GET / HTTP/1.1\r\n');
  await once(socket, 'connect');
  const awake = countAwake(t);
  home.write('state.json', { bridgeLan: true });
  await until(() => ended, { limit: 30_000, what: 'the end' });
  assert.ok(awake() < 3000, 'well before it would be told that it dawdles');
});
