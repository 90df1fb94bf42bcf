import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import test from 'node:test';

import { commands } from '../lib/cli/commands.js';
import { asFailure } from '../lib/words/failure.js';
import { columns, jsonLine, plain, shortened } from '../lib/words/output.js';
import { agents } from '../lib/agents.js';
import { StateLockError } from '../lib/stateLock.js';
import { voices } from '../lib/voices.js';
import { quietNeighbours, readState, tts, writeState } from './commandLine.js';
import { fakeService } from './fakeService.js';
import { temporaryHome } from './home.js';

const notRunning = 'tts: The Sonra service is not running.\n'
  + 'Start it with "tts start", or add --start to the command.\n';
const kept = "The Sonra service isn't running; this is kept for when it starts.\n";

const meaningless = (address) =>
  `tts: The address ${address} stands for nothing; a session's is tts://session/<id>. Nothing was opened.\n`;

/**
 * A row: the words, what the socket gets, what is written, how it ends. `state` stands before, `after` is what is asked
 * of the document behind; without `service: false` one runs.
 */
const rows = [
  { argv: ['pause'], lines: [{ proto: 1, cmd: 'pause' }], stdout: 'Paused.\n' },
  { argv: ['resume'], lines: [{ proto: 1, cmd: 'resume' }], stdout: 'Going on.\n' },
  { argv: ['play'], lines: [{ proto: 1, cmd: 'resume' }], stdout: 'Going on.\n' },
  { argv: ['toggle'], lines: [{ proto: 1, cmd: 'toggle' }], stdout: /./ },
  { argv: ['skip'], lines: [{ proto: 1, cmd: 'skip' }], stdout: 'Skipped.\n' },
  { argv: ['back'], lines: [{ proto: 1, cmd: 'previous' }], stdout: 'Went back.\n' },
  { argv: ['previous'], lines: [{ proto: 1, cmd: 'previous' }], stdout: 'Went back.\n' },
  { argv: ['next'], lines: [{ proto: 1, cmd: 'next' }], stdout: 'Went forward.\n' },
  { argv: ['restart'], lines: [{ proto: 1, cmd: 'restart' }], stdout: 'Once more.\n' },
  { argv: ['stop'], lines: [{ proto: 1, cmd: 'stop' }], stdout: 'Stopped.\n' },
  { argv: ['search'], lines: [{ proto: 1, cmd: 'search' }], stdout: 'Opened the search.\n' },
  { argv: ['open', 'tts://session/a', 'tts://session/b'], stdout: /service/,
    lines: [{ proto: 1, cmd: 'open', urls: ['tts://session/a', 'tts://session/b'] }] },
  { argv: ['open', 'tts://session/a', 'tts://nonsense'], exit: 2, lines: [], stderr: meaningless('tts://nonsense') },
  { argv: ['open', 'https://example.org'], exit: 2, lines: [], stderr: meaningless('https://example.org') },
  { argv: ['open', ''], exit: 2, lines: [], stderr: meaningless('""') },
  { argv: ['open', 'tts://\x1b[2J'], exit: 2, lines: [], stderr: meaningless('tts:// [2J') },
  { argv: ['open', 'tts://nonsense'], service: false, exit: 2, stderr: meaningless('tts://nonsense') },
  { argv: ['pause', '--json'], lines: [{ proto: 1, cmd: 'pause' }], json: { ok: true, sent: 'pause' } },
  { argv: ['--json', 'back'], lines: [{ proto: 1, cmd: 'previous' }], json: { ok: true, sent: 'previous' } },
  { argv: ['pause'], service: false, exit: 69, stderr: notRunning },
  { argv: ['skip', '--json'], service: false, exit: 69, stderr: notRunning,
    json: { ok: false, error: 'serviceNotRunning', message: 'The Sonra service is not running.', exit: 69 } },

  { argv: ['mute'], after: { muted: true }, lines: [], stdout: 'Muted.\n' },
  { argv: ['unmute'], state: { muted: true, mine: 1 }, after: { muted: false, mine: 1 }, stdout: 'Not muted.\n' },
  { argv: ['mute'], service: false, after: { muted: true }, stdout: 'Muted.\n', stderr: kept },
  { argv: ['mute', '--json'], after: { muted: true }, json: { ok: true, muted: true, running: true } },
  { argv: ['volume'], stdout: 'Volume 100%.\n', after: {} },
  { argv: ['volume'], state: { volume: 'loud' }, stdout: 'Volume 100%.\n' },
  { argv: ['volume', '40'], after: { volume: 40 }, stdout: 'Volume 40%.\n' },
  { argv: ['volume', '40%'], after: { volume: 40 }, stdout: 'Volume 40%.\n' },
  { argv: ['volume', '+10'], state: { volume: 95 }, after: { volume: 100 }, stdout: 'Volume 100%.\n' },
  { argv: ['volume', '-10'], state: { volume: 5 }, after: { volume: 0 }, stdout: 'Volume 0%.\n' },
  { argv: ['volume', '101'], state: { volume: 5 }, after: { volume: 5 }, exit: 2, stderr: /no volume/ },
  { argv: ['volume', '1.5'], exit: 2, stderr: /no volume/ },
  { argv: ['volume', ''], exit: 2, stderr: /no volume/ },
  { argv: ['volume', '40', '50'], exit: 2, stderr: 'tts: "tts volume" can\'t take "50".\n' },
  { argv: ['volume', '40', '--json'], after: { volume: 40 }, json: { ok: true, volume: 40, running: true } },
  { argv: ['--volume=40'], after: { volume: 40 }, stdout: 'Volume 40%.\n' },
  { argv: ['--volume', '40'], after: { volume: 40 }, stdout: 'Volume 40%.\n' },
  { argv: ['speed'], state: { speed: 2 }, stdout: 'Speed 2x.\n' },
  { argv: ['speed', '1.25'], after: { speed: 1.25 }, stdout: 'Speed 1.25x.\n' },
  { argv: ['speed', '1.5x'], after: { speed: 1.5 }, stdout: 'Speed 1.5x.\n' },
  { argv: ['speed', '0.5'], after: { speed: 0.5 }, stdout: 'Speed 0.5x.\n' },
  { argv: ['speed', '0.4'], exit: 2, stderr: /no speed/ },
  { argv: ['speed', '3.01'], exit: 2, stderr: /no speed/ },
  { argv: ['speed', '-1'], exit: 2, stderr: /no speed/ },
  { argv: ['speed', 'fast'], exit: 2, stderr: /no speed/ },
  { argv: ['voice', 'bm_fable'], after: { voice: 'bm_fable' }, stdout: 'Voice Fable (bm_fable).\n' },
  { argv: ['voice', 'heart'], after: { voice: 'af_heart' }, stdout: 'Voice Heart (af_heart).\n' },
  { argv: ['voice', 'nobody'], after: {}, exit: 2, stderr: /"tts voice" lists them/ },
  { argv: ['voice', '--json', 'bm_fable'], json: { ok: true, voice: 'bm_fable', name: 'Fable', running: true } },
  { argv: ['captions', 'on'], after: { captions: true }, stdout: 'Captions are on.\n' },
  { argv: ['captions', 'off'], state: { captions: true }, after: { captions: false }, stdout: 'Captions are off.\n' },
  { argv: ['captions', 'maybe'], exit: 2, stderr: /"on" or "off"/ },
  { argv: ['captions'], stdout: 'Captions are off.\n' },

  { argv: [], exit: 2, stderr: /^Usage: tts COMMAND/ },
  { argv: ['--help'], stdout: /^Usage: tts COMMAND/ },
  { argv: ['-h'], stdout: /^Usage: tts COMMAND/ },
  { argv: ['help', 'on'], stdout: /^Usage: tts on/ },
  { argv: ['help', 'nothing'], exit: 2, stderr: /no command "nothing"/ },
  { argv: ['--version'], stdout: /^tts \d+\.\d+\.\d+\n$/ },
  { argv: ['on', '--version'], stdout: /^tts \d/ },
  { argv: ['volume', '--help', '1', '2', '3'], stdout: /^Usage: tts volume/, after: {} },
  { argv: ['pasue'], exit: 2, lines: [],
    stderr: 'tts: There is no command "pasue". Did you mean "pause"? "tts --help" lists them.\n' },
  { argv: ['say', 'hello'], exit: 2, stderr: 'tts: There is no command "say". "tts --help" lists them.\n' },
  { argv: ['--', 'pause'], lines: [{ proto: 1, cmd: 'pause' }], stdout: 'Paused.\n' },
  { argv: ['--json', '--', 'volume', '40'], after: { volume: 40 }, json: { ok: true, volume: 40, running: true } },
  { argv: ['--', '--pause'], exit: 2, lines: [], stderr: /no command "--pause"/ },
  { argv: ['--json'], exit: 2, stderr: /A command is missing/,
    json: { ok: false, error: 'usage', message: 'A command is missing. "tts --help" lists them.', exit: 2 } },
  { argv: ['on', '--session', ''], exit: 2, lines: [], stderr: 'tts: --session needs a value: --session ID.\n' },
  { argv: ['off', '--session='], exit: 2, lines: [], stderr: 'tts: --session needs a value: --session ID.\n' },
  { argv: ['pause', '--loud'], exit: 2, lines: [], stderr: 'tts: "tts pause" has no option --loud.\n' },
  { argv: ['--loud'], exit: 2, stderr: 'tts: tts has no option --loud.\n' },
  { argv: ['off', '--session'], exit: 2, stderr: 'tts: --session needs a value: --session ID.\n' },
  { argv: ['off', '--all=1'], exit: 2, stderr: 'tts: --all takes no value.\n' },
  { argv: ['pause', 'now'], exit: 2, lines: [], stderr: 'tts: "tts pause" can\'t take "now".\n' },
  { argv: ['pause', '--json', '--loud'], exit: 2, stderr: /no option/,
    json: { ok: false, error: 'usage', message: '"tts pause" has no option --loud.', exit: 2 } },
];

