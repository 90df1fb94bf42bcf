import assert from 'node:assert/strict';
import fs from 'node:fs';
import net from 'node:net';
import test from 'node:test';

import { mintCode, removeCode, identityOf, readCode } from '../lib/bridge/pairCode.js';
import { Pairing } from '../lib/bridge/pairing.js';
import { readPicture } from '../lib/bridge/picture.js';
import { BridgeSettings, defaultPort } from '../lib/bridge/settings.js';
import { TokenStore } from '../lib/bridge/tokens.js';
import { Log, silentLog } from '../lib/log.js';
import { daemonPidPath, pairCodePath, tokensPath } from '../lib/places.js';
import { quietClock, steppedClock } from './bridgeClock.js';
import { BridgeHome, snapshot } from './bridgeHome.js';
import { quietPort } from './bridgePorts.js';
import { listenTo } from './bridgeStream.js';
import { temporaryHome } from './home.js';

/** Lets the next reading of `file` fail, as it does when the process has too many files open. */
function failNextReading(t, file) {
  const real = fs.readFileSync;
  const mock = t.mock.method(fs, 'readFileSync', (...all) => {
    if (all[0] !== file) return real(...all);
    mock.mock.restore();
    throw Object.assign(new Error('EMFILE: too many open files'), { code: 'EMFILE' });
  });
}

/** Does `act` right after the next reading of `file`. */
function afterNextReading(t, file, act) {
  const real = fs.readFileSync;
  const mock = t.mock.method(fs, 'readFileSync', (...all) => {
    const content = real(...all);
    if (all[0] === file) {
      mock.mock.restore();
      act();
    }
    return content;
  });
}

test('where the files lie that the service shares', () => {
  const environment = { HOME: '/home/me' };
  assert.equal(pairCodePath(environment), '/home/me/.claude/tts/active-pair-code.json');
  assert.equal(tokensPath(environment), '/home/me/.claude/tts/bridge-tokens.json');
  assert.equal(daemonPidPath(environment), '/home/me/.claude/tts/daemon.pid');
});

test('one reading that fails makes nobody a stranger', async (t) => {
  const home = await BridgeHome.start(t, { clock: quietClock() });
  const headers = await home.pair();
  const stream = await listenTo(t, home, headers);
  await stream.until(() => true);
  const document = home.read('bridge-tokens.json');
  failNextReading(t, home.inShared('bridge-tokens.json'));
  // Changed, so that it has to be read; it is the watch or the request that finds it unreadable.
  home.write('bridge-tokens.json', document);
  const errorOf = async () => (await (await home.command(headers, 'pause')).json()).error;
  const first = await errorOf();
  assert.ok(['devices-unreadable', 'service-not-running'].includes(first), first);
  assert.equal(await errorOf(), 'service-not-running');
  assert.equal(stream.ended, false);
});

test('while the devices cannot be read nobody is let in, nor told that he is not paired', async (t) => {
  const lines = [];
  const log = new Log({ append: (line) => lines.push(JSON.parse(line)) });
  const home = await BridgeHome.start(t, { log });
  const headers = await home.pair();
  const stream = await listenTo(t, home, headers);
  await stream.until(() => true);
  const file = home.inShared('bridge-tokens.json');
  const content = fs.readFileSync(file, 'utf8');
  for (const spoil of [
    () => home.write('bridge-tokens.json', '{"tokens":[{"label"'),
    () => { fs.rmSync(file); fs.mkdirSync(file); },
    () => { fs.rmSync(file, { recursive: true }); fs.symlinkSync(file, file); },
  ]) {
    spoil();
    for (let i = 0; i < 2; i += 1) {
      const answer = await home.command(headers, 'pause');
      assert.deepEqual([answer.status, (await answer.json()).error], [503, 'devices-unreadable']);
    }
    assert.equal((await fetch(home.origin)).status, 200, 'the page is there');
  }
  assert.equal(lines.filter(({ msg }) => msg === 'bridge cannot read who is paired').length, 1);
  fs.rmSync(file);
  home.write('bridge-tokens.json', content);
  assert.equal((await (await home.command(headers, 'pause')).json()).error, 'service-not-running');
  assert.equal(stream.ended, false);
  home.write('bridge-tokens.json', '');
  assert.equal((await home.command(headers, 'pause')).status, 401, 'an empty file holds nobody');
});

