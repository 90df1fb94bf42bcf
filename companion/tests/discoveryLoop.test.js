// How the list of sessions is kept up to date: when it is looked for, and when it is written.

import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import { busyInterval, findSessions, restInterval } from '../lib/discovery/discovery.js';
import { lookInterval, missingInterval } from '../lib/discovery/openCodeStore.js';
import { Scanner } from '../lib/discovery/scanner.js';
import { AnswerLimit } from '../lib/answerLimit.js';
import { TranscriptReader } from '../lib/discovery/transcriptReader.js';
import { silentLog } from '../lib/log.js';
import { dated, lines, now, openCodeSchema, put, store } from './agents.js';
import { begin, change, listed, recordingLog, stamp, state } from './discoveryRun.js';
import { temporaryHome, until } from './home.js';
import { startWriter } from './otherWriter.js';

const prompt = (text) => ({ type: 'user', cwd: '/work/app', message: { content: text } });
const reply = (text) => ({ type: 'assistant', message: { content: [{ type: 'text', text }] } });
const place = '.claude/projects/-work-app';

test('looks come every two seconds at first, and down to one in fifteen', async (t) => {
  const home = temporaryHome(t);
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const { clock } = begin(t, home);
  await clock.ring();
  const waits = [];
  for (let i = 0; i < 7; i += 1) {
    waits.push(clock.wait);
    await clock.ring();
  }
  assert.deepEqual(waits.map(Math.round), [2000, 3000, 4500, 6750, 10125, 15000, 15000]);
  assert.equal(restInterval, 15000);
});

test('a new session ends the wait, and what is written keeps what it does not own', async (t) => {
  const home = temporaryHome(t);
  fs.writeFileSync(home.inShared('state.json'), '{"speed":1.0,"sessions":[{"id":"x","offset":12}],"other":{"a":1.50}}');
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const { clock } = begin(t, home);
  await clock.ring();
  await change(clock, () => put(home, `${place}/b.jsonl`, lines(prompt('q')), { age: 1 }));
  await clock.ring();
  assert.deepEqual(listed(home).map((row) => row.sessionId), ['b', 'a']);
  assert.match(fs.readFileSync(home.inShared('state.json'), 'utf8'), /"other": \{"a":1\.50\}[\s\S]*"speed": 1\.0/);
  assert.deepEqual(state(home).sessions, [{ id: 'x', offset: 12 }]);
});

test('nothing is written when nothing changed, nor by a second daemon', async (t) => {
  const home = temporaryHome(t);
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const { clock } = begin(t, home);
  await clock.ring();
  const before = stamp(home);
  for (let i = 0; i < 5; i += 1) await clock.ring();
  const second = begin(t, home);
  for (let i = 0; i < 3; i += 1) await second.clock.ring();
  assert.equal(stamp(home), before);
});

test('where there is nothing to tell no document is begun, and a list that is no longer true is emptied', async (t) => {
  const home = temporaryHome(t);
  const { clock } = begin(t, home);
  await clock.ring();
  assert.equal(fs.existsSync(home.inShared('state.json')), false);
  fs.writeFileSync(home.inShared('state.json'), '{"discoveredSessions":[{"sessionId":"gone"}]}');
  await clock.ring();
  assert.deepEqual(listed(home), []);
});

test('active ends by the clock alone', async (t) => {
  const home = temporaryHome(t);
  put(home, `${place}/a.jsonl`, lines(prompt('p')), { age: 899 });
  const { clock } = begin(t, home);
  await clock.ring();
  assert.equal(listed(home)[0].active, true);
  await clock.ring();
  assert.equal(listed(home)[0].active, false);
});