function matches(actual, expected, what) {
  if (expected instanceof RegExp) assert.match(actual, expected, what);
  else assert.equal(actual, expected, what);
}

for (const row of rows) {
  const where = row.service === false ? ', no service' : '';
  const before = row.state ? ` after ${JSON.stringify(row.state)}` : '';
  test(`tts ${row.argv.join(' ')}${where}: ${row.exit ?? 0}${before}`, async (t) => {
    const home = temporaryHome(t);
    if (row.state) writeState(home, row.state);
    const service = row.service === false ? { lines: [] } : await fakeService(t, home);
    const { exit, stdout, stderr } = await tts(home, row.argv);
    if (row.json) assert.deepEqual(JSON.parse(stdout), row.json);
    else matches(stdout, row.stdout ?? '', 'standard output');
    matches(stderr, row.stderr ?? '', 'standard error');
    assert.equal(exit, row.exit ?? 0);
    if (row.lines) assert.deepEqual(service.lines, row.lines);
    if (row.after) assert.deepEqual(readState(home), row.after);
  });
}

test('every command has help of its own, also in the older spelling', async (t) => {
  const home = temporaryHome(t);
  for (const { name } of commands) {
    const { exit, stdout, stderr } = await tts(home, [name, '--help']);
    assert.match(stdout, new RegExp(`^Usage: tts ${name}`), name);
    assert.deepEqual([exit, stderr], [0, ''], name);
    const older = await tts(home, [`--${name}`, '--help']);
    if (name !== 'start' && name !== 'help') assert.equal(older.stdout, stdout, name);
  }
});

