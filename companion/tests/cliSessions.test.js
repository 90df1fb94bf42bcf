import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import { neighbours } from '../lib/cli/neighbours.js';
import { ago, isInside, sessionsFrom, shortId } from '../lib/cli/sessions.js';
import { plain, shortened } from '../lib/words/output.js';
import { readState, tts, writeState } from './commandLine.js';
import { put } from './agents.js';
import { fakeService, serviceSays } from './fakeService.js';
import { temporaryHome, until } from './home.js';

const minute = 60_000;

/** A session on disk, and its row as the daemon writes it. */
function row(home, sessionId, { minutes = 1, cwd = '/srv/proj', source = 'claude-code', ...more } = {}) {
  const transcript = path.join(home.home, `${sessionId}.jsonl`);
  fs.writeFileSync(transcript, '{}\n');
  return { sessionId, cwd, source, transcript, mtimeMs: Date.now() - minutes * minute, active: true, ...more };
}

/** With these rows kept by a daemon that lives. */
function listed(home, rows, state = {}) {
  writeState(home, { ...state, discoveredSessions: rows });
  return { neighbours: { daemonStatus: async () => ({ alive: true }) } };
}

/** With these rows found by a look at the disk. */
const onDisk = (rows) => ({ neighbours: { findSessions: async () => rows } });

const attachedIds = (home) => (readState(home).sessions ?? []).map(({ id }) => id);

test('on attaches the newest session in use, with all that the row tells', async (t) => {
  const home = temporaryHome(t);
  const { lines } = await fakeService(t, home);
  const newest = row(home, 'aaaa', { minutes: 2, title: 'Fix it', branch: 'main' });
  const { exit, stdout, stderr } = await tts(home, ['on'], listed(home, [newest, row(home, 'bbbb', { minutes: 30 })]));
  assert.deepEqual([exit, stdout, stderr], [0, 'Attached: Claude Code in /srv/proj (aaaa).\n', '']);
  assert.deepEqual(lines, [{ id: 'aaaa', cwd: '/srv/proj', transcript: newest.transcript, source: 'claude-code',
    branch: 'main', title: 'Fix it', proto: 1, cmd: 'attach' }]);
});

test('other sessions in use are mentioned', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  const rows = [row(home, 'older', { minutes: 5 }), row(home, 'newer', { minutes: 3 })];
  const { stdout, stderr } = await tts(home, ['on'], listed(home, rows));
  assert.match(stdout, /\(newer\)/);
  assert.match(stderr, /^Chose the newest; also in use:\n {2}older {2}5 min ago {2}Claude Code {2}\/srv\/proj\n$/);
});

test('where nothing is in use the sessions that there are can be chosen from', async (t) => {
  const home = temporaryHome(t);
  const { lines } = await fakeService(t, home);
  const rows = [row(home, 'aaaa', { minutes: 20 }), row(home, 'bbbb', { minutes: 200 })];
  const { exit, stderr, stdout } = await tts(home, ['on', '--json'], onDisk(rows));
  assert.equal(exit, 3);
  const told = stderr.split('\n');
  assert.deepEqual(told.slice(0, 2),
    ['tts: No session was written to in the last 15 minutes.', 'Choose one with --session:']);
  assert.match(told[2], /^ {2}aaaa {2}20 min ago/);
  assert.deepEqual(JSON.parse(stdout).candidates.map(({ id }) => id), ['aaaa', 'bbbb']);
  assert.deepEqual(lines, []);
});

test('with no session at all there is nothing to choose from', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  const { exit, stderr } = await tts(home, ['on']);
  assert.deepEqual([exit, stderr], [3, 'tts: No session was written to in the last 15 minutes.\n']);
});

test('the disk is looked at when the daemon is dead, however fresh its rows', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  listed(home, [row(home, 'stale')]);
  assert.match((await tts(home, ['on'], onDisk([row(home, 'found')]))).stdout, /\(found\)/);
});

