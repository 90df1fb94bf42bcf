import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import test from 'node:test';

import { duration } from '../lib/ctl/status.js';
import { SharedDocument } from '../lib/sharedDocument.js';
import { ctl, ctlScript, daemonHome, pidFile } from './daemonProcess.js';
import { temporaryHome } from './home.js';

test('help and version go to standard output and end with 0', async (t) => {
  const home = temporaryHome(t);
  const helped = await ctl(home, ['--help']);
  assert.deepEqual([helped.code, helped.stderr], [0, '']);
  for (const word of ['standby', 'stop-daemon', 'status', 'install', 'uninstall', 'captions on|off', 'diag', '--json']) {
    assert.ok(helped.stdout.includes(word), word);
  }
  assert.match((await ctl(home, ['status', '--version'])).stdout, /^sonra-ctl \d+\.\d+\.\d+\n$/);
});

test('what is not understood gets one sentence and ends with 2', async (t) => {
  const home = temporaryHome(t);
  const lines = [[], ['stand'], ['toString'], ['--jason', 'status'], ['status', 'now'], ['captions'], ['captions', 'maybe'],
    ['captions', 'on', 'off'], ['--', '--help'], ['captions', '--', '--json']];
  for (const args of lines) {
    const { code, stdout, stderr } = await ctl(home, args);
    assert.deepEqual([args, code, stdout], [args, 2, '']);
    assert.match(stderr, /^ctl\.js: [^\n]+\.\n$/);
  }
  assert.deepEqual(fs.readdirSync(home.shared), []);
});

test('a program that asked for facts gets an object also when it fails', async (t) => {
  const home = temporaryHome(t);
  fs.mkdirSync(home.inShared('state.json'));
  for (const [args, code, error] of [[['--json'], 2, 'usage'], [['stand', '--json'], 2, 'usage'],
    [['captions', 'on', '--json'], 1, 'failed']]) {
    const ended = await ctl(home, args);
    const { message, ...facts } = JSON.parse(ended.stdout);
    assert.deepEqual([ended.code, facts], [code, { ok: false, error, exit: code }]);
    assert.equal(ended.stderr, `ctl.js: ${message}\n`);
  }
});

test('options may stand before any word', async (t) => {
  const home = temporaryHome(t);
  for (const args of [['status'], ['stop-daemon'], ['uninstall'], ['captions', 'on'], ['diag', '--out', `${home.home}/a.zip`]]) {
    const { code, stdout } = await ctl(home, ['--json', ...args]);
    assert.deepEqual([args, code], [args, 0]);
    assert.equal(typeof JSON.parse(stdout), 'object');
  }
});

test('captions are turned on and off in the shared document, and nothing else is', async (t) => {
  const home = temporaryHome(t);
  fs.writeFileSync(home.inShared('state.json'), '{"captions":true,"speed":1.0,"theirs":[1]}');
  assert.deepEqual(await ctl(home, ['captions', 'off']), { code: 0, stdout: 'Captions are off.\n', stderr: '' });
  assert.equal(fs.readFileSync(home.inShared('state.json'), 'utf8'), '{\n  "captions": false,\n  "speed": 1.0,\n  "theirs": [1]\n}');
  assert.equal((await ctl(home, ['--json', 'captions', 'on'])).stdout, '{"captions":true}\n');
  assert.equal(SharedDocument.read(home.inShared('state.json')).get('captions'), true);
});