test('a note or a removal never begins a list anew that nobody can read', async (t) => {
  const home = temporaryHome(t);
  const tokens = new TokenStore({ ...home, log: silentLog, clock: quietClock(), onRemoved() {} });
  const device = tokens.deviceOf((await tokens.add('Phone')).token);
  const torn = '{"tokens":[{"label"';
  fs.writeFileSync(home.inShared('bridge-tokens.json'), torn);
  await tokens.touch('another');
  assert.equal(fs.readFileSync(home.inShared('bridge-tokens.json'), 'utf8'), torn);
  await assert.rejects(tokens.remove(device), /cannot be read/);
  assert.equal(fs.readFileSync(home.inShared('bridge-tokens.json'), 'utf8'), torn);
  // The one way out for somebody who can't mend the file.
  await tokens.add('New phone');
  assert.equal(fs.readFileSync(home.inShared('bridge-tokens.json.unreadable'), 'utf8'), torn);
});

test('a state document that cannot be read moves nothing', async (t) => {
  const port = await quietPort();
  const { environment, inShared } = temporaryHome(t);
  const settings = new BridgeSettings(environment);
  const write = (text) => fs.writeFileSync(inShared('state.json'), text);
  write('{"bridgePo');
  assert.deepEqual(settings.read(), { port: defaultPort, lan: false });
  write(JSON.stringify({ bridgePort: port, bridgeLan: true }));
  assert.deepEqual(settings.read(), { port, lan: true });
  for (const text of ['', '{', '[]', '{"bridgeLan":']) {
    write(text);
    assert.deepEqual(settings.read(), { port, lan: true }, text);
  }
  failNextReading(t, inShared('state.json'));
  assert.deepEqual(settings.read(), { port, lan: true });
  write('{"bridgeLan":true}');
  assert.deepEqual(settings.read(), { port: defaultPort, lan: true });
  fs.rmSync(inShared('state.json'));
  assert.deepEqual(settings.read(), { port: defaultPort, lan: false });
});

test('a state document that is written in place leaves the bridge where it is', async (t) => {
  const lines = [];
  const log = new Log({ append: (line) => lines.push(JSON.parse(line)) });
  const home = await BridgeHome.start(t, { state: { bridgeLan: true, volume: 40 }, log });
  const stream = await listenTo(t, home, await home.pair());
  await stream.until((picture) => picture.settings.volume === 40);
  fs.writeFileSync(home.inShared('state.json'), '{"bridgeLan":tr');
  await stream.until((picture) => picture.settings.volume === 100);
  assert.equal(home.bridge.lan, true);
  home.write('state.json', { bridgeLan: true, volume: 41 });
  await stream.until((picture) => picture.settings.volume === 41);
  assert.equal(lines.filter(({ msg }) => msg === 'bridge listening').length, 1);
});

