// How the program ends when it is interrupted, or when nobody can have what it says.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

import { writeState } from './commandLine.js';
import { fakeService } from './fakeService.js';
import { temporaryHome, until } from './home.js';

const main = fileURLToPath(new URL('../lib/cli/main.js', import.meta.url));

for (const [signal, status] of [['SIGINT', 130], ['SIGTERM', 143], ['SIGHUP', 129]]) {
  test(`${signal} ends a command that waits at once, with ${status}`, async (t) => {
    const home = temporaryHome(t);
    const { lines } = await fakeService(t, home, 'ignores');
    writeState(home, { sessions: [{ id: 'aaaa', cwd: '/srv/a' }] });
    const before = fs.readFileSync(home.inShared('state.json'), 'utf8');
    const child = spawn(process.execPath, [main, 'off'], { env: home.environment });
    const ended = once(child, 'close');
    let said = '';
    child.stderr.on('data', (bytes) => { said += bytes; });
    await until(() => lines.length, { limit: 30_000, what: 'the command' });
    child.kill(signal);
    const [code] = await ended;
    assert.deepEqual([code, said], [status, '']);
    assert.deepEqual(fs.readdirSync(home.shared).sort(), ['service.sock', 'state.json']);
    assert.equal(fs.readFileSync(home.inShared('state.json'), 'utf8'), before);
  });
}

test('a lock that is held is let go whatever signal comes', async (t) => {
  for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
    const home = temporaryHome(t);
    const child = spawn(process.execPath, ['--input-type=module', '-e', `
      import { interruptible } from ${JSON.stringify(new URL('../lib/cli/interruption.js', import.meta.url).href)};
      import { acquire } from ${JSON.stringify(new URL('../lib/stateLock.js', import.meta.url).href)};
      interruptible();
      await acquire(process.argv[1]);
      setTimeout(() => {}, 60_000);
      console.log('held');`, home.inShared('profile.json')], { env: home.environment, stdio: ['ignore', 'pipe', 'inherit'] });
    t.after(() => child.kill('SIGKILL'));
    const ended = once(child, 'close');
    await once(child.stdout, 'data');
    assert.ok(fs.existsSync(home.inShared('profile.json.lock')));
    child.kill(signal);
    await ended;
    assert.equal(fs.existsSync(home.inShared('profile.json.lock')), false, signal);
  }
});

test('a lock that is waited for is not left behind', async (t) => {
  const home = temporaryHome(t);
  fs.writeFileSync(home.inShared('state.json.lock'), String(process.pid));
  const watcher = fs.watch(home.shared);
  t.after(() => watcher.close());
  const child = spawn(process.execPath, [main, 'mute'], { env: home.environment, stdio: 'ignore' });
  const ended = once(child, 'close');
  await once(watcher, 'change');
  child.kill('SIGINT');
  const [code] = await ended;
  assert.equal(code, 130);
  assert.deepEqual(fs.readdirSync(home.shared), ['state.json.lock']);
});

test('a result that cannot be written is a failure; a reader that has gone is none', (t) => {
  const { environment, home } = temporaryHome(t);
  const full = fs.openSync('/dev/full', 'w');
  t.after(() => fs.closeSync(full));
  const run = (stdio, words = ['voice']) =>
    spawnSync(process.execPath, [main, ...words], { env: environment, cwd: home, stdio, encoding: 'utf8' });
  const lost = run(['ignore', full, 'pipe']);
  assert.deepEqual([lost.status, lost.stderr], [1, "tts: The result couldn't be written: ENOSPC.\n"]);
  assert.equal(run(['ignore', 'pipe', full], ['pasue']).status, 2);
  const gone = spawnSync('sh', ['-c', '{ "$0" "$@"; echo "$?" >&2; } | true', process.execPath, main, 'voice'],
    { env: environment, encoding: 'utf8' });
  assert.equal(gone.stderr, '0\n');
});
