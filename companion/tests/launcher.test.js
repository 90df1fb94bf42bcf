import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

import { daemonSocketPath } from '../lib/places.js';
import { temporaryHome } from './home.js';

const launcher = fileURLToPath(new URL('../tts', import.meta.url));

/** The launcher reads no folder but its own and those of Node.js, so a copy with other names stands for other systems. */
function withNodesAt(home, nodes) {
  const folder = path.join(home.home, 'a b');
  fs.mkdirSync(path.join(folder, 'lib/cli'), { recursive: true });
  const text = fs.readFileSync(launcher, 'utf8').replace(/^run (\S*\/node) /gm, (line, node) => line.replace(node, nodes + node));
  fs.writeFileSync(path.join(folder, 'tts'), text, { mode: 0o755 });
  fs.writeFileSync(path.join(folder, 'lib/cli/main.js'), '');
  return path.join(folder, 'tts');
}

function fakeNode(file) {
  fs.mkdirSync(path.dirname(file), { recursive: true });
  fs.writeFileSync(file, `#!/bin/sh\necho "$0" "$@"\n`, { mode: 0o755 });
  return file;
}

const run = (file, args, environment) => spawnSync(file, args, { env: environment, encoding: 'utf8' });

test('it runs through links, from any folder, with its words as they are', (t) => {
  const home = temporaryHome(t);
  fs.mkdirSync(path.join(home.home, 'bin'));
  fs.symlinkSync(path.relative(path.join(home.home, 'bin'), launcher), path.join(home.home, 'bin/second'));
  fs.symlinkSync('second', path.join(home.home, 'bin/tts'));
  const { status, stdout } = spawnSync('bin/tts', ['lexicon', 'add', 'a  b', ''],
    { cwd: home.home, env: home.environment, encoding: 'utf8' });
  assert.deepEqual([status, stdout], [0, '"a b" is left out.\n']);
  assert.equal(JSON.parse(fs.readFileSync(home.inShared('profile.json'), 'utf8')).lexicon[0].match, 'a  b');
});

test('it runs as a word of the shell in its own folder', (t) => {
  const home = temporaryHome(t);
  const { status, stdout } = spawnSync('sh', ['tts', '--version'],
    { cwd: path.dirname(launcher), env: home.environment, encoding: 'utf8' });
  assert.equal(status, 0);
  assert.match(stdout, /^tts \d/);
});

test('it finds Node.js where the service does: the usual places, nvm\'s default, PATH', (t) => {
  const home = temporaryHome(t);
  const file = withNodesAt(home, path.join(home.home, 'root'));
  const environment = { HOME: home.home, PATH: `${home.home}/bin` };
  const none = run(file, [], { ...environment, PATH: '/nowhere' });
  assert.equal(none.status, 69);
  assert.match(none.stderr, /^tts: Node\.js was not found/);
  const found = () => run(file, ['x y'], environment).stdout.split(' ')[0];
  const onPath = fakeNode(path.join(home.home, 'bin/node'));
  assert.equal(found(), onPath);
  const alias = path.join(home.home, '.nvm/alias');
  fs.mkdirSync(path.join(alias, 'lts'), { recursive: true });
  fs.writeFileSync(path.join(alias, 'default'), 'lts/iron\n');
  fs.writeFileSync(path.join(alias, 'lts/iron'), '20.11.0\n');
  assert.equal(found(), onPath);
  const nvm = fakeNode(path.join(home.home, '.nvm/versions/node/v20.11.0/bin/node'));
  assert.equal(found(), nvm);
  for (const place of ['/usr/bin/node', '/usr/local/bin/node', '/opt/homebrew/bin/node']) {
    const node = fakeNode(path.join(home.home, 'root', place));
    assert.equal(found(), node);
  }
  assert.match(run(file, ['x y'], environment).stdout, /a b\/lib\/cli\/main\.js x y\n$/);
});

test('a reader that goes away is no failure', async (t) => {
  const home = temporaryHome(t);
  const child = spawn(launcher, ['help'], { env: home.environment, stdio: ['ignore', 'pipe', 'pipe'] });
  child.stdout.destroy();
  let errors = '';
  child.stderr.on('data', (bytes) => { errors += bytes; });
  const code = await new Promise((resolve) => { child.on('close', resolve); });
  assert.deepEqual([code, errors], [0, '']);
});

/** Something at the daemon's socket that says it lives. */
async function fakeDaemon(t, home) {
  const server = net.createServer((socket) => {
    // Whoever has waited too long has gone, and asks again.
    socket.on('error', () => {}).end(`${JSON.stringify({ pid: process.pid, bridgePort: 7842 })}\n`);
  });
  server.listen(daemonSocketPath(home.environment));
  await once(server, 'listening');
  t.after(() => server.close());
}

for (const [name, status] of [['SIGINT', 130], ['SIGTERM', 143], ['SIGHUP', 129]]) {
  test(`${name} while a code is shown voids the code`, async (t) => {
    const home = temporaryHome(t);
    await fakeDaemon(t, home);
    const child = spawn(launcher, ['pair', '--wait'], { env: home.environment });
    t.after(() => child.kill('SIGKILL'));
    let output = '';
    let isTold = false;
    child.stdout.on('data', (bytes) => {
      output += bytes;
      // Once, however many pieces the words come in.
      if (!isTold && output.includes('valid until')) isTold = child.kill(name);
    });
    let errors = '';
    child.stderr.on('data', (bytes) => { errors += bytes; });
    const [code] = await once(child, 'close');
    assert.equal(code, status, errors);
    assert.match(errors, /tts: Given up; the code is void\.\n$/);
    assert.deepEqual(fs.readdirSync(home.shared).filter((file) => !file.endsWith('.sock')), []);
  });
}

/** Runs a program as a shell does in a terminal, closes that once the code is shown, and tells how the program ended. */
const inTerminal = `
import fcntl, os, pty, subprocess, sys, termios
outside, inside = pty.openpty()
def lead():
    os.setsid()
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)
program = subprocess.Popen(sys.argv[1:], stdin=inside, stdout=inside, stderr=inside, preexec_fn=lead)
os.close(inside)
said = b""
while b"valid until" not in said:
    said += os.read(outside, 4096)
os.close(outside)
print(program.wait(20))
`;

test('a terminal that is closed while a code is shown voids the code, and nothing aborts', async (t) => {
  const home = temporaryHome(t);
  await fakeDaemon(t, home);
  const child = spawn('python3', ['-c', inTerminal, launcher, 'pair'], { env: home.environment });
  t.after(() => child.kill('SIGKILL'));
  let [output, errors] = ['', ''];
  child.stdout.on('data', (bytes) => { output += bytes; });
  child.stderr.on('data', (bytes) => { errors += bytes; });
  await once(child, 'close');
  assert.equal(output, '-1\n', errors);
  assert.deepEqual(fs.readdirSync(home.shared).filter((file) => !file.endsWith('.sock')), []);
});