test('the voices are listed with a mark at the chosen one', async (t) => {
  const home = temporaryHome(t);
  writeState(home, { voice: 'bf_emma' });
  const { stdout } = await tts(home, ['voice']);
  const lines = stdout.trimEnd().split('\n');
  assert.equal(lines.length, 19);
  assert.deepEqual(lines.filter((line) => line.startsWith('*')), ['*  bf_emma      Emma      expressive British female']);
  assert.equal(lines[0], '   af_heart     Heart     warm American female');
});

test('a voice that nobody knows is told', async (t) => {
  const home = temporaryHome(t);
  writeState(home, { voice: 'xx\u001b[31m' });
  assert.equal((await tts(home, ['voice'])).stderr, 'The voice in use, "xx [31m", is none of these.\n');
});

test('a setting that cannot be written is no success', async (t) => {
  const home = temporaryHome(t);
  fs.mkdirSync(home.inShared('state.json'));
  const { exit, stderr } = await tts(home, ['mute']);
  assert.equal(exit, 1);
  assert.equal(stderr, `tts: ${home.inShared('state.json')} can't be changed: it is a folder.\n`);
  const shown = await tts(home, ['volume']);
  assert.deepEqual([shown.exit, shown.stdout, shown.stderr],
    [0, 'Volume 100%.\n', `${home.inShared('state.json')} can't be read: it is a folder.\n`]);
});