test('a time alone is written seldom, a new text with the next look', async (t) => {
  const home = temporaryHome(t);
  const file = put(home, `${place}/a.jsonl`, lines(prompt('p'), reply('one')));
  const { clock } = begin(t, home);
  await clock.ring();
  const first = stamp(home);
  await change(clock, () => {
    fs.appendFileSync(file, lines({ type: 'progress' }));
    dated(file, 30);
  });
  await clock.ring();
  assert.equal(stamp(home), first);
  await change(clock, () => {
    fs.appendFileSync(file, lines(reply('two')));
    dated(file, 20);
  });
  await clock.ring();
  assert.equal(listed(home)[0].lastText, 'two');
  assert.equal(listed(home)[0].mtimeMs, now - 20_000);
  await change(clock, () => dated(file, 10));
  await clock.ring();
  assert.equal(listed(home)[0].mtimeMs, now - 20_000);
  clock.time += 15_000;
  await clock.ring();
  assert.equal(listed(home)[0].mtimeMs, now - 10_000);
});

test('a list that another program lost is written again, one that it only moved about is not', async (t) => {
  const home = temporaryHome(t);
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const { clock } = begin(t, home);
  await clock.ring();
  const whole = state(home);
  fs.writeFileSync(home.inShared('state.json'), JSON.stringify(whole));
  const moved = stamp(home);
  await clock.ring();
  assert.equal(stamp(home), moved);
  fs.writeFileSync(home.inShared('state.json'), '{"muted":true}');
  await clock.ring();
  assert.deepEqual(state(home), { discoveredSessions: whole.discoveredSessions, muted: true });
});

test('a lock that another holds costs a line in the log, and the next look writes', async (t) => {
  const home = temporaryHome(t);
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  fs.writeFileSync(home.inShared('state.json.lock'), String(process.ppid));
  const { clock, log } = begin(t, home);
  await clock.ring();
  assert.deepEqual(log.lines.map(([level, message]) => `${level} ${message}`),
    ['error the list of sessions could not be written']);
  assert.equal(clock.wait <= busyInterval, true);
  fs.rmSync(home.inShared('state.json.lock'));
  await clock.ring();
  assert.equal(listed(home).length, 1);
});

/** How many bytes this process has read so far. */
const bytesRead = () => Number(/rchar: (\d+)/.exec(fs.readFileSync('/proc/self/io', 'utf8'))[1]);

test('only what changed is read again, and of that only the end', async (t) => {
  const home = temporaryHome(t);
  const text = lines(prompt('p'), ...Array(400).fill({ type: 'progress', data: 'x'.repeat(1000) }), reply('r'));
  for (let i = 0; i < 30; i += 1) put(home, `${place}/s${i}.jsonl`, text);
  const { clock } = begin(t, home);
  const start = bytesRead();
  await clock.ring();
  const first = bytesRead() - start;
  assert.ok(first > 30 * 96 * 1024 && first < 30 * 100 * 1024, `${first} at first`);
  await change(clock, () => fs.appendFileSync(path.join(home.home, place, 's7.jsonl'), lines(reply('changed'))));
  const before = bytesRead();
  await clock.ring();
  assert.ok(bytesRead() - before < 100 * 1024, `${bytesRead() - before} for one`);
  assert.equal(listed(home).find((row) => row.sessionId === 's7').lastText, 'changed');
});

test('folders that come, go and come again are followed', async (t) => {
  const home = temporaryHome(t);
  const { clock, discovery } = begin(t, home);
  await clock.ring();
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  for (const name of ['first', 'second', 'third']) {
    await clock.ring();
    await until(async () => {
      await clock.ring();
      return fs.existsSync(home.inShared('state.json')) && listed(home).length === 1;
    });
    fs.rmSync(path.join(home.home, '.claude/projects'), { recursive: true });
    await until(async () => {
      await clock.ring();
      return listed(home).length === 0;
    });
    assert.equal(discovery.watched, 0);
    put(home, `${place}/${name}.jsonl`, lines(prompt(name)));
  }
  await until(async () => {
    await clock.ring();
    return listed(home)[0]?.title === 'third';
  });
});

test('the folder of an agent that comes later is found with the next look', async (t) => {
  const home = temporaryHome(t);
  const { clock } = begin(t, home);
  for (let i = 0; i < 3; i += 1) await clock.ring();
  put(home, '.codex/sessions/2026/11/20/rollout-1.jsonl', lines({ type: 'session_meta', payload: { id: 'c' } }));
  await clock.ring();
  assert.deepEqual(listed(home).map((row) => row.sessionId), ['c']);
});

