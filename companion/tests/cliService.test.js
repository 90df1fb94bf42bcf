// The command line against the built service and the real daemon, in a home of their own.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

import { serviceLogPath } from '../lib/places.js';
import { readState } from './commandLine.js';
import { temporaryHome, until } from './home.js';

const launcher = fileURLToPath(new URL('../tts', import.meta.url));
const program = process.env.SONRA_PROGRAM ?? fileURLToPath(new URL('../../build/bin/sonra', import.meta.url));
const session = '0b6f7f1d-aaaa-4b57-9a3a-5f0c2a516d0e';

/** A home in which a session of Claude Code's has just said something. */
function inhabited(t, more) {
  const home = temporaryHome(t);
  Object.assign(home.environment, {
    SONRA_PROGRAM: program, QT_QPA_PLATFORM: 'offscreen', PULSE_SERVER: '/nowhere', SONRA_BRIDGE_PORT: '0', ...more,
  });
  const cwd = path.join(home.home, 'proj');
  const folder = path.join(home.home, '.claude/projects', cwd.replaceAll('/', '-'));
  fs.mkdirSync(folder, { recursive: true });
  fs.mkdirSync(path.join(cwd, 'src'), { recursive: true });
  const common = { cwd, sessionId: session, gitBranch: 'main', timestamp: new Date().toISOString() };
  const lines = [
    { type: 'user', uuid: 'u1', message: { role: 'user', content: 'Repair the build, please' }, ...common },
    { type: 'assistant', uuid: 'u2', ...common,
      message: { id: 'm1', role: 'assistant', content: [{ type: 'text', text: 'The build is repaired now.' }] } },
  ];
  fs.writeFileSync(path.join(folder, `${session}.jsonl`), lines.map((line) => `${JSON.stringify(line)}\n`).join(''));
  const call = (...words) => spawnSync(launcher, words, { env: home.environment, cwd: path.join(cwd, 'src'), encoding: 'utf8' });
  return { ...home, call, json: (...words) => JSON.parse(call(...words, '--json').stdout) };
}

/** Whatever the body leaves running is ended, before the home goes, by the command that is made for that. */
function testInHome(name, more, body) {
  test(name, async (t) => {
    const home = inhabited(t, more);
    try {
      await body(home);
    } finally {
      home.call('quit');
    }
  });
}

const alone = { TTS_DISABLE_CTL: '1' };

const logShows = (home, words) => until(() => {
  const log = serviceLogPath(home.environment);
  return fs.existsSync(log) && fs.readFileSync(log, 'utf8').includes(`"msg":"${words}"`);
}, { limit: 30_000, what: `"${words}" in the log` });

const stateShows = (home, key, value) =>
  until(() => readState(home)[key] === value, { limit: 30_000, what: `${key} ${value}` });

testInHome('a session is attached, steered and detached', alone, async (home) => {
  assert.equal(home.call('status').status, 69);
  assert.equal(home.call('on', '--here').status, 69);
  const started = home.call('start');
  assert.deepEqual([started.status, started.stdout], [0, 'Started.\n'], started.stderr);
  assert.equal(home.call('start').stdout, 'It is running already.\n');

  const on = home.call('on', '--here');
  assert.deepEqual([on.status, on.stdout], [0, 'Attached: Claude Code in ~/proj (0b6f7f1d).\n'], on.stderr);
  assert.equal(home.call('on', '--session', '0b6f').stdout, 'Already attached: Claude Code in ~/proj (0b6f7f1d).\n');
  await until(() => home.json('on').confirmed, { limit: 30_000, what: "the service's word" });
  const [row] = home.json('status').sessions;
  assert.deepEqual([row.id, row.source, row.branch], [session, 'claude-code', 'main']);

  assert.equal(home.call('pause').status, 0);
  await stateShows(home, 'paused', true);
  assert.equal(home.call('resume').status, 0);
  await stateShows(home, 'paused', false);
  assert.equal(home.json('volume', '-60').volume, 40);
  assert.deepEqual([readState(home).volume, home.json('status').settings.volume], [40, 40]);

  assert.equal(home.call('off').stdout, 'Detached: Claude Code in ~/proj (0b6f7f1d).\n');
  assert.deepEqual(home.json('status').sessions, []);
  assert.equal(home.call('quit').stdout, 'Ended.\n');
  assert.equal(home.json('status').service.running, false);
});