test('a document that nobody can read is told, and set aside before it is begun anew', async (t) => {
  const home = temporaryHome(t);
  for (const [name, look, change] of [['state.json', ['volume'], ['mute']],
    ['profile.json', ['lexicon', 'list'], ['lexicon', 'add', 'a', 'b']]]) {
    const file = home.inShared(name);
    fs.writeFileSync(file, '{"torn');
    const told = `${file} can't be read: it holds no JSON object.`;
    assert.equal((await tts(home, look)).stderr, `${told}\n`);
    assert.equal(fs.readFileSync(file, 'utf8'), '{"torn');
    assert.ok((await tts(home, change)).stderr.startsWith(`${told} It is kept as ${file}.unreadable.\n`), name);
    assert.equal(fs.readFileSync(`${file}.unreadable`, 'utf8'), '{"torn');
    assert.equal((await tts(home, look)).stderr, '');
  }
});

test('that a document is set aside is not told before it is', async (t) => {
  const home = temporaryHome(t);
  const file = home.inShared('state.json');
  fs.writeFileSync(file, '{"torn');
  fs.writeFileSync(`${file}.lock`, String(process.pid));
  const watcher = fs.watch(home.shared);
  t.after(() => watcher.close());
  const running = tts(home, ['mute']);
  await once(watcher, 'change');
  // Whoever holds the lock mends it.
  writeState(home, { mine: 1 });
  fs.rmSync(`${file}.lock`);
  assert.deepEqual([(await running).stderr, readState(home)], [kept, { mine: 1, muted: true }]);
  assert.equal(fs.existsSync(`${file}.unreadable`), false);
});

test('what a program reads holds nothing that a terminal obeys', () => {
  const value = { text: 'a\u009b\u202e\u061c\u001b\u2028é你' };
  const line = jsonLine(value);
  assert.doesNotMatch(line, /[\x7f-\x9f\u061c\u202e\u001b\u2028]/);
  assert.ok(line.includes('é你'));
  assert.deepEqual(JSON.parse(line), value);
  assert.equal(plain('a\u061cb\u200bc\ue000d\u202ee'), 'abcde');
});

test('columns stand below each other whatever is written in them', () => {
  assert.deepEqual(columns([['你好', 'x'], ['abc', 'y'], ['👩‍💻', 'z'], ['e\u0301', 'w']], ''),
    ['你好  x', 'abc   y', '👩‍💻    z', 'e\u0301     w']);
  assert.equal(shortened('你好世界', 5), '你好…');
  assert.equal(shortened('你好', 4), '你好');
});