test('a reply stays known while tools print more than is looked at', async (t) => {
  const home = temporaryHome(t);
  const file = put(home, `${place}/a.jsonl`, lines(prompt('p'), { type: 'ai-title', aiTitle: 'Named' }, reply('said')));
  const { clock } = begin(t, home);
  await clock.ring();
  const called = { type: 'assistant', message: { content: [{ type: 'tool_use' }] } };
  const result = { type: 'user', message: { content: [{ type: 'tool_result', x: 'x'.repeat(1000) }] } };
  const printed = lines(...Array(600).fill([called, result]).flat());
  await change(clock, () => {
    fs.appendFileSync(file, printed);
    dated(file, 1);
  });
  clock.time += 15_000;
  await clock.ring();
  const [{ title, lastText, mtimeMs }] = listed(home);
  assert.deepEqual([title, lastText, mtimeMs], ['Named', 'said', now - 1000]);
});

test('what is no file is refused at once, should one have taken a file\'s place', async (t) => {
  const pipe = path.join(temporaryHome(t).home, 'pipe');
  execFileSync('mkfifo', [pipe]);
  const reader = new TranscriptReader(new AnswerLimit({ now: Date.now }));
  await assert.rejects(reader.read(pipe, (file) => file.head()), { code: 'EISDIR' });
  await assert.rejects(reader.read(path.dirname(pipe), (file) => file.head()), { code: 'EISDIR' });
});

test('a document that is written in place keeps its row meanwhile, but no longer than a look', async (t) => {
  const home = temporaryHome(t);
  const message = (type, content) => ({ type, content });
  const text = (reply) => JSON.stringify({ sessionId: 'g1', messages: [message('user', 'Ask'), message('gemini', reply)] });
  const name = '.gemini/tmp/p/chats/session-1.json';
  put(home, name, text('Told'));
  const { clock } = begin(t, home);
  await clock.ring();
  const look = async (content) => {
    await change(clock, () => put(home, name, content, { age: 1 }));
    await clock.ring();
    return listed(home).map(({ sessionId, title, lastText }) => [sessionId, title, lastText]);
  };
  const before = [['g1', 'Ask', 'Told']];
  assert.deepEqual(await look(''), before);
  // An empty one is no session: the next look, which comes soon, says so.
  assert.equal(clock.wait <= busyInterval, true);
  await clock.ring();
  assert.deepEqual(listed(home), []);
  assert.deepEqual(await look(text('Told')), before);
  // Longer than before, and not all of it.
  assert.deepEqual(await look(text(`Told ${'more '.repeat(100)}`).slice(0, -40)), before);
  assert.match((await look(text(`Told ${'more '.repeat(100)}`)))[0][2], /^Told more/);
});

test('a file that another took the place of is read anew', async (t) => {
  const home = temporaryHome(t);
  const file = put(home, `${place}/a.jsonl`, lines(prompt('old one'), reply('r')));
  const { clock } = begin(t, home);
  await clock.ring();
  put(home, `${file}.new`, lines(prompt(`new one${', and longer'.repeat(50)}`)));
  await change(clock, () => fs.renameSync(`${file}.new`, file));
  await clock.ring();
  assert.match(listed(home)[0].title, /^new one, and longer/);
  assert.equal(listed(home)[0].lastText, '');
});

test('a session of the database is found again when only its log has grown', async (t) => {
  const home = temporaryHome(t);
  const file = path.join(home.home, '.local/share/opencode/opencode.db');
  store(file, openCodeSchema);
  const { clock } = begin(t, home);
  await clock.ring();
  assert.equal(listed(home)[0].lastText, 'Kept in rows');
  const program = `import sqlite3,sys
c = sqlite3.connect(sys.argv[1])
for line in sys.stdin:
    c.execute("INSERT INTO part VALUES (?, 'm2', ?)", (line, '{"type":"text","text":"Of the log: %s"}' % line.strip()))
    c.commit()`;
  const writer = spawn('python3', ['-c', program, file], { stdio: ['pipe', 'inherit', 'inherit'] });
  t.after(() => writer.kill());
  await change(clock, () => writer.stdin.write('q1\n'));
  await clock.ring();
  assert.equal(listed(home)[0].lastText, 'Of the log: q1');
});