test('the disk is looked at when the daemon does not know what is meant', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  const { neighbours } = listed(home, [row(home, 'known')]);
  const around = { neighbours: { ...neighbours, ...onDisk([row(home, 'brand-new')]).neighbours } };
  assert.match((await tts(home, ['on', '--session', 'brand'], around)).stdout, /\(brand-new\)/);
});

test('a session is found however old it is, and however many are newer, by its id and by its folder', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  const at = (id) => `.claude/projects/-srv-${id}/${id}.jsonl`;
  const days = (count) => ({ age: (Date.UTC(2026, 10, 20, 12) - Date.now()) / 1000 + count * 86_400 });
  const words = (cwd) => `${JSON.stringify({ type: 'user', cwd, message: { role: 'user', content: 'x' } })}\n`;
  put(home, at('ancient'), words('/srv/ancient'), days(400));
  put(home, at('fortnight'), words('/srv/fortnight'), days(15));
  put(home, at('crowded'), words('/srv/crowded'), days(2));
  for (let i = 0; i < 41; i += 1) put(home, at(`n${i}`), words('/srv/many'), days(1));
  const around = { neighbours: { findSessions: neighbours.findSessions } };
  for (const id of ['ancient', 'fortnight', 'crowded']) {
    for (const [options, cwd] of [[['--session', id.slice(0, 4)], '/'], [['--here'], `/srv/${id}/src`]]) {
      const { exit, stdout, stderr } = await tts(home, ['on', ...options], { ...around, cwd });
      assert.equal(exit, 0, stderr);
      assert.match(stdout, new RegExp(`ttached: Claude Code in /srv/${id} \\(${id}\\), last written to \\d+ `));
    }
  }
  const none = await tts(home, ['on', '--session', 'none'], around);
  assert.equal(none.exit, 3);
});

const sources = [
  [['--source', 'codex'], 0, /Codex CLI in \/srv\/proj \(cccc\)/],
  [['--source=claude'], 0, /\(aaaa\)/],
  [['--source', 'claude-code'], 0, /\(aaaa\)/],
  [['--source', 'gemini'], 3, /No session of Gemini CLI was written to/],
  [['--source', 'gemini', '--session', 'old'], 0, /Gemini CLI in \/srv\/proj \(old-gemini\), last written to 2 h ago/],
  [['--source', 'nobody'], 2, /no agent "nobody"; there are claude-code, codex/],
  [['--session', 'a'], 0, /\(aaaa\)/],
  [['--session', 'none'], 3, /no session whose id begins with "none"/],
  [['--session', 'c', '--source', 'codex'], 0, /\(cccc\)/],
  [['--session', 'a', '--here'], 2, /exclude each other/],
];

for (const [words, code, said] of sources) {
  test(`tts on ${words.join(' ')} ends with ${code}`, async (t) => {
    const home = temporaryHome(t);
    await fakeService(t, home);
    const rows = [row(home, 'aaaa'), row(home, 'cccc', { source: 'codex', minutes: 3 }),
      row(home, 'cddd', { minutes: 40 }), row(home, 'old-gemini', { source: 'gemini', minutes: 130 })];
    const { exit, stdout, stderr } = await tts(home, ['on', ...words], listed(home, rows));
    assert.equal(exit, code, stderr);
    assert.match(stdout + stderr, said);
  });
}

test('a beginning that fits several ids is no choice; a whole id is', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  const around = listed(home, [row(home, 'abc'), row(home, 'abcd')]);
  const { exit, stderr } = await tts(home, ['on', '--session', 'ab'], around);
  assert.equal(exit, 3);
  assert.match(stderr, /2 sessions have an id that begins with "ab"/);
  assert.match((await tts(home, ['on', '--session', 'abc'], around)).stdout, /\(abc\)/);
});