test('a new code stands, whatever is noted of the old one meanwhile', async (t) => {
  const { environment, inShared } = temporaryHome(t);
  const clock = steppedClock();
  const tokens = new TokenStore({ environment, log: silentLog, clock, onRemoved: () => {} });
  const pairing = new Pairing({ environment, log: silentLog, clock, tokens });
  const file = inShared('active-pair-code.json');
  const mint = (number) => mintCode({ environment, now: clock.time, random: () => number });
  mint(111_111);
  const before = fs.statSync(file).ino;
  assert.equal((await pairing.attempt('000000', 'x')).outcome, 'refused');
  assert.equal(fs.statSync(file).ino, before, 'a wrong try leaves the file alone');
  assert.deepEqual(Object.keys(JSON.parse(fs.readFileSync(file, 'utf8'))), ['code', 'expiresAt']);
  assert.equal(fs.statSync(`${file}.tries`).mode & 0o777, 0o600);
  clock.step(1000);
  // The right one is shown, and in the moment in which it is removed the service mints another.
  const real = fs.renameSync;
  const mock = t.mock.method(fs, 'renameSync', (...all) => {
    if (all[0] === file) {
      mock.mock.restore();
      mint(222_222);
    }
    return real(...all);
  });
  assert.equal((await pairing.attempt('111111', 'x')).outcome, 'paired');
  assert.equal(readCode(environment).code, '222222');
  clock.step(1000);
  assert.equal((await pairing.attempt('222222', 'x')).outcome, 'paired');
  assert.equal(fs.existsSync(file), false);
  assert.deepEqual(fs.readdirSync(inShared('')).filter((name) => name.startsWith('active')), ['active-pair-code.json.tries']);
});

test('a code that comes while another is being removed stays', (t) => {
  const { environment, inShared } = temporaryHome(t);
  const mint = (number) => mintCode({ environment, random: () => number });
  const old = mint(111_111);
  afterNextReading(t, inShared('active-pair-code.json'), () => mint(222_222));
  removeCode(identityOf(old), environment);
  assert.equal(readCode(environment).code, '222222');
  removeCode(identityOf(old), environment);
  assert.equal(readCode(environment).code, '222222');
  const second = readCode(environment);
  afterNextReading(t, inShared('active-pair-code.json'), () => fs.rmSync(inShared('active-pair-code.json')));
  removeCode(identityOf(second), environment);
  assert.equal(readCode(environment), undefined);
});

test('whose words they are: who is heard, else the first that is attached, else the first that was found', (t) => {
  const { environment, inShared } = temporaryHome(t);
  const shown = (state, sessionId) => {
    fs.writeFileSync(inShared('state.json'), JSON.stringify(state));
    fs.writeFileSync(inShared('now-playing.json'), JSON.stringify(snapshot({ sessionId })));
    return readPicture({ environment, service: true }).shown.session;
  };
  const sessions = [{ id: 'a', source: 'pi', cwd: '/x/one' }, { id: 'b', source: 'codex', cwd: '/x/two', branch: 'main' }];
  const discoveredSessions = [7, { id: 'c', source: 'gemini', cwd: '/x/three', title: 'Three' }];
  const row = (source, project, branch = '', title = '') => ({ source, project, branch, title });
  assert.deepEqual(shown({ sessions, discoveredSessions }, 'b'), row('codex', 'two', 'main'));
  assert.deepEqual(shown({ sessions, discoveredSessions }, 'gone'), row('pi', 'one'));
  assert.deepEqual(shown({ sessions: [], discoveredSessions }, 'b'), row('gemini', 'three', '', 'Three'));
  assert.deepEqual(shown({}, 'b'), row('claude-code', ''));
});

for (const code of ['EAFNOSUPPORT', 'EADDRNOTAVAIL']) {
  test(`a machine without IPv6 (${code}) lets the local network in by IPv4`, async (t) => {
    const real = net.Server.prototype.listen;
    const asked = [];
    t.mock.method(net.Server.prototype, 'listen', function listen(options, ...rest) {
      asked.push(options.host);
      if (options.host !== '::') return real.call(this, options, ...rest);
      process.nextTick(() => this.emit('error', Object.assign(new Error(code), { code })));
      return this;
    });
    const home = await BridgeHome.start(t, { state: { bridgeLan: true } });
    assert.deepEqual(asked, ['::', '0.0.0.0']);
    assert.equal(home.bridge.lan, true);
    assert.equal((await fetch(`http://127.0.0.2:${home.bridge.port}/`)).status, 200);
  });
}