test('a look at the database that came too soon is made up for', async (t) => {
  const home = temporaryHome(t);
  const file = path.join(home.home, '.local/share/opencode/opencode.db');
  store(file, openCodeSchema);
  let changes = 0;
  const scanner = new Scanner({ environment: home.environment, log: silentLog, now: () => now,
    runningFolders: async () => [],
    onChange: () => { changes += 1; } });
  t.after(() => scanner.close());
  const texts = async (time) => (await scanner.scan(now + time)).map((row) => row.lastText);
  assert.deepEqual(await texts(0), ['Kept in rows']);
  store(file, 'UPDATE part SET data = \'{"type":"text","text":"New"}\' WHERE id = \'p2\'');
  await until(() => changes > 0);
  assert.deepEqual([await texts(lookInterval - 1), scanner.isLate], [['Kept in rows'], true]);
  assert.deepEqual([await texts(lookInterval), scanner.isLate], [['New'], false]);
});

test('an aider that was started meanwhile is found within 45 s, and not looked for more often', async (t) => {
  const home = temporaryHome(t);
  put(home, 'late/.aider.chat.history.md', '# aider chat started at 2026-11-20\n\n#### Ask\n\nTold\n');
  let searches = 0;
  const running = [];
  const runningFolders = async () => {
    searches += 1;
    return running;
  };
  const { clock } = begin(t, home, { runningFolders });
  await clock.ring();
  const begun = clock.time;
  running.push(path.join(home.home, 'late'));
  while (clock.timer.at - begun < 45_000) await clock.ring();
  assert.equal(searches, 1);
  await clock.ring();
  assert.equal(searches, 2);
  assert.deepEqual(listed(home).map((row) => [row.source, row.lastText]), [['aider', 'Told']]);
});

test('without python3 the log says so once, and the others are found', async (t) => {
  const home = temporaryHome(t);
  const file = path.join(home.home, '.local/share/opencode/opencode.db');
  store(file, openCodeSchema);
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const environment = { ...home.environment, PATH: '/nowhere' };
  const { clock, log } = begin(t, home, { environment });
  for (let i = 0; i < 4; i += 1) {
    await clock.ring();
    clock.time += lookInterval;
    dated(file, i);
  }
  assert.deepEqual(log.lines, [['warn', 'python3 is missing; sessions in the database of OpenCode are not found']]);
  assert.deepEqual(listed(home).map((row) => row.sessionId), ['a']);
});

test('python3 that is installed later is noticed, though no database changes', async (t) => {
  const home = temporaryHome(t);
  for (const name of ['opencode', 'opencode-dev']) {
    store(path.join(home.home, `.local/share/opencode/${name}.db`), openCodeSchema);
  }
  const programs = path.join(home.home, 'programs');
  fs.mkdirSync(programs);
  const log = recordingLog();
  const scanner = new Scanner({ environment: { ...home.environment, PATH: programs }, log, now: () => now,
    runningFolders: async () => [], onChange: () => {} });
  t.after(() => scanner.close());
  const texts = async (time) => (await scanner.scan(now + time)).map((row) => row.lastText);
  assert.deepEqual([await texts(0), scanner.isLate], [[], false]);
  assert.deepEqual([await texts(missingInterval), scanner.isLate], [[], false]);
  const python = execFileSync('python3', ['-c', 'import sys; print(sys.executable)'], { encoding: 'utf8' }).trim();
  fs.symlinkSync(python, `${programs}/python3`);
  const search = 45_000;
  assert.deepEqual([await texts(missingInterval + search), scanner.isLate], [[], false]);
  assert.ok((await texts(missingInterval + 2 * search)).includes('Kept in rows'));
  assert.equal(log.lines.length, 1);
});