test('--here means the newest session of this folder or one above it, however old', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  const rows = [row(home, 'above', { cwd: '/srv', minutes: 90 }), row(home, 'here', { cwd: '/srv/proj', minutes: 600 }),
    row(home, 'beside', { cwd: '/srv/project2' }), row(home, 'below', { cwd: '/srv/proj/src/deep' })];
  const here = (cwd) => tts(home, ['on', '--here'], { ...listed(home, rows), cwd });
  assert.match((await here('/srv/proj/src')).stdout, /\(above\), last written to 1 h ago/);
  const { exit, stderr } = await here('/elsewhere');
  assert.equal(exit, 3);
  assert.match(stderr, /No session was found for this folder or one above it/);
});

test('--here finds a session whose agent was started through a link', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  fs.mkdirSync(path.join(home.home, 'real'));
  fs.symlinkSync('real', path.join(home.home, 'link'));
  const around = listed(home, [row(home, 'linked', { cwd: path.join(home.home, 'link') })]);
  const cwd = fs.realpathSync(path.join(home.home, 'real'));
  const { stdout } = await tts(home, ['on', '--here'], { ...around, cwd });
  assert.match(stdout, /\(linked\)/);
});

test('a session that is attached already is given its voice again', async (t) => {
  const home = temporaryHome(t);
  const { lines } = await fakeService(t, home);
  const around = listed(home, [row(home, 'aaaa')], { sessions: [{ id: 'aaaa', cwd: '/srv/proj' }] });
  const { exit, stdout } = await tts(home, ['on'], around);
  assert.deepEqual([exit, stdout], [0, 'Already attached: Claude Code in /srv/proj (aaaa).\n']);
  assert.equal(lines[0].resume, true);
  assert.deepEqual(attachedIds(home), ['aaaa']);
});

const soon = () => ({ time: new Date(Date.now() + 1000).toISOString() });

/** Its log as it is once an attach has been refused, with other words before and behind. */
function refuses(home) {
  const before = new Date(Date.now() - minute).toISOString();
  serviceSays(home, { msg: 'attach: unknown source', level: 40, time: before });
  fs.appendFileSync(path.join(home.home, 'Library/Logs/Sonra/sonra.ndjson'), 'torn\n');
  serviceSays(home, { ...soon(), msg: 'attach: transcript missing on disk', level: 40, input: { id: 'aaaa' } });
  serviceSays(home, { ...soon(), msg: 'ipc dispatched' });
}

test('a service that does not attach is no success, and its own words are told', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home, 'ignores');
  refuses(home);
  const { exit, stderr } = await tts(home, ['on'], listed(home, [row(home, 'aaaa')]));
  assert.deepEqual([exit, stderr], [1, "tts: Claude Code in /srv/proj (aaaa) isn't attached."
    + ' The service says: attach: transcript missing on disk.\n']);
});

test('a session that stands in the list and is refused is no success either', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  refuses(home);
  const around = listed(home, [row(home, 'aaaa')], { sessions: [{ id: 'aaaa', cwd: '/srv/proj' }] });
  const { exit, stderr } = await tts(home, ['on'], around);
  assert.deepEqual([exit, stderr], [1, "tts: Claude Code in /srv/proj (aaaa) isn't attached."
    + ' The service says: attach: transcript missing on disk.\n']);
});

test('that a session is attached is told with what it is known from, where the service says nothing', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home, 'ignores');
  // Of another session, and of another command.
  serviceSays(home, { ...soon(), msg: 'attach: unknown source', level: 40, input: { id: 'bbbb' } });
  serviceSays(home, { ...soon(), msg: 'ipc dispatched', method: 'attach', requestId: 'another' });
  const around = listed(home, [row(home, 'aaaa')], { sessions: [{ id: 'aaaa', cwd: '/srv/proj' }] });
  const { exit, stdout, stderr } = await tts(home, ['on', '--json'], around);
  assert.deepEqual([exit, stderr], [0, "That is what its list says; the service hasn't confirmed it.\n"]);
  const { already, confirmed } = JSON.parse(stdout);
  assert.deepEqual([already, confirmed], [true, false]);
});

