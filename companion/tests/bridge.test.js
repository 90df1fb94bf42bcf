import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import test from 'node:test';

import { lanAddresses } from '../lib/bridge/addresses.js';
import { startBridge } from '../lib/bridge/bridge.js';
import { Daemon, ownParts } from '../lib/daemon/daemon.js';
import { Log, silentLog } from '../lib/log.js';
import { replaceFile } from '../lib/wholeFile.js';
import { quietClock, steppedClock } from './bridgeClock.js';
import { BridgeHome, snapshot, words } from './bridgeHome.js';
import { quietPort } from './bridgePorts.js';
import { listenTo } from './bridgeStream.js';
import { temporaryHome, until } from './home.js';
import { rawRequest, sendRaw } from './rawHttp.js';
import { countAwake } from './wakefulness.js';

test('the page is one answer that needs nothing else', async (t) => {
  const home = await BridgeHome.start(t);
  const answer = await fetch(home.origin);
  const html = await answer.text();
  assert.equal(answer.status, 200);
  assert.equal(answer.headers.get('content-type'), 'text/html; charset=utf-8');
  assert.doesNotMatch(html, /https?:\/\/(?!www\.w3\.org\/2000\/svg)/);
  assert.doesNotMatch(html, /^(import|export) /m);
  assert.doesNotMatch(html, /\ssrc=|@import|url\(/);
  assert.doesNotMatch(html, /innerHTML|\son[a-z]+=|\sstyle=/);
});

test('every answer carries the security headers', async (t) => {
  const home = await BridgeHome.start(t);
  const send = (request) => sendRaw(home.bridge.port, rawRequest(home.bridge.port, request));
  for (const request of [
    {},
    { target: '/none' },
    { method: 'POST' },
    { target: '/api/command', method: 'OPTIONS' },
    { headers: { Host: 'evil.example' } },
    { target: '/api/now-playing' },
  ]) {
    const { headers } = await send(request);
    assert.equal(headers['x-content-type-options'], 'nosniff');
    assert.equal(headers['referrer-policy'], 'no-referrer');
    assert.equal(headers['x-frame-options'], 'DENY');
    assert.equal(headers['cache-control'], 'no-store');
    assert.match(headers['content-security-policy'], /default-src 'none'/);
    assert.match(headers['content-security-policy'], /frame-ancestors 'none'/);
    assert.doesNotMatch(headers['content-security-policy'], /unsafe/);
    assert.equal(headers['access-control-allow-origin'], undefined);
    assert.equal(headers.server, undefined);
  }
});

test('HEAD, OPTIONS and methods that do not fit', async (t) => {
  const home = await BridgeHome.start(t);
  const ask = (method, path = '/') => fetch(home.origin + path, { method });
  const head = await ask('HEAD');
  assert.equal(head.status, 200);
  assert.equal(head.headers.get('content-length'), String((await (await ask('GET')).arrayBuffer()).byteLength));
  assert.equal(await head.text(), '');
  const options = await ask('OPTIONS', '/api/command');
  assert.equal(options.status, 204);
  assert.equal(options.headers.get('allow'), 'POST, OPTIONS');
  for (const [method, path, allow] of [
    ['POST', '/', 'GET, HEAD, OPTIONS'],
    ['GET', '/api/pair', 'POST, OPTIONS'],
    ['DELETE', '/api/command', 'POST, OPTIONS'],
    ['PUT', '/api/now-playing', 'GET, HEAD, OPTIONS'],
  ]) {
    const answer = await ask(method, path);
    assert.equal(answer.status, 405, `${method} ${path}`);
    assert.equal(answer.headers.get('allow'), allow);
  }
  assert.equal((await ask('HEAD', '/api/now-playing')).status, 401);
});

test('a paired device sees what is played', async (t) => {
  const home = await BridgeHome.start(t, {
    clock: steppedClock(),
    state: {
      volume: 70,
      sessions: [
        { id: 's-0', source: 'pi' },
        { id: 's-1', cwd: '/home/me/sonra', source: 'codex', branch: 'main' },
      ],
    },
  });
  await home.listen();
  const headers = await home.pair();
  home.write('now-playing.json', snapshot());
  const writtenAt = (home.clock.time - 700) / 1000;
  fs.utimesSync(home.inShared('now-playing.json'), writtenAt, writtenAt);
  const stream = await listenTo(t, home, headers);
  await stream.until((picture) => picture.service);
  assert.deepEqual(stream.last(), {
    age: 700,
    service: true,
    nowPlaying: {
      state: 'playing',
      messageId: 'm-1',
      elapsed: 4,
      duration: 11,
      snippet: words,
      synthesizing: false,
      newLiveCount: 0,
      totalMessages: 12,
      cursor: { kind: 'live', messageIndex: 0, totalKnown: 12, chunkIndex: 1, totalChunks: 5 },
    },
    settings: { paused: false, muted: false, volume: 70, speed: 1.5 },
    session: { source: 'codex', project: 'sonra', branch: 'main', title: '' },
    accepts: { inject: false },
  });
});

test('changes come as they happen, and nothing comes when nothing changes', async (t) => {
  const home = await BridgeHome.start(t, { clock: quietClock() });
  await home.listen();
  home.write('now-playing.json', snapshot());
  const stream = await listenTo(t, home, await home.pair());
  await stream.until((picture) => picture.nowPlaying.elapsed === 4);
  home.write('now-playing.json', snapshot({ elapsed: 5, rev: 2 }));
  await stream.until((picture) => picture.nowPlaying.elapsed === 5);
  home.write('state.json', { muted: true });
  await stream.until((picture) => picture.settings.muted);
  const count = stream.events.length;
  home.write('state.json', { muted: true, discoveredSessions: [] });
  home.write('now-playing.json', snapshot({ elapsed: 5, rev: 3 }));
  await new Promise((resolve) => setTimeout(resolve, 300));
  home.write('now-playing.json', snapshot({ elapsed: 6, rev: 4 }));
  await stream.until((picture) => picture.nowPlaying.elapsed === 6);
  assert.equal(stream.events.length, count + 1);
});

test('a second device sees the present at once', async (t) => {
  const home = await BridgeHome.start(t);
  home.write('now-playing.json', snapshot());
  const first = await listenTo(t, home, await home.pair('one'));
  await first.until((picture) => picture.nowPlaying.elapsed === 4);
  const second = await listenTo(t, home, await home.pair('two'));
  await second.until((picture) => picture.nowPlaying.elapsed === 4);
});

test('the service coming and going shows', async (t) => {
  const home = await BridgeHome.start(t, { clock: quietClock() });
  const headers = await home.pair();
  const stream = await listenTo(t, home, headers);
  await stream.until((picture) => !picture.service);
  const answer = await home.command(headers, 'pause');
  assert.equal(answer.status, 503);
  assert.deepEqual(await answer.json(), { error: 'service-not-running', message: 'The Sonra service is not running.' });
  await home.listen();
  await stream.until((picture) => picture.service);
  await home.stopService();
  await stream.until((picture) => !picture.service);
});

test('documents that are odd are shown as nothing', async (t) => {
  const home = await BridgeHome.start(t);
  home.write(
    'now-playing.json',
    '{"state":"dancing","elapsed":"x","cursor":7,"live":null,"snippet":{},"newLiveCount":-3}',
  );
  home.write('state.json', '[');
  const stream = await listenTo(t, home, await home.pair());
  await stream.until((picture) => picture.nowPlaying.state === 'idle');
  const { nowPlaying, settings } = stream.last();
  assert.equal(nowPlaying.snippet, '');
  assert.equal(nowPlaying.newLiveCount, 0);
  assert.deepEqual(settings, { paused: false, muted: false, volume: 100, speed: 1.5 });
});

test('the service says when it can be talked to', async (t) => {
  const home = await BridgeHome.start(t, { state: { remoteCommands: ['inject'] } });
  const stream = await listenTo(t, home, await home.pair());
  await stream.until((picture) => picture.accepts.inject === true);
});

const passed = [
  ['pause'],
  ['resume'],
  ['toggle'],
  ['skip'],
  ['previous'],
  ['next'],
  ['restart'],
  ['stop'],
  ['scrub', { index: 0 }],
  ['scrub', { index: 12 }],
  ['volume', { value: 0 }],
  ['volume', { value: 100 }],
  ['inject', { text: 'go on\nplease' }],
  ['inject', { text: 'go on', submit: true }],
  ['speak', { value: 'hello' }],
  ['speak', { shape: 'text', value: 'hello' }],
  ['speak', { shape: 'clipboard' }],
];

test('commands go to the socket as they are', async (t) => {
  const home = await BridgeHome.start(t);
  const commands = await home.listen();
  const headers = await home.pair();
  for (const [cmd, args] of passed) assert.equal((await home.command(headers, cmd, args)).status, 200, cmd);
  await until(() => commands.length === passed.length);
  assert.deepEqual(
    commands,
    passed.map(([cmd, args]) => ({ ...args, proto: 1, cmd })),
  );
});

test('nothing else does', async (t) => {
  const home = await BridgeHome.start(t);
  const commands = await home.listen();
  const headers = await home.pair();
  for (const [cmd, args] of [
    ['quit'],
    ['play', { wav: '/etc/passwd' }],
    ['attach', { id: 'x' }],
    ['detach', { id: 'x' }],
    ['clear'],
    ['search'],
    ['set', { text: 'x' }],
    ['hide'],
    ['PAUSE'],
    ['pause '],
    [''],
    ['constructor'],
    ['__proto__'],
    ['toString'],
    ['pause', { proto: 2 }],
    ['pause', { cmd: 'quit' }],
    ['pause', []],
    ['pause', null],
    ['pause', 'x'],
    ['scrub'],
    ['scrub', { index: -1 }],
    ['scrub', { index: 1.5 }],
    ['scrub', { index: '3' }],
    ['scrub', { index: 1e9 }],
    ['volume'],
    ['volume', { value: 101 }],
    ['volume', { value: -1 }],
    ['volume', { value: true }],
    ['volume', { value: null }],
    ['inject'],
    ['inject', { text: '' }],
    ['inject', { text: '  ' }],
    ['inject', { text: 'x', submit: 'yes' }],
    ['inject', { text: 'x'.repeat(20_000) }],
    ['speak'],
    ['speak', { shape: 'file', value: '/etc/passwd' }],
    ['speak', { shape: 'clipboard', value: 'x' }],
    ['speak', { shape: 'text' }],
  ]) {
    let answer = await home.command(headers, cmd, args);
    while (answer.status === 429) {
      await new Promise((resolve) => setTimeout(resolve, 100));
      answer = await home.command(headers, cmd, args);
    }
    assert.equal(answer.status, 400, `${cmd} ${JSON.stringify(args)}`);
    assert.equal((await answer.json()).error, 'bad-command');
  }
  assert.deepEqual(commands, []);
});

test('muting is a setting, beside which the others stay', async (t) => {
  const home = await BridgeHome.start(t, { state: { other: 7 } });
  const headers = await home.pair();
  assert.equal((await home.command(headers, 'mute')).status, 503);
  await home.listen();
  assert.equal((await home.command(headers, 'mute')).status, 200);
  assert.deepEqual(home.read('state.json'), { muted: true, other: 7, sessions: [] });
  assert.equal((await home.command(headers, 'unmute')).status, 200);
  assert.equal(home.read('state.json').muted, false);
});

test('a lock that is held up is told of before the page gives up', { timeout: 60_000 }, async (t) => {
  const home = await BridgeHome.start(t);
  await home.listen();
  const headers = await home.pair();
  fs.writeFileSync(home.inShared('state.json.lock'), String(process.pid));
  const awake = countAwake(t);
  assert.equal((await home.command(headers, 'mute')).status, 500);
  assert.ok(awake() < 8000);
});

test('a device whose row is removed is out at once', async (t) => {
  const home = await BridgeHome.start(t);
  const headers = await home.pair('one');
  const other = await home.pair('two');
  const [stream, kept] = [await listenTo(t, home, headers), await listenTo(t, home, other)];
  await stream.until(() => true);
  const document = home.read('bridge-tokens.json');
  home.write('bridge-tokens.json', { ...document, tokens: document.tokens.slice(1) });
  await until(() => stream.ended, { what: 'end of the stream' });
  assert.equal((await home.command(headers, 'pause')).status, 401);
  assert.equal((await home.command(other, 'pause')).status, 503);
  assert.equal(kept.ended, false);
});

test('a device can leave by itself', async (t) => {
  const home = await BridgeHome.start(t);
  const headers = await home.pair();
  const stream = await listenTo(t, home, headers);
  const answer = await home.post('/api/unpair', {}, headers);
  assert.equal(answer.status, 200);
  assert.deepEqual(home.read('bridge-tokens.json').tokens, []);
  await until(() => stream.ended, { what: 'end of the stream' });
  assert.equal((await home.command(headers, 'pause')).status, 401);
});

test('a fifth stream of one device ends its first, and says so', async (t) => {
  const home = await BridgeHome.start(t);
  const headers = await home.pair();
  const streams = [];
  for (let i = 0; i < 5; i += 1) streams.push(await listenTo(t, home, headers));
  await until(() => streams[0].ended, { what: 'end of the first stream' });
  assert.equal(streams[0].events.at(-1).name, 'replaced');
  await until(() => streams.slice(1).every((stream) => stream.events.length > 0));
  assert.deepEqual(
    streams.slice(1).map((stream) => stream.ended),
    [false, false, false, false],
  );
});

test('there is a sign of life every fifteen seconds', async (t) => {
  const clock = steppedClock();
  const home = await BridgeHome.start(t, { clock });
  const stream = await listenTo(t, home, await home.pair());
  await stream.until(() => true);
  for (let i = 0; i < 3; i += 1) {
    assert.equal(stream.text.split(': here\n\n').length, i + 1);
    clock.step(15_000);
    await until(() => stream.text.split(': here\n\n').length === i + 2, { what: 'sign of life' });
  }
});

test('a device that listens is seen, once a minute', async (t) => {
  const home = await BridgeHome.start(t, { clock: steppedClock() });
  const { code } = home.mint();
  const { token } = await (await home.post('/api/pair', { code })).json();
  const stream = await listenTo(t, home, { Authorization: `Bearer ${token}` });
  await stream.until(() => true);
  const began = home.read('bridge-tokens.json').tokens[0].lastSeenAt;
  for (let beat = 1; beat <= 4; beat += 1) {
    home.clock.step(15_000);
    await until(() => stream.text.split(': here\n\n').length > beat, { what: 'sign of life' });
    if (beat < 4) assert.equal(home.read('bridge-tokens.json').tokens[0].lastSeenAt, began);
  }
  await until(() => home.read('bridge-tokens.json').tokens[0].lastSeenAt === began + 60_000);
});

test('a look that fails is followed by the next', async (t) => {
  const { environment } = temporaryHome(t);
  let isBroken = false;
  let port = await quietPort();
  const fragile = {
    ...environment,
    get SONRA_BRIDGE_PORT() {
      if (isBroken) throw new Error('broken');
      return String(port);
    },
  };
  const clock = steppedClock();
  const lines = [];
  const log = new Log({ append: (line) => lines.push(JSON.parse(line)) });
  const bridge = await startBridge({ environment: fragile, log, clock });
  t.after(() => bridge.close());
  isBroken = true;
  clock.step(15_000);
  assert.equal(lines.at(-1).msg, 'bridge could not look at the shared folder');
  // Nothing but the next look can tell: no file changes.
  port = await quietPort();
  isBroken = false;
  clock.step(15_000);
  await until(() => bridge.port === port, { what: 'the other port' });
});

test('a port that is taken is asked for again, and the log says so', async (t) => {
  const home = await BridgeHome.start(t);
  const port = await quietPort();
  const taken = net.createServer().listen(port, '127.0.0.1');
  await once(taken, 'listening');
  const lines = [];
  const retries = [];
  const clock = {
    now: Date.now,
    clearTimeout,
    setTimeout: (callback, delay) => {
      if (delay < 15_000) retries.push({ callback, delay });
      return setTimeout(callback, 1e8).unref();
    },
  };
  const bridge = await startBridge({
    environment: { ...home.environment, SONRA_BRIDGE_PORT: String(port) },
    clock,
    log: new Log({ append: (line) => lines.push(JSON.parse(line)) }),
  });
  t.after(() => bridge.close());
  assert.equal(bridge.port, undefined);
  const { msg, level, code } = lines.at(-1);
  assert.deepEqual({ msg, level, code }, { msg: 'bridge cannot listen', level: 40, code: 'EADDRINUSE' });
  retries.at(-1).callback();
  await until(() => retries.length === 2);
  assert.deepEqual(
    retries.map(({ delay }) => delay),
    [1000, 2000],
  );
  taken.close();
  await once(taken, 'close');
  retries.at(-1).callback();
  await until(() => bridge.port === port);
});

/** Another than the one that the bridge listens at by itself; a machine without a network has this one at least. */
function outerAddress() {
  return lanAddresses().find((address) => !address.startsWith('[')) ?? '127.0.0.2';
}

test('it listens to the local network only when told to, and keeps who is there', async (t) => {
  const home = await BridgeHome.start(t, { port: await quietPort() });
  const { port } = home.bridge;
  const stream = await listenTo(t, home, await home.pair());
  const outer = `http://${outerAddress()}:${port}/`;
  const reaches = async () => (await fetch(outer).catch(() => ({}))).status === 200;
  assert.equal(await reaches(), false);
  home.write('state.json', { bridgeLan: true });
  await until(reaches, { what: 'an answer at the outer address' });
  assert.equal(home.bridge.port, port);
  home.write('state.json', { bridgeLan: true, volume: 31 });
  await stream.until((picture) => picture.settings.volume === 31);
  home.write('state.json', { bridgeLan: 'yes', volume: 30 });
  await until(async () => !(await reaches()), { what: 'the outer address closed' });
  await stream.until((picture) => picture.settings.volume === 30);
  assert.equal(stream.ended, false);
});

test('the stored port is used, and followed', async (t) => {
  const [port, next] = [await quietPort(), await quietPort()];
  const home = await BridgeHome.start(t, { state: { bridgePort: port } });
  assert.notEqual(home.bridge.port, port, 'the environment wins');
  const bridge = await startBridge({ environment: { ...home.environment, SONRA_BRIDGE_PORT: '' }, log: silentLog });
  t.after(() => bridge.close());
  await until(() => bridge.port === port, { what: 'the stored port' });
  home.write('state.json', { bridgePort: next });
  await until(() => bridge.port === next, { what: 'the new port' });
  assert.equal((await fetch(`http://127.0.0.1:${next}/`)).status, 200);
  await assert.rejects(fetch(`http://127.0.0.1:${port}/`));
});

test('the daemon tells where the bridge is by now', async (t) => {
  const home = temporaryHome(t);
  const port = await quietPort();
  const taken = net.createServer().listen(port, '127.0.0.1');
  await once(taken, 'listening');
  fs.writeFileSync(home.inShared('state.json'), JSON.stringify({ bridgePort: port }));
  const parts = { bridge: ownParts.bridge };
  const daemon = new Daemon({ environment: home.environment, log: silentLog, parts });
  await daemon.start();
  t.after(() => daemon.stop());
  assert.equal(daemon.report().bridgePort, undefined);
  await once(taken.close(), 'close');
  await until(() => daemon.report().bridgePort === port, { what: 'the port' });
  assert.equal(daemon.report().bridgeLan, false);
  replaceFile(home.inShared('state.json'), JSON.stringify({ bridgePort: port, bridgeLan: true }));
  await until(() => daemon.report().bridgeLan === true, { what: 'the local network' });
});

test('the shared folder may go and come', async (t) => {
  const home = await BridgeHome.start(t, { clock: steppedClock() });
  const headers = await home.pair();
  const tokens = fs.readFileSync(home.inShared('bridge-tokens.json'));
  fs.rmSync(home.shared, { recursive: true });
  assert.equal((await home.command(headers, 'pause')).status, 401);
  assert.equal((await fetch(home.origin)).status, 200);
  home.clock.step(15_000);
  fs.writeFileSync(home.inShared('bridge-tokens.json'), tokens);
  assert.equal((await home.command(headers, 'pause')).status, 503, 'paired again');
  home.write('state.json', { bridgeLan: true });
  await until(() => home.bridge.lan === true, { what: 'the change in the new folder' });
});

test('in a home that is new, changes are seen as well', async (t) => {
  const { environment, shared } = temporaryHome(t);
  fs.rmSync(shared, { recursive: true });
  const lines = [];
  const bridge = await startBridge({
    environment: { ...environment, SONRA_BRIDGE_PORT: '0' },
    log: new Log({ append: (line) => lines.push(JSON.parse(line)) }),
  });
  t.after(() => bridge.close());
  assert.equal(fs.statSync(shared).mode & 0o777, 0o700);
  replaceFile(`${shared}/state.json`, '{"bridgeLan":true}');
  await until(() => lines.some(({ lan }) => lan === true), { what: 'the local network' });
});

test('closing ends everything', async (t) => {
  const home = await BridgeHome.start(t);
  const stream = await listenTo(t, home, await home.pair());
  await home.bridge.close();
  await until(() => stream.ended);
  assert.equal(home.bridge.port, undefined);
});

test('addresses to type: no loopback, no link-local, no container', () => {
  const row = (address, internal = false) => ({ address, internal });
  assert.deepEqual(
    lanAddresses({
      lo: [row('127.0.0.1', true), row('::1', true)],
      wlan0: [row('fd00::7'), row('fe80::1'), row('192.168.1.7')],
      docker0: [row('172.17.0.1')],
      eth0: [row('10.0.0.3'), row('169.254.3.4')],
      odd: undefined,
    }),
    ['192.168.1.7', '10.0.0.3', '[fd00::7]'],
  );
});