test('odd things on the disk cost nothing but themselves', async (t) => {
  const home = temporaryHome(t);
  const at = (name) => path.join(home.home, place, name);
  put(home, `${place}/good.jsonl`, lines(prompt('p')));
  fs.symlinkSync('loop.jsonl', at('loop.jsonl'));
  fs.symlinkSync('..', at('up'));
  fs.symlinkSync('nowhere', at('gone.jsonl'));
  fs.mkdirSync(at('folder.jsonl'));
  execFileSync('mkfifo', [at('pipe.jsonl')]);
  fs.writeFileSync(Buffer.concat([Buffer.from(`${at('x')}`), Buffer.from([0xff, 0xfe]), Buffer.from('.jsonl')]),
    lines(prompt('q')));
  fs.writeFileSync(path.join(home.home, '.claude/projects/file'), 'x');
  for (const name of ['.codex', '.gemini', '.pi/agent', '.local/share/opencode/storage', '.cline/data']) put(home,
    name, 'a file');
  const odd = ['null', '7', '[]', '{}', '{"type":7}', '{"type":"user","message":null,"cwd":{}}',
    '{"type":"assistant","message":{"content":[null,7,{}]}}', 'x'];
  put(home, `${place}/odd.jsonl`, lines(...odd, prompt('after')));
  const rows = await findSessions({ environment: home.environment, now: Date.now(), runningFolders: async () => [] });
  assert.deepEqual(rows.map((row) => row.title).sort(), ['after', 'p']);
});

test('odd values in every agent\'s transcripts are borne', async (t) => {
  const home = temporaryHome(t);
  const odd = [null, 7, 'x', [], {}, [null], { a: null }];
  const names = ['type', 'payload', 'message', 'content', 'role', 'id', 'sessionId', 'cwd', 'text', 'item', 'git',
    'source',
    'messages', 'projects', 'metadata', 'path', '$set', 'kind', 'agent', 'title', 'directory', 'parentID', 'summary'];
  const records = ['user', 'assistant', 'session', 'session_meta', 'event_msg', 'response_item', 'message', 'gemini',
    'summary']
    .flatMap((type) => names.flatMap((name) => odd.map((value) => ({ type, role: 'user', payload: { type: 'message',
      role: 'user' }, [name]: value }))));
  const text = lines(...records, ...odd.map((value) => ({ type: 'session_meta', payload: value })));
  put(home, `${place}/a.jsonl`, text);
  put(home, '.codex/sessions/2026/11/20/rollout-a.jsonl', text);
  put(home, '.gemini/tmp/a/chats/session-a.jsonl', text);
  put(home, '.pi/agent/sessions/a/a.jsonl', text);
  for (const value of [...odd, { messages: records }, { messages: odd }, records]) {
    put(home, '.gemini/projects.json', value);
    put(home, '.gemini/tmp/a/chats/session-b.json', value);
    put(home, '.cline/data/sessions/a/a.messages.json', value);
    put(home, '.cline/data/sessions/a/a.json', value);
    put(home, '.local/share/opencode/storage/session/p/a.json', value);
    put(home, '.local/share/opencode/storage/message/a/m.json', value);
    const log = recordingLog();
    const { clock } = begin(t, home, { log });
    await clock.ring();
    assert.deepEqual(log.lines.filter(([level]) => level === 'error'), [], JSON.stringify(value).slice(0, 80));
  }
});

/**
 * How long the process couldn't do anything else, each time, in milliseconds: no longer than it has worked meanwhile, as
 * a busy machine holds it up too.
 */
async function pausesDuring(work) {
  const pauses = [];
  const worked = () => (({ user, system }) => (user + system) / 1000)(process.cpuUsage());
  let last = [performance.now(), worked()];
  const pulse = setInterval(() => {
    const present = [performance.now(), worked()];
    pauses.push(Math.min(present[0] - last[0] - 1, present[1] - last[1]));
    last = present;
  }, 1);
  await work();
  clearInterval(pulse);
  return pauses;
}