test('a session that is detached while it is given its voice again is no success', async (t) => {
  const home = temporaryHome(t);
  const { lines } = await fakeService(t, home, 'ignores');
  const around = listed(home, [row(home, 'aaaa')], { sessions: [{ id: 'aaaa', cwd: '/srv/proj' }] });
  const running = tts(home, ['on'], around);
  await until(() => lines.length, { what: 'the command' });
  writeState(home, { sessions: [] });
  serviceSays(home, { msg: 'ipc dispatched', method: 'attach', requestId: lines[0].requestId });
  const { exit, stderr } = await running;
  assert.deepEqual([exit, stderr], [1, 'tts: Claude Code in /srv/proj (aaaa) was detached meanwhile.\n']);
});

test('words that the service said before are not its answer', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home, 'ignores');
  serviceSays(home, { msg: 'attach: unknown source', level: 40, time: '2026-01-01T00:00:00.000Z' });
  const { stderr } = await tts(home, ['on'], listed(home, [row(home, 'aaaa')]));
  assert.match(stderr, /within 5 seconds\.\n$/);
});

test('a transcript that is gone is not attached; one in a store is its file', async (t) => {
  const home = temporaryHome(t);
  const { lines } = await fakeService(t, home);
  const gone = { ...row(home, 'aaaa'), transcript: '/no/such.jsonl' };
  assert.match((await tts(home, ['on'], listed(home, [gone]))).stderr, /Its transcript is gone: \/no\/such\.jsonl/);
  assert.deepEqual(lines, []);
  const inStore = { ...row(home, 'bbbb'), source: 'opencode' };
  inStore.transcript += '#ses_1';
  assert.equal((await tts(home, ['on'], listed(home, [inStore]))).exit, 0);
});

test('a "#" in a path is part of it, but for what lies in a store', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  fs.mkdirSync(path.join(home.home, 'a#b'));
  const placed = (id, more) => ({ ...row(home, id), ...more });
  const file = path.join(home.home, 'a#b/c.jsonl');
  fs.writeFileSync(file, '{}\n');
  const attach = (found) => tts(home, ['on'], listed(home, [found]));
  assert.equal((await attach(placed('aaaa', { transcript: file }))).exit, 0);
  assert.equal((await attach(placed('bbbb', { transcript: `${file}#ses_1`, source: 'opencode' }))).exit, 0);
  const gone = await attach(placed('cccc', { transcript: `${file}#ses_1` }));
  assert.match(gone.stderr, /Its transcript is gone: .*a#b\/c\.jsonl#ses_1\n$/);
  const steering = await attach(placed('dddd', { transcript: '/no/\u001b[2J.jsonl' }));
  assert.equal(steering.stderr, 'tts: Its transcript is gone: /no/ [2J.jsonl\n');
});

test('without the service on says so before it looks for anything', async (t) => {
  const around = { neighbours: { findSessions: async () => { throw new Error('looked'); } } };
  assert.equal((await tts(temporaryHome(t), ['on'], around)).exit, 69);
});

const attachedRows = [{ id: 'aaaa', cwd: '/srv/a', source: 'codex' }, { id: 'abbb', cwd: '/srv/b' }];

const detaches = [
  [['off'], [attachedRows[0]], 0, /^Detached: Codex CLI in \/srv\/a \(aaaa\)\.\n$/, []],
  [['off'], [], 0, /^Nothing was attached\.\n$/, undefined],
  [['off'], attachedRows, 3, /2 sessions are attached\.\nChoose one with --session, or --all:\n {2}aaaa/, ['aaaa', 'abbb']],
  [['off', '--all'], attachedRows, 0, /aaaa.*\n.*abbb/, []],
  [['off', '--all'], [], 0, /Nothing was attached/, undefined],
  [['off', '--session', 'ab'], attachedRows, 0, /abbb/, ['aaaa']],
  [['off', '--session', 'a'], attachedRows, 3, /2 sessions are attached/, ['aaaa', 'abbb']],
  [['off', '--session', 'x'], attachedRows, 3, /No session whose id begins with "x" is attached/, ['aaaa', 'abbb']],
  [['off', '--session', 'a', '--all'], attachedRows, 2, /exclude each other/, ['aaaa', 'abbb']],
];