test('a lock that is not to be had is told with its file', () => {
  const failure = asFailure(new StateLockError('/x/state.json.lock'));
  assert.deepEqual([failure.message, failure.exit, failure.kind],
    ['Another program holds /x/state.json.lock; nothing was changed.', 1, 'locked']);
});

test('color only for a terminal that wants it', async (t) => {
  const home = temporaryHome(t);
  const colored = async (environment, isTTY) => {
    let text = '';
    await tts({ ...home, environment: { ...home.environment, ...environment } }, ['status'],
      { stdout: { isTTY, write: (piece) => { text += piece; } } });
    return text.includes('\x1b[');
  };
  assert.equal(await colored({}, true), true);
  assert.equal(await colored({}, false), false);
  assert.equal(await colored({ NO_COLOR: '1' }, true), false);
  assert.equal(await colored({ TERM: 'dumb' }, true), false);
});

test('the agents and voices are those that the service knows', () => {
  const source = (path) => fs.readFileSync(new URL(`../../src/${path}`, import.meta.url), 'utf8');
  const themes = [...source('frame/HarnessTheme.cpp').matchAll(/\{"([a-z-]+)",\s*"([^"]+)",\s*"[A-Z]+"/g)];
  assert.deepEqual(themes.map(([, id, name]) => [id, name]), [...agents]);
  const catalog = [...source('speech/VoiceCatalog.cpp').matchAll(/\{"(\w+)", "(\w+)", "([^"]+)"\}/g)];
  assert.deepEqual(catalog.map(([, id, name, descriptor]) => ({ id, name, descriptor })), voices);
});

test('the version is the program\'s own', async (t) => {
  const project = fs.readFileSync(new URL('../../CMakeLists.txt', import.meta.url), 'utf8');
  const [, version] = /project\(Sonra VERSION ([\d.]+)/.exec(project);
  assert.equal((await tts(temporaryHome(t), ['--version'])).stdout, `tts ${version}\n`);
});

test('--start starts the service first, and says so', async (t) => {
  const home = temporaryHome(t);
  let service;
  const serviceParts = { program: async () => { service = await fakeService(t, home); return '/bin/true'; } };
  const { exit, stdout, stderr } = await tts(home, ['pause', '--start'], { neighbours: { serviceParts } });
  assert.deepEqual([exit, stdout, stderr], [0, 'Paused.\n', 'Started the Sonra service.\n']);
  assert.deepEqual(service.lines, [{ proto: 1, cmd: 'pause' }]);
});

const slips = [['volume', '900'], ['speed', '9'], ['voice', 'nobody'], ['captions', 'maybe'], ['lexicon', 'ad'],
  ['lexicon', 'add', 'x'], ['lexicon', 'add', ' ', 'x'], ['pair', '--lan', '--no-lan'], ['pair', '--wait', '--no-wait'],
  ['open', 'x'], ['open', 'tts://nonsense'], ['on', '--source', 'nobody'], ['on', '--session', 'a', '--here'], ['off', '--session', 'a', '--all'],
  ['help', 'nothing']];
for (const argv of [...slips, ['help', 'on'], ['on', '--help'], ['--version']]) {
  test(`tts ${argv.join(' ')} --start starts nothing`, async (t) => {
    let asked = 0;
    const serviceParts = { program: async () => { asked += 1; return '/bin/false'; } };
    const { exit, stdout } = await tts(temporaryHome(t), [...argv, '--start'], { neighbours: { serviceParts } });
    assert.deepEqual([exit, asked], [slips.includes(argv) ? 2 : 0, 0]);
    assert.equal(stdout === '', slips.includes(argv));
  });
}

test('--start with a program that ends at once says how', async (t) => {
  const serviceParts = { program: async () => '/bin/false' };
  const { exit, stderr } = await tts(temporaryHome(t), ['pause', '--start'], { neighbours: { serviceParts } });
  assert.deepEqual([exit, stderr], [69, "tts: The service didn't start: /bin/false ended with code 1.\n"]);
});

test('a launch that found another one on its way is waited for', async (t) => {
  const home = temporaryHome(t);
  const program = async () => { setTimeout(() => fakeService(t, home), 300); return '/bin/true'; };
  const { exit, stdout } = await tts(home, ['pause', '--start'], { neighbours: { serviceParts: { program } } });
  assert.deepEqual([exit, stdout], [0, 'Paused.\n']);
});

test('--start without a program says so', async (t) => {
  for (const [program, words] of [[undefined, /wasn't found/], ['/no/sonra', /couldn't be run \(ENOENT\)/]]) {
    const serviceParts = { program: async () => program };
    const { exit, stderr } = await tts(temporaryHome(t), ['--start', 'pause'], { neighbours: { serviceParts } });
    assert.equal(exit, 69);
    assert.match(stderr, words);
  }
});

test('start starts the daemon where the service doesn\'t', async (t) => {
  const home = temporaryHome(t);
  await fakeService(t, home);
  let alive = false;
  const serviceParts = {
    program: async () => '/bin/true',
    daemonStatus: async () => ({ alive }),
    startDaemon: async () => { alive = true; },
  };
  const { exit, stdout } = await tts(home, ['--start', '--json'], { neighbours: { serviceParts } });
  assert.deepEqual([exit, JSON.parse(stdout)], [0, { ok: true, service: 'running', daemon: true }]);
});

test('quit ends the service, waits for that, and ends the daemon', async (t) => {
  const home = temporaryHome(t);
  const { lines, server } = await fakeService(t, home);
  const order = [];
  server.on('connection', () => setImmediate(() => { if (lines.some(({ cmd }) => cmd === 'quit')) server.close(); }));
  server.on('close', () => order.push('service'));
  const neighbours = { stopDaemon: async () => { order.push('daemon'); return { stopped: true }; } };
  const { exit, stdout } = await tts(home, ['quit'], { neighbours });
  assert.deepEqual([exit, stdout, order], [0, 'Ended.\n', ['service', 'daemon']]);
  assert.deepEqual(lines, [{ proto: 1, cmd: 'quit' }]);
});

test('quit ends a daemon that was left alone, and says when there was nothing to end', async (t) => {
  const home = temporaryHome(t);
  for (const [stopped, said] of [[true, 'Ended.\n'], [false, 'It was not running.\n']]) {
    const { exit, stdout } = await tts(home, ['quit'], { neighbours: { stopDaemon: async () => ({ stopped }) } });
    assert.deepEqual([exit, stdout], [0, said]);
  }
});

test('install and uninstall are the autostart entry\'s', async (t) => {
  const home = temporaryHome(t);
  const calls = [];
  const autostart = async () => ({
    installAutostart: ({ environment }) => calls.push(['install', environment.HOME]),
    uninstallAutostart: ({ environment }) => calls.push(['uninstall', environment.HOME]),
  });
  const { stdout } = await tts(home, ['install'], { neighbours: { autostart } });
  assert.equal(stdout, 'Sonra starts at login.\n');
  assert.equal((await tts(home, ['uninstall', '--json'], { neighbours: { autostart } })).stdout,
    '{"ok":true,"startsAtLogin":false}\n');
  assert.deepEqual(calls, [['install', home.home], ['uninstall', home.home]]);
  const noProgram = Object.assign(new Error('No program.'), { name: 'NoProgram' });
  const none = async () => ({ installAutostart: () => { throw noProgram; } });
  assert.equal((await tts(home, ['install'], { neighbours: { autostart: none } })).stderr, 'tts: No program.\n');
});

test('a neighbour that breaks ends the command with a sentence, not a stack', async (t) => {
  const { exit, stderr } = await tts(temporaryHome(t), ['quit'], {
    neighbours: { ...quietNeighbours, stopDaemon: async () => { throw new TypeError('boom'); } },
  });
  assert.deepEqual([exit, stderr], [1, "tts: It didn't work: boom\n"]);
});