test('old tasks are not watched, and one that is taken up again is found', async (t) => {
  const home = temporaryHome(t);
  const root = path.join(home.home, '.config/Code/User/globalStorage/saoudrizwan.claude-dev/tasks');
  const task = (name, age) => {
    const file = put(home, path.join(root, name, 'api_conversation_history.json'),
      [{ role: 'user', content: 'Ask' }, { role: 'assistant', content: 'Told' }], { age });
    dated(path.dirname(file), Math.max(age, 60));
    return file;
  };
  const old = 20 * 24 * 3600;
  for (let i = 0; i < 1200; i += 1) task(`old${i}`, old);
  task('new', 60);
  const { clock, discovery, log } = begin(t, home);
  await clock.ring();
  const ids = () => listed(home).map(({ sessionId }) => sessionId);
  assert.deepEqual([ids(), discovery.watched < 20, log.lines], [['new'], true, []]);
  const before = discovery.watched;
  // Written in place, which the folder's own time doesn't tell.
  dated(path.dirname(task('old7', 1)), old);
  clock.time += 300_000;
  await clock.ring();
  assert.deepEqual(ids(), ['old7', 'new']);
  assert.equal(discovery.watched, before + 1);
});

test('twenty thousand files in a folder are looked at without holding up the process', async (t) => {
  const home = temporaryHome(t);
  fs.mkdirSync(path.join(home.home, place), { recursive: true });
  for (let i = 0; i < 20_000; i += 1) fs.writeFileSync(path.join(home.home, place, `f${i}.jsonl`),
    i % 500 ? '' : lines(prompt('p')));
  const scanner = new Scanner({ environment: home.environment, log: silentLog, now: () => now,
    runningFolders: async () => [] });
  t.after(() => scanner.close());
  const pauses = await pausesDuring(() => scanner.scan(Date.now()));
  assert.ok(pauses.length > 50, 'the process was held up all along');
  assert.ok(Math.max(...pauses) < 100, `${Math.max(...pauses)} ms`);
});

test('where nothing more can be watched the log says so once, and folders are looked through every 30 s', async (t) => {
  const home = temporaryHome(t);
  t.mock.method(fs, 'watch', () => { throw Object.assign(new Error('no'), { code: 'ENOSPC' }); });
  put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const { clock, log, discovery } = begin(t, home);
  await clock.ring();
  assert.equal(discovery.watched, 0);
  assert.deepEqual(log.lines.map(([level, message]) => `${level} ${message}`),
    ['warn no more folders can be watched; looking through the others every 30 s']);
  put(home, `${place}/b.jsonl`, lines(prompt('q')));
  while (clock.time < now + 29_000 - clock.wait) await clock.ring();
  assert.equal(listed(home).length, 1);
  clock.time = now + 30_000;
  await clock.ring();
  assert.equal(listed(home).length, 2);
});

test('the service\'s writes and the daemon\'s all survive', async (t) => {
  const home = temporaryHome(t);
  const file = put(home, `${place}/a.jsonl`, lines(prompt('p')));
  const { clock } = begin(t, home);
  const document = home.inShared('state.json');
  fs.writeFileSync(document, '{"sessions":[{"id":"s","offset":0}],"count":0}');
  const other = startWriter(t, document, 'count');
  for (let i = 1; i <= 60; i += 1) {
    fs.appendFileSync(file, lines(reply(`r${i}`)));
    await clock.ring();
  }
  const count = await other.stop();
  await until(async () => {
    await clock.ring();
    return listed(home)[0].lastText === 'r60';
  });
  assert.deepEqual([state(home).count, state(home).sessions], [count, [{ id: 's', offset: 0 }]]);
});

test('a daemon that is stopped in the middle of a look leaves nothing running', async (t) => {
  const home = temporaryHome(t);
  for (let i = 0; i < 50; i += 1) put(home, `${place}/${i}.jsonl`, lines(prompt('p')));
  const { clock, discovery } = begin(t, home);
  clock.timer.callback();
  await discovery.stop();
  assert.equal(discovery.watched, 0);
  const { timer } = clock;
  assert.equal(timer === undefined || timer.at === now, true);
});