for (const served of [true, false]) {
  for (const [words, sessions, code, said, left] of detaches) {
    test(`tts ${words.join(' ')} with ${sessions.length} attached, ${served ? 'a' : 'no'} service: ${code}`, async (t) => {
      const home = temporaryHome(t);
      if (sessions.length) writeState(home, { sessions, mine: 1 });
      const service = served ? await fakeService(t, home) : undefined;
      const { exit, stdout, stderr } = await tts(home, words);
      assert.equal(exit, code, stderr);
      assert.match(stdout + stderr, said);
      assert.deepEqual(readState(home).sessions?.map(({ id }) => id), left);
      if (sessions.length) assert.equal(readState(home).mine, 1);
      const gone = sessions.map(({ id }) => id).filter((id) => left && !left.includes(id));
      if (service) assert.deepEqual(service.lines, gone.map((id) => ({ id, proto: 1, cmd: 'detach' })));
    });
  }
}

test('status tells all of it, and the same in JSON', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  const found = row(home, '0b6f7f1d-aaaa-4b57-9a3a-5f0c2a516d0e',
    { cwd: `${home.home}/proj`, title: 'Fix\u001b[2J it' });
  const daemon = { daemonStatus: async () => ({ alive: true, responding: true, pid: 7, bridgePort: 7842 }) };
  writeState(home, { volume: 80, muted: true, discoveredSessions: [found, row(home, 'old', { minutes: 99 })],
    sessions: [{ id: 'aaaa', cwd: '/srv/a', source: 'codex', branch: 'main' }] });
  fs.writeFileSync(home.inShared('now-playing.json'),
    JSON.stringify({ state: 'playing', elapsed: 1.4, duration: 7.6, sessionId: 'aaaa', messageId: 'm1' }));
  const { exit, stdout, stderr } = await tts(home, ['status'], { neighbours: daemon });
  assert.deepEqual([exit, stderr], [0, '']);
  assert.equal(stdout, [
    'Service   running',
    'Daemon    running, bridge on port 7842',
    'Voice     af_heart, speed 1.5x, volume 80%, muted, captions off',
    'Speaking  playing, 1 of 8 s',
    'Attached',
    '  aaaa  Codex CLI  /srv/a  main',
    'In use',
    '  0b6f7f1d  1 min ago  Claude Code  ~/proj    Fix [2J it',
    '1 older session: tts status --all',
    '',
  ].join('\n'));
  const report = JSON.parse((await tts(home, ['--status', '--json'], { neighbours: daemon })).stdout);
  assert.deepEqual(report.daemon, { running: true, responding: true, pid: 7, bridgePort: 7842 });
  assert.deepEqual(report.playback, { state: 'playing', sessionId: 'aaaa', messageId: 'm1', elapsed: 1.4, duration: 7.6,
    synthesizing: false });
  assert.deepEqual(report.sessions.map(({ id, source }) => [id, source]), [['aaaa', 'codex']]);
  assert.deepEqual(report.discovered.map(({ id, attached }) => [id.slice(0, 3), attached]),
    [['0b6', false], ['old', false]]);
  assert.deepEqual(report.settings,
    { voice: 'af_heart', speed: 1.5, volume: 80, muted: true, paused: false, captions: false });
});

test('status of nothing, with a broken document and a snapshot of a dead service', async (t) => {
  const home = temporaryHome(t);
  fs.writeFileSync(home.inShared('state.json'), '{"voice":');
  fs.writeFileSync(home.inShared('now-playing.json'), '{"state":"playing","elapsed":1}');
  const neighbours = { daemonStatus: async () => { throw new Error('silent'); } };
  const { exit, stdout, stderr } = await tts(home, ['status'], { neighbours });
  assert.equal(exit, 69);
  assert.match(stdout, /Service {3}not running\nDaemon {4}not answering\n.*\nSpeaking {2}idle\nNothing is attached\n$/);
  assert.equal(stderr, `${home.inShared('state.json')} can't be read: it holds no JSON object.\n`
    + 'The Sonra service is not running. "tts start" starts it.\n');
});