test('install and uninstall say what they did', async (t) => {
  const home = temporaryHome(t);
  const environment = { SONRA_PROGRAM: process.execPath };
  const entry = `${home.home}/.config/autostart/dev.trelnivorn.sonra.desktop`;
  assert.equal((await ctl(home, ['install'], { environment })).stdout,
    `${process.execPath} starts at login from now on (${entry}).\n`);
  assert.match((await ctl(home, ['status'])).stdout, /^start at login: on$/m);
  fs.appendFileSync(entry, 'Hidden=true\n');
  assert.match((await ctl(home, ['status'])).stdout, /^start at login: turned off in the desktop's settings$/m);
  assert.equal((await ctl(home, ['uninstall'])).stdout, 'Sonra no longer starts at login.\n');
  assert.match((await ctl(home, ['status'])).stdout, /^start at login: off$/m);
  assert.deepEqual(await ctl(home, ['install'], { environment: { SONRA_PROGRAM: '/none' } }),
    { code: 1, stdout: '', stderr: 'ctl.js: /none is no program that can be started.\n' });
});

test('uninstall names the launch agent that remains', async (t) => {
  const home = temporaryHome(t);
  const agent = `${home.home}/Library/LaunchAgents/dev.trelnivorn.sonra.plist`;
  fs.mkdirSync(`${home.home}/Library/LaunchAgents`, { recursive: true });
  fs.writeFileSync(agent, '');
  assert.equal((await ctl(home, ['uninstall'])).stdout,
    `There is no entry, but ${agent} remains, which counts as start at login; remove it to turn that off.\n`);
  assert.deepEqual(JSON.parse((await ctl(home, ['uninstall', '--json'])).stdout),
    { installed: true, removed: false, launchAgent: agent });
  assert.match((await ctl(home, ['status'])).stdout, /^start at login: on$/m);
});

test('status of a home where nothing runs', async (t) => {
  const { code, stdout } = await ctl(temporaryHome(t), ['status', '--json']);
  assert.equal(code, 0);
  assert.deepEqual(JSON.parse(stdout), {
    daemon: { alive: false }, service: { running: false }, sessions: { attached: 0, discovered: 0 },
    bridge: { port: null, pairedDevices: 0 }, autostart: { installed: false, enabled: false } });
});

test('status of a home where nothing can be read', async (t) => {
  const home = temporaryHome(t);
  fs.writeFileSync(`${home.home}/.config`, '');
  for (const name of ['state.json', 'sonra.lock', 'bridge-tokens.json', 'daemon.pid', 'daemon.end']) fs.mkdirSync(home.inShared(name));
  const server = net.createServer((socket) => socket.resume()).listen(home.inShared('service.sock'));
  await once(server, 'listening');
  t.after(() => server.close());
  const { code, stdout, stderr } = await ctl(home, ['status']);
  assert.deepEqual([code, stderr], [0, '']);
  assert.match(stdout, /^service: +running \(process unknown\)$/m);
  assert.match(stdout, /^bridge: +not running, paired devices unknown$/m);
  assert.equal(JSON.parse((await ctl(home, ['status', '--json'])).stdout).bridge.pairedDevices, null);
  assert.match(stdout, /^start at login: off$/m);
});

test('status of a home where all runs', async (t) => {
  const home = daemonHome(t);
  const server = net.createServer((socket) => socket.resume()).listen(home.inShared('service.sock'));
  await once(server, 'listening');
  t.after(() => server.close());
  fs.writeFileSync(home.inShared('sonra.lock'), '4711\n');
  const token = { label: 'Phone', createdAt: 1, token: 's3cret' };
  fs.writeFileSync(home.inShared('bridge-tokens.json'), JSON.stringify({ tokens: [token, { label: 'broken' }, null] }));
  fs.writeFileSync(home.inShared('state.json'), JSON.stringify({ sessions: [{ id: 'a', cwd: '/x' }] }));
  await ctl(home, ['standby']);
  const { stdout } = await ctl(home, ['status', '--json']);
  const facts = JSON.parse(stdout);
  assert.equal(stdout.includes('s3cret'), false);
  assert.deepEqual([facts.daemon.alive, facts.daemon.pid], [true, pidFile(home)]);
  assert.ok(facts.daemon.memory.rss > 10_000_000 && facts.daemon.uptimeSeconds < 60);
  assert.deepEqual([facts.service, facts.sessions.attached, facts.bridge.pairedDevices], [{ running: true, pid: 4711 }, 1, 1]);
  const words = (await ctl(home, ['status'])).stdout;
  assert.match(words, /^daemon: +running \(process \d+, \d+ s, \d+ MB\)/m);
  assert.match(words, /^service: +running \(process 4711\)$/m);
  assert.match(words, /1 paired device$/m);
});

test('a reader that goes away is no trouble', async (t) => {
  const home = temporaryHome(t);
  const child = spawn(process.execPath, [ctlScript, '--help'], { env: home.environment, stdio: ['ignore', 'pipe', 'pipe'] });
  child.stdout.destroy();
  let errors = '';
  child.stderr.on('data', (bytes) => { errors += bytes; });
  assert.deepEqual([(await once(child, 'exit'))[0], errors], [0, '']);
});

test('durations are told in the largest units that matter', () => {
  assert.deepEqual([59, 60, 3599, 3725, 360_000].map(duration), ['59 s', '1 min', '59 min', '1 h 2 min', '100 h 0 min']);
});