testInHome('what the service refuses is told in its words', alone, async (home) => {
  const folder = path.join(home.home, '.claude/projects');
  const [project] = fs.readdirSync(folder);
  const row = { sessionId: 'x', cwd: 'relative', source: 'claude-code', mtimeMs: Date.now(),
    transcript: path.join(folder, project, `${session}.jsonl`) };
  assert.equal(home.call('--start').status, 0);
  // A row that only a hand could have written, kept by what says it is the daemon.
  const program = `
    import { run } from ${JSON.stringify(new URL('../lib/cli/main.js', import.meta.url).href)};
    const findSessions = async () => [${JSON.stringify(row)}];
    process.exitCode = await run(['on'], { neighbours: { findSessions, daemonStatus: async () => ({ alive: false }) } });`;
  const { status, stderr } = spawnSync(process.execPath, ['--input-type=module', '-e', program],
    { env: home.environment, encoding: 'utf8' });
  assert.equal(status, 1);
  assert.match(stderr, /isn't attached\. The service says: attach: invalid cwd, expected absolute path without '\.\.'\.\n$/);
});

testInHome('start brings up the daemon as well, which finds the lone session; quit ends both', {}, async (home) => {
  const started = home.call('start', '--json');
  assert.deepEqual(JSON.parse(started.stdout), { ok: true, service: 'started', daemon: true }, started.stderr);
  const report = await until(() => {
    const now = home.json('status');
    return now.sessions.length && now;
  }, { limit: 60_000, what: 'the session attached by itself' });
  assert.deepEqual([report.service.running, report.daemon.running, report.sessions[0].id], [true, true, session]);
  assert.deepEqual(report.discovered.map(({ id, attached }) => [id, attached]), [[session, true]]);
  assert.deepEqual(home.json('quit'), { ok: true, wasRunning: true });
  const after = home.json('status');
  assert.deepEqual([after.service.running, after.daemon.running], [false, false]);
});

testInHome('a bundle of a running service is made', alone, async (home) => {
  const on = home.call('on', '--start');
  assert.deepEqual([on.status, on.stdout], [0, 'Attached: Claude Code in ~/proj (0b6f7f1d).\n'], on.stderr);
  // Its log is written by a thread of its own.
  await logShows(home, 'native tailer started (forward-only)');
  const { path: file, files } = home.json('diag', '--out=~/x.zip');
  assert.equal(file, path.join(home.home, 'x.zip'));
  assert.ok(files.includes('logs/sonra.ndjson'));
  const unzipped = spawnSync('unzip', ['-p', file], { encoding: 'utf8' });
  assert.match(unzipped.stdout, /"msg":"native tailer started \(forward-only\)"/);
  for (const word of ['repaired now', 'Repair the build', home.home]) assert.equal(unzipped.stdout.includes(word), false, word);
  assert.equal(spawnSync('unzip', ['-tq', file]).status, 0);
});

testInHome('a device pairs by the code that is shown, at the address that is shown', {}, async (home) => {
  const child = spawn(launcher, ['pair', '--wait'], { env: home.environment });
  let shown = '';
  let said = '';
  child.stdout.on('data', (bytes) => { shown += bytes; });
  child.stderr.on('data', (bytes) => { said += bytes; });
  let ended;
  const closed = once(child, 'close').then(([exit]) => { ended = `it ended with ${exit}`; return exit; });
  try {
    // The daemon may take 20 s to start, and its bridge a few more.
    const code = await until(() => /code: (\d{6})/.exec(shown)?.[1] ?? ended, { limit: 30_000, what: 'the code' })
      .catch((error) => { throw new Error(`${error.message}; it said: ${said}`); });
    assert.match(code, /^\d{6}$/, said);
    const [, address] = /phone: (\S+)/.exec(shown);
    const request = (tried) => fetch(new URL('api/pair', address), {
      method: 'POST', headers: { 'content-type': 'application/json' }, body: JSON.stringify({ code: tried, label: 'Pixel' }),
    });
    const answer = await request(code);
    assert.equal(answer.status, 200);
    assert.equal(await closed, 0, said);
    assert.match(shown, /\nPaired: Pixel\.\n$/);
  } finally {
    child.kill();
  }
});