test('rows without an id are none, a row without a source is Claude Code\'s, and the first of one id stands', () => {
  const rows = sessionsFrom([{ cwd: '/x' }, null, 3, { id: 'b', mtimeMs: 1 }, { sessionId: 'a', id: 'z', mtimeMs: 2 },
    { id: 'b', mtimeMs: 9 }]);
  assert.deepEqual(rows.map(({ id, source }) => [id, source]), [['a', 'claude-code'], ['b', 'claude-code']]);
});

test('a folder is inside itself and those above it', () => {
  const cases = [['/a/b', '/a/b', true], ['/a/b', '/a', true], ['/a/b', '/', true], ['/a/b', '/a/bc', false],
    ['/a/b', '/a/b/c', false], ['/a/b', '', false], ['/a/b', 'a', false], ['/a/..b', '/a', true]];
  for (const [folder, cwd, inside] of cases) assert.equal(isInside(folder, cwd), inside, `${folder} in ${cwd}`);
});

test('times and texts are shown short and without what steers a terminal', () => {
  assert.deepEqual([0, 59_999, 60_000, 3_600_000, 172_800_000].map(ago),
    ['now', 'now', '1 min ago', '1 h ago', '2 days ago']);
  assert.equal(plain('a\u001b]0;x\u0007\n b\u202e\u009b31mc\u2066'), 'a ]0;x b 31mc');
  assert.equal(shortened('👍👍👍', 3), '👍…');
});

test('an id is shown as far as it has to be', async (t) => {
  const home = temporaryHome(t);
  const ids = ['019aa000-1111-7000-8000-00000000000a', '019aa000-1111-7000-8000-00000000000b', '0b6f7f1d-aaaa-4b57-9a3a-5f0c2a516d0e'];
  assert.deepEqual(ids.map((id) => shortId(id, ids.map((other) => ({ id: other })))), [ids[0], ids[1], '0b6f7f1d']);
  assert.equal(shortId(ids[0], [{ id: '019aa000-2' }]), '019aa000-1');
  writeState(home, { sessions: ids.map((id) => ({ id, cwd: '/x' })) });
  const { stderr } = await tts(home, ['off', '--session', '019aa000']);
  for (const id of ids.slice(0, 2)) assert.ok(stderr.includes(`  ${id}  `), stderr);
  assert.equal((await tts(home, ['off', '--session', ids[1]])).stdout, `Detached: Claude Code in /x (${ids[1]}).\n`);
});

for (const served of [true, false]) {
  test(`a row with two names is detached by the service's own, ${served ? 'a' : 'no'} service`, async (t) => {
    const home = temporaryHome(t);
    const service = served ? await fakeService(t, home) : undefined;
    writeState(home, { sessions: [{ id: 'aaaa', sessionId: 'zzzz', cwd: '/x' }] });
    assert.deepEqual((await tts(home, ['off'])).exit, 0);
    assert.deepEqual(attachedIds(home), []);
    if (service) assert.equal(service.lines[0].id, 'aaaa');
  });
}

test('status tells what could not be spoken, and that speech is being made', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  writeState(home, { lastSpeakError: 'no voice\u001b[2J' });
  fs.writeFileSync(home.inShared('now-playing.json'), '{"state":"idle","synthesizing":true}');
  const { stdout } = await tts(home, ['status']);
  assert.match(stdout, /^Speaking {2}idle, preparing speech\nFailed {4}no voice \[2J$/m);
  const { playback } = JSON.parse((await tts(home, ['status', '--json'])).stdout);
  assert.deepEqual([playback.synthesizing, playback.lastSpeakError], [true, 'no voice\u001b[2J']);
});
