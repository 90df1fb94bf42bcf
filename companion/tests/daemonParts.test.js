import assert from 'node:assert/strict';
import test from 'node:test';

import { Daemon } from '../lib/daemon/daemon.js';
import { daemonEnvironment } from '../lib/daemon/environment.js';
import { holdsSocket, memoryOf } from '../lib/daemon/processFacts.js';
import { Troubles } from '../lib/daemon/troubles.js';
import { Log, silentLog } from '../lib/log.js';
import { HandClock } from './handClock.js';

/** Parts that fail so many times and then start; what they did is in `done`. */
function fakeParts(failures) {
  const done = [];
  const part = (name) => async () => {
    done.push(`${name} begins`);
    failures[name] -= 1;
    if (failures[name] >= 0) throw new Error(`no ${name}`);
    return { port: name === 'bridge' ? 7842 : undefined, stop: async () => { done.push(`${name} ends`); } };
  };
  return { done, parts: { discovery: part('discovery'), bridge: part('bridge') } };
}

test('a part that fails leaves the others alone, says so, and is tried again with growing patience', async () => {
  const lines = [];
  const clock = new HandClock();
  const { done, parts } = fakeParts({ discovery: 2, bridge: 0 });
  const daemon = new Daemon({ environment: {}, log: new Log({ append: (line) => lines.push(JSON.parse(line)) }), clock, parts });
  await daemon.start();
  assert.deepEqual(daemon.report(), { stopping: false, bridgePort: 7842, parts: { discovery: 'failed', bridge: 'running' } });
  assert.deepEqual(lines.filter(({ level }) => level === 50).map(({ input, cause }) => [input.part, cause.message]),
    [['discovery', 'no discovery']]);
  await clock.pass(5000);
  await clock.pass(9999);
  assert.equal(daemon.report().parts.discovery, 'failed');
  await clock.pass(1);
  assert.equal(daemon.report().parts.discovery, 'running');
  await daemon.stop();
  assert.deepEqual(done, ['discovery begins', 'bridge begins', 'discovery begins', 'discovery begins', 'discovery ends', 'bridge ends']);
});

test('a part that is still starting when the daemon ends is ended as well, and none is tried again', async () => {
  const clock = new HandClock();
  const { done, parts } = fakeParts({ discovery: 1, bridge: 0 });
  const daemon = new Daemon({ environment: {}, log: silentLog, clock, parts });
  const starting = daemon.start();
  await daemon.stop();
  await starting;
  await clock.pass(60_000);
  assert.deepEqual(done, ['discovery begins', 'bridge begins', 'bridge ends']);
});

test('a part that cannot end does not keep the others from it', async () => {
  const ended = [];
  const parts = {
    bad: async () => ({ stop: () => { throw new Error('no end'); } }),
    good: async () => ({ stop: () => ended.push('good') }),
  };
  const daemon = new Daemon({ environment: {}, log: silentLog, parts });
  await daemon.start();
  await daemon.stop();
  assert.deepEqual(ended, ['good']);
});

test('uncaught errors are borne until there are too many in a minute', () => {
  const clock = new HandClock();
  const troubles = new Troubles({ log: silentLog, clock, most: 2 });
  const bear = () => troubles.bear(new Error('x'));
  assert.deepEqual([bear(), bear(), bear()], [true, true, false]);
  clock.time += 60_000;
  assert.equal(bear(), true);
});

test('the daemon is given places and settings, and no key', () => {
  const kept = ['HOME', 'PATH', 'USER', 'LOGNAME', 'LANG', 'LANGUAGE', 'TZ', 'TMPDIR', 'CLAUDE_CONFIG_DIR', 'CODEX_HOME',
    'GEMINI_CLI_HOME', 'CLINE_DATA_DIR', 'PI_CODING_AGENT_DIR', 'AIDER_CHAT_HISTORY_FILE', 'XDG_DATA_HOME', 'LC_ALL',
    'TTS_LOG_LEVEL', 'SONRA_ENV'];
  const left = ['GOOGLE_API_KEY', 'GEMINI_API_KEY', 'ANTHROPIC_API_KEY', 'OPENAI_API_KEY', 'NODE_OPTIONS', 'NODE_PATH',
    'LD_PRELOAD', 'SSH_AUTH_SOCK', 'DISPLAY', 'MY_TTS_KEY', 'HOMEBREW', 'home'];
  const all = Object.fromEntries([...left, ...kept].map((name) => [name, `of ${name}`]));
  assert.deepEqual(daemonEnvironment(all), Object.fromEntries(kept.map((name) => [name, `of ${name}`])));
});

test('memory is told of a live process, and of no other', () => {
  const { rss, pss } = memoryOf(process.pid);
  assert.ok(rss > 10_000_000 && pss > 1_000_000 && pss <= rss);
  assert.deepEqual(memoryOf(999_999_999), { rss: undefined, pss: undefined });
  assert.equal(holdsSocket(999_999_999, '/x'), false);
});
