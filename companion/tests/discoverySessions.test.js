// What is found of each agent's sessions, in small transcripts made after the agents' own.

import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import { silenceInterval } from '../lib/answerLimit.js';
import { findSessions } from '../lib/discovery/discovery.js';
import { Scanner } from '../lib/discovery/scanner.js';
import { silentLog } from '../lib/log.js';
import { dated, lines, now, openCodeSchema, put, store } from './agents.js';
import { FarFolder } from './farFolder.js';
import { temporaryHome } from './home.js';

const nobodyRuns = async () => [];

function find(home, variables = {}, options = {}) {
  const environment = { ...home.environment, ...variables };
  return findSessions({ environment, now, runningFolders: nobodyRuns, ...options });
}

async function findOne(home, variables, options) {
  const rows = await find(home, variables, options);
  assert.equal(rows.length, 1, JSON.stringify(rows));
  return rows[0];
}

const user = (text, more = {}) => ({ type: 'user', cwd: '/work/app', gitBranch: 'main', uuid: 'u1', ...more,
  message: { role: 'user', content: text } });
const assistant = (text, more = {}) => ({ type: 'assistant', cwd: '/work/app', gitBranch: 'main', uuid: 'a1', ...more,
  message: { role: 'assistant', content: [{ type: 'text', text }] } });
const claude = '.claude/projects/-work-app';

test('a session has exactly the keys that the service reads', async (t) => {
  const home = temporaryHome(t);
  const file = put(home, `${claude}/0b5c.jsonl`, lines(user('Build **it**'),
    assistant('Done: see https://x.y/z now.')));
  assert.deepEqual(await find(home), [{
    active: true,
    branch: 'main',
    cwd: '/work/app',
    lastText: 'Done: see now.',
    mtimeMs: now - 60_000,
    sessionId: '0b5c',
    source: 'claude-code',
    title: 'Build it',
    transcript: file,
  }]);
});

test('the newest 40 are given, the newest first', async (t) => {
  const home = temporaryHome(t);
  for (let i = 0; i < 60; i += 1) put(home, `${claude}/s${i}.jsonl`, lines(user(`p${i}`)), { age: 1000 - i });
  const rows = await find(home);
  assert.deepEqual(rows.map((row) => row.sessionId), Array.from({ length: 40 }, (_, i) => `s${59 - i}`));
});

test('what is older than two weeks is not found, and active is what was written within 15 minutes', async (t) => {
  const home = temporaryHome(t);
  put(home, `${claude}/a.jsonl`, lines(user('a')), { age: 899 });
  put(home, `${claude}/b.jsonl`, lines(user('b')), { age: 901 });
  put(home, `${claude}/c.jsonl`, lines(user('c')), { age: 14 * 24 * 3600 - 60 });
  put(home, `${claude}/d.jsonl`, lines(user('d')), { age: 14 * 24 * 3600 + 60 });
  const rows = await find(home);
  assert.deepEqual(rows.map(({ sessionId, active }) => [sessionId, active]), [['a', true], ['b', false], ['c', false]]);
});

test('Claude Code: its own title goes before a summary, and that before the prompt', async (t) => {
  const home = temporaryHome(t);
  const prompt = user('the prompt');
  const summary = { type: 'summary', summary: 'The summary', leafUuid: 'u1' };
  const foreign = { type: 'summary', summary: 'Of another session', leafUuid: 'elsewhere' };
  const ai = { type: 'ai-title', aiTitle: 'The agent\'s' };
  const custom = (customTitle) => ({ type: 'custom-title', customTitle });
  for (const [records, title] of [
    [[prompt], 'the prompt'],
    [[foreign, prompt], 'the prompt'],
    [[summary, prompt], 'The summary'],
    [[prompt, summary, ai], 'The agent\'s'],
    [[custom('Old'), prompt, ai, custom('New'), assistant('x')], 'New'],
  ]) {
    put(home, `${claude}/s.jsonl`, lines(...records));
    assert.equal((await findOne(home)).title, title);
  }
});

test('Claude Code: what machines wrote is no prompt, and side chains tell nothing', async (t) => {
  const home = temporaryHome(t);
  put(home, `${claude}/s.jsonl`, lines(
    user('Caveat: ...', { isMeta: true }),
    user('<command-name>/clear</command-name>'),
    user('<local-command-stdout>ok</local-command-stdout>'),
    user('side', { isSidechain: true, cwd: '/side', gitBranch: 'side' }),
    user([{ type: 'tool_result', content: 'x' }]),
    user([{ type: 'text', text: '<ide_opened_file>a.js</ide_opened_file>' }, { type: 'text', text: 'Fix a.js' }]),
    assistant('Fixed.'),
    assistant('From the side.', { isSidechain: true }),
    { type: 'assistant', message: { content: [{ type: 'tool_use', name: 'x' }] } },
  ));
  const { title, lastText, branch } = await findOne(home);
  assert.deepEqual([title, lastText, branch], ['Fix a.js', 'Fixed.', 'main']);
});

test('Claude Code: sub-agents\' files are no sessions, nor is a file that nobody spoke in', async (t) => {
  const home = temporaryHome(t);
  put(home, `${claude}/agent-7.jsonl`, lines(user('x', { isSidechain: true })));
  put(home, `${claude}/whole/subagents/agent-8.jsonl`, lines(user('x', { isSidechain: true })));
  put(home, `${claude}/side.jsonl`, lines(user('x', { isSidechain: true }), assistant('y', { isSidechain: true })));
  put(home, `${claude}/snapshot.jsonl`, lines({ type: 'file-history-snapshot' }));
  put(home, `${claude}/empty.jsonl`, '');
  put(home, `${claude}/notes.txt`, lines(user('x')));
  assert.deepEqual(await find(home), []);
});

test('Claude Code: where no record tells the folder, the project\'s name does', async (t) => {
  const home = temporaryHome(t);
  put(home, `${claude}/s.jsonl`, lines({ type: 'assistant', message: { content: [{ type: 'text', text: 'Hi' }] } }));
  assert.equal((await findOne(home)).cwd, '/work/app');
});

test('only the beginning and the end of a long transcript are read', async (t) => {
  const home = temporaryHome(t);
  const file = put(home, `${claude}/s.jsonl`, lines(user('First'), assistant('early')));
  fs.truncateSync(file, 3_000_000_000);
  fs.appendFileSync(file, `\n${lines(assistant('late', { gitBranch: 'topic' }))}`);
  dated(file, 5);
  const begin = process.cpuUsage();
  const { title, lastText, branch } = await findOne(home);
  assert.deepEqual([title, lastText, branch], ['First', 'late', 'topic']);
  // Three gigabytes take longer to read, whatever else the machine does.
  const used = process.cpuUsage(begin);
  assert.ok(used.user + used.system < 2_000_000, JSON.stringify(used));
});

test('a long line before the prompt, and one behind the reply, hide neither', async (t) => {
  const home = temporaryHome(t);
  const long = { type: 'attachment', content: 'x'.repeat(100_000) };
  put(home, `${claude}/s.jsonl`, lines(long, user('Prompt'), assistant('Reply'), ...Array(10).fill(long)).slice(0,
    -450_000));
  const { title, cwd } = await findOne(home);
  assert.deepEqual([title, cwd], ['Prompt', '/work/app']);
  put(home, `${claude}/s.jsonl`, lines(user('Prompt'), ...Array(9).fill(long), assistant('Reply'), long));
  assert.equal((await findOne(home)).lastText, 'Reply');
});

test('a text is cut to 200 characters as a reader counts them, and a title to 80', async (t) => {
  const home = temporaryHome(t);
  const family = '👨‍👩‍👧';
  put(home, `${claude}/s.jsonl`, lines(user(`${'ü'.repeat(79)}${family}x`), assistant(`${family.repeat(200)}x`)));
  const { title, lastText } = await findOne(home);
  assert.equal(title, `${'ü'.repeat(79)}${family}`);
  assert.equal(lastText, family.repeat(200));
});

test('half a character, and control characters, do not reach the list', async (t) => {
  const home = temporaryHome(t);
  put(home, `${claude}/s.jsonl`, lines(user('a'), '{"type":"assistant","message":{"content":[{"type":"text","text":"x\\ud800y\\u0000\\u001bz"}]}}'));
  assert.equal((await findOne(home)).lastText, 'x\ufffdy z');
});

test('a folder that the service would refuse is left out', async (t) => {
  const home = temporaryHome(t);
  for (const cwd of ['C:\\app', 'app', '/a/../b', 7]) {
    put(home, '.pi/agent/sessions/--x--/2026_1.jsonl', lines({ type: 'session', id: 'p', cwd }));
    assert.equal((await findOne(home)).cwd, '');
  }
});

const meta = (payload) => ({ type: 'session_meta', payload: { id: 'cx', cwd: '/work/app', git: { branch: 'dev' },
  ...payload } });
const event = (payload) => ({ type: 'event_msg', payload });
const item = (payload) => ({ type: 'response_item', payload });
const rollout = '.codex/sessions/2026/11/20/rollout-2026-11-20T10-00-00-cx.jsonl';

test('Codex: the prompt without what the editor says, the reply in either form', async (t) => {
  const home = temporaryHome(t);
  const begin = [meta({}),
    item({ type: 'message', role: 'user', content: [{ type: 'input_text', text: '<environment_context>x' }] }),
    item({ type: 'message', role: 'user', content: [{ type: 'input_text', text: '# AGENTS.md instructions for /x' }] }),
    event({ type: 'user_message', message: '# Context from my IDE setup:\n\n## My request for Codex:\nAdd tests' })];
  for (const reply of [
    event({ type: 'agent_message', message: 'Added.' }),
    item({ type: 'message', role: 'assistant', content: [{ type: 'output_text', text: 'Added.' }] }),
    event({ type: 'item_completed', item: { type: 'AgentMessage', content: [{ type: 'Text', text: 'Added.' }] } }),
  ]) {
    const file = put(home, rollout, lines(...begin, reply, item({ type: 'function_call' })));
    const row = await findOne(home);
    assert.deepEqual([row.sessionId, row.cwd, row.branch, row.title, row.lastText, row.source, row.transcript],
      ['cx', '/work/app', 'dev', 'Add tests', 'Added.', 'codex', file]);
  }
});

test('Codex: a name goes before the prompt, and sub-agents are no sessions', async (t) => {
  const home = temporaryHome(t);
  put(home, rollout, lines(meta({}), event({ type: 'user_message', message: 'p' }),
    event({ type: 'thread_name_updated', thread_name: 'Named' })));
  put(home, rollout.replace('cx', 'sub1'), lines(meta({ id: 's1', source: { subagent: { other: 'review' } } })));
  put(home, rollout.replace('cx', 'sub2'), lines(meta({ id: 's2', thread_source: 'subagent' })));
  assert.equal((await findOne(home)).title, 'Named');
});

test('Codex: instructions of 100 KB in the first line hide nothing', async (t) => {
  const home = temporaryHome(t);
  put(home, rollout, lines(meta({ base_instructions: { text: 'x'.repeat(100_000) } }),
    event({ type: 'user_message', message: 'p' }), event({ type: 'agent_message', message: 'r' })));
  const { title, lastText, cwd } = await findOne(home);
  assert.deepEqual([title, lastText, cwd], ['p', 'r', '/work/app']);
});

const geminiMessages = [{ id: '1', type: 'user', content: [{ text: 'Ask' }] }, { id: '2', type: 'gemini',
  content: 'Told' },
  { id: '3', type: 'gemini', content: '', toolCalls: [] }];

test('Gemini CLI: lines and documents, and where they run', async (t) => {
  const home = temporaryHome(t);
  const hash = createHash('sha256').update('/work/hashed').digest('hex');
  const head = { sessionId: 'g1', projectHash: hash, kind: 'main' };
  put(home, '.gemini/projects.json', { projects: { '/work/listed': 'listed', '/bad/../x': 'bad', n: 1 } });
  put(home, '.gemini/tmp/listed/chats/session-1.jsonl', lines(head, ...geminiMessages, { $set: { summary: 'Sum' } }),
    { age: 1 });
  put(home, `.gemini/tmp/${hash}/chats/session-2.json`, { ...head, sessionId: 'g2', messages: geminiMessages },
    { age: 2 });
  put(home, '.gemini/tmp/rooted/chats/session-3.jsonl', lines({ ...head, projectHash: 'f', sessionId: 'g3' },
    ...geminiMessages), { age: 3 });
  put(home, '.gemini/tmp/rooted/.project_root', '/work/rooted\n');
  put(home, '.gemini/tmp/rooted/chats/session-4.jsonl', lines({ ...head, sessionId: 'g4', kind: 'subagent' },
    ...geminiMessages));
  put(home, '.gemini/tmp/rooted/logs.json', []);
  put(home, '.gemini/tmp/told/chats/session-5.jsonl', lines({ ...head, sessionId: 'g5' }, ...geminiMessages),
    { age: 5 });
  put(home, `${claude}/s.jsonl`, lines(user('p', { cwd: '/work/hashed' })), { age: 9 });
  const rows = (await find(home)).filter((row) => row.source === 'gemini');
  assert.deepEqual(rows.map((row) => [row.sessionId, row.cwd, row.title, row.lastText]), [
    ['g1', '/work/listed', 'Sum', 'Told'], ['g2', '/work/hashed', 'Ask', 'Told'], ['g3', '/work/rooted', 'Ask', 'Told'],
    ['g5', '/work/hashed', 'Ask', 'Told']]);
});

test('a long document is known by its beginning and its end', async (t) => {
  const home = temporaryHome(t);
  const filler = Array.from({ length: 3000 }, (_, i) => ({ id: `f${i}`, type: 'info', content: 'x'.repeat(500) }));
  const messages = [geminiMessages[0], ...filler, ...geminiMessages.slice(1)];
  put(home, '.gemini/tmp/p/chats/session-1.json', JSON.stringify({ sessionId: 'g', messages, summary: 'Own' }, null,
    2));
  const { title, lastText, sessionId } = await findOne(home);
  assert.deepEqual([title, lastText, sessionId], ['Own', 'Told', 'g']);
});

test('Cline: tasks of an editor, and the newer store', async (t) => {
  const home = temporaryHome(t);
  const text = (role, ...texts) => ({ role, content: texts.map((one) => ({ type: 'text', text: one })) });
  const ask = text('user', '<task>\nTidy up\n</task>', '<environment_details>\n# Current Working Directory (/work/cl) Files\na</environment_details>');
  const tasks = 'User/globalStorage/saoudrizwan.claude-dev/tasks';
  const old = put(home, `.config/Code/${tasks}/1700/api_conversation_history.json`, [ask,
    text('assistant', '<thinking>hm</thinking>Tidied. <attempt_completion><result>All.</result></attempt_completion>')], { age: 1 });
  const session = '.cline/data/sessions/n1/n1';
  const young = put(home, `${session}.messages.json`, { sessionId: 'n1', agent: 'lead', messages: [text('user',
    'New one'),
    text('assistant', 'Yes.'), { role: 'assistant', content: [{ type: 'tool_use' }] }], systemPrompt: 'long' },
      { age: 2 });
  put(home, `${session}.json`, { cwd: '/work/new', metadata: { title: 'Titled' } });
  put(home, `${session}.compaction.json`, { messages: [] });
  put(home, '.cline/data/sessions/n1__mate/n1__mate.messages.json', { agent: 'mate', messages: [text('user', 'x')] });
  const rows = await find(home);
  assert.deepEqual(rows.map((row) => [row.source, row.sessionId, row.cwd, row.title, row.lastText, row.transcript]), [
    ['cline', '1700', '/work/cl', 'Tidy up', 'Tidied. All.', old], ['cline', 'n1', '/work/new', 'Titled', 'Yes.',
      young]]);
});

test('Pi: two records on one line cost no more than that line', async (t) => {
  const home = temporaryHome(t);
  const message = (role, text) => ({ type: 'message', message: { role, content: [{ type: 'text', text }] } });
  const records = lines({ type: 'session', id: 'pi-1', cwd: '/work/pi' }, message('user', 'Ask'),
    `${JSON.stringify(message('assistant', 'lost'))}${JSON.stringify(message('user', 'lost'))}`, message('assistant',
      'Kept'));
  const file = put(home, '.pi/agent/sessions/--work-pi--/2026-11-20T10-00-00-000Z_pi-1.jsonl', records);
  const row = await findOne(home);
  assert.deepEqual([row.source, row.sessionId, row.cwd, row.title, row.lastText, row.transcript],
    ['pi', 'pi-1', '/work/pi', 'Ask', 'Kept', file]);
  put(home, file, `${records}${lines({ type: 'session_info', name: 'Named' })}`);
  assert.equal((await findOne(home)).title, 'Named');
});

const history = (...chats) => chats.map((chat) => `\n# aider chat started at 2026-11-20 10:00:00\n\n${chat}`).join('\n');

test('aider: histories where other sessions run, where one runs now, and where it was told to look', async (t) => {
  const home = temporaryHome(t);
  const at = (name) => path.join(home.home, name);
  const text = history('#### old \n\nOld reply', '> Aider v1  \n\n#### /add x  \n#### Please # fix  \n#### more\n\nFirst\n\n> Applied  \n\nSecond line\n# heading\n\n> Tokens  \n');
  for (const name of ['repo', 'running', 'named', 'elsewhere', 'attached']) put(home,
    `${name}/.aider.chat.history.md`, text, { age: 5 });
  put(home, 'repo/.git/HEAD', '');
  put(home, 'repo/deep/er/x', '');
  put(home, `${claude}/s.jsonl`, lines(user('p', { cwd: at('repo/deep/er') })), { age: 9 });
  fs.writeFileSync(home.inShared('state.json'), JSON.stringify({ sessions: [{ id: 'x', cwd: at('attached') }, 5] }));
  const rows = await find(home, { SONRA_AIDER_FOLDERS: at('named') }, { runningFolders: async () => [at('running')] });
  const found = rows.filter((row) => row.source === 'aider');
  assert.deepEqual(found.map((row) => row.cwd).sort(), ['attached', 'named', 'repo', 'running'].map(at).sort());
  assert.equal(new Set(found.map((row) => row.sessionId)).size, 4);
  for (const row of found) {
    assert.match(row.sessionId, /^aider-[0-9a-f]{16}$/);
    assert.deepEqual([row.title, row.lastText, row.transcript],
      ['Please # fix', 'Second line # heading', path.join(row.cwd, '.aider.chat.history.md')]);
  }
});

test('aider: a folder that gave no answer is asked again after some minutes', async (t) => {
  const home = temporaryHome(t);
  const file = put(home, 'far/.aider.chat.history.md', '#### Ask\n\nTold\n');
  const environment = { ...home.environment, SONRA_AIDER_FOLDERS: path.dirname(file) };
  const far = new FarFolder(path.dirname(file));
  t.after(() => far.answerAll());
  let time = now;
  const scanner = new Scanner({ environment, log: silentLog, now: () => time, runningFolders: nobodyRuns,
    folders: { system: far.system, answerLimit: 100 } });
  t.after(() => scanner.close());
  const look = async (later) => {
    time = now + later;
    return (await scanner.scan(time)).map((row) => row.lastText);
  };
  assert.deepEqual(await look(0), []);
  assert.equal(far.asked, 1);
  far.answerAll();
  assert.deepEqual(await look(silenceInterval - 1), []);
  assert.equal(far.asked, 1);
  // The folders are looked for again once in a while.
  assert.deepEqual(await look(2 * silenceInterval), ['Told']);
});

test('aider: a running one is found by its command, as a program or as a script', async (t) => {
  const { runs } = await import('../lib/discovery/processes.js');
  for (const [command, is] of [[['aider', '--x'], true], [['/usr/bin/python3', '-u', '/home/u/bin/aider'], true],
    [['python3.12', '-m', 'aider'], true], [['python', '-X', 'utf8', '/v/bin/aider'], true],
    [['python3', '-uW', 'ignore', '-Xdev', '-m', 'aider'], true], [['python3', '-X', 'aider', 'x.py'], false],
    [['vim', 'aider'], false], [['python3', 'x.py', 'aider'], false], [[''],
      false]]) {
    assert.equal(runs(command.join('\0'), 'aider'), is, command.join(' '));
  }
});

function tree(home, root = '.local/share/opencode/storage') {
  const message = (id, role, text, more = {}) => {
    put(home, `${root}/message/ses_1/${id}.json`, { id, role, ...more });
    put(home, `${root}/part/${id}/prt_1.json`, { type: 'text', text });
    put(home, `${root}/part/${id}/prt_2.json`, { type: 'text', text: 'put in', synthetic: true });
  };
  put(home, `${root}/session/p1/ses_1.json`, { id: 'ses_1', directory: '/work/oc', title: 'The title' });
  message('msg_1', 'user', 'Ask');
  message('msg_2', 'assistant', 'Told', { path: { cwd: '/work/oc' } });
  put(home, `${root}/message/ses_1/msg_3.json`, { id: 'msg_3', role: 'assistant' });
  put(home, `${root}/part/msg_3/prt_1.json`, { type: 'tool' });
  put(home, `${root}/session/p1/ses_2.json`, { id: 'ses_2', parentID: 'ses_1', directory: '/work/oc', title: 'Sub' });
  put(home, `${root}/message/ses_2/msg_9.json`, { id: 'msg_9', role: 'assistant' });
  for (const name of ['ses_1', 'ses_2']) dated(path.join(home.home, root, 'message', name), 60);
}

test('OpenCode: the tree of files', async (t) => {
  const home = temporaryHome(t);
  tree(home);
  const row = await findOne(home);
  assert.deepEqual([row.source, row.sessionId, row.cwd, row.title, row.lastText],
    ['opencode', 'ses_1', '/work/oc', 'The title', 'Told']);
  assert.equal(row.transcript, path.join(home.home, '.local/share/opencode/storage/message/ses_1'));
  put(home, '.local/share/opencode/storage/session/p1/ses_1.json', { directory: '/work/oc',
    title: 'New session - 2026-11-20T10:00:00.000Z' });
  assert.equal((await findOne(home)).title, 'Ask');
});

test('a session with two transcripts is one, the newer', async (t) => {
  const home = temporaryHome(t);
  put(home, '.pi/agent/sessions/--a--/1_x.jsonl', lines({ type: 'session', id: 'x' }), { age: 9 });
  const newer = put(home, '.pi/agent/sessions/--a--/2_x.jsonl', lines({ type: 'session', id: 'x' }), { age: 5 });
  assert.equal((await findOne(home)).transcript, newer);
});

test('OpenCode: the database goes before the tree, and nothing is left beside it', async (t) => {
  const home = temporaryHome(t);
  tree(home);
  dated(path.join(home.home, '.local/share/opencode/storage/message/ses_1'), 1);
  const file = path.join(home.home, '.local/share/opencode/opencode.db');
  store(file, openCodeSchema);
  dated(file, 3);
  const [row, ...others] = await find(home);
  assert.deepEqual(others, []);
  assert.deepEqual([row.sessionId, row.transcript, row.cwd, row.title, row.lastText, row.mtimeMs],
    ['ses_1', `${file}#ses_1`, '/work/oc', 'Stored', 'Kept in rows', now - 40_000]);
  assert.deepEqual(fs.readdirSync(path.dirname(file)).sort(), ['opencode.db', 'storage']);
});

/** A hundred sessions that are newer than the one of the schema. */
const newer = Array.from({ length: 100 }, (_, i) => `INSERT INTO session VALUES ('ses_n${i}', '', '/work/n${i}', 'New', ${now - i});`);

test('OpenCode: a certain session is found in the database whatever its place', async (t) => {
  const home = temporaryHome(t);
  const file = path.join(home.home, '.local/share/opencode/opencode.db');
  store(file, `${openCodeSchema} ${newer.join('')}`);
  const lookFor = async (options) => {
    const row = (await find(home, {}, options)).find(({ sessionId }) => sessionId === 'ses_1');
    return row && [row.transcript, row.cwd, row.title, row.lastText, row.mtimeMs];
  };
  assert.equal(await lookFor({}), undefined);
  // Words are looked for only where they are wanted.
  assert.deepEqual(await lookFor({ isBounded: false }), [`${file}#ses_1`, '/work/oc', 'Stored', '', now - 50_000]);
  assert.deepEqual(await lookFor({ isBounded: false, session: 'ses_1' }),
    [`${file}#ses_1`, '/work/oc', 'Stored', 'Kept in rows', now - 40_000]);
  assert.equal((await find(home, {}, { isBounded: false })).length, 101);
});

test('OpenCode: where the words take too long to be found, a certain session is found without', async (t) => {
  const home = temporaryHome(t);
  // Words that would take for ever: a table's place is taken by a view.
  const endless = `DROP TABLE part; CREATE VIEW part AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n)
    SELECT i AS id, 'm' || i AS message_id, '{}' AS data FROM n;`;
  store(path.join(home.home, '.local/share/opencode/opencode.db'), `${openCodeSchema} ${endless}`);
  const row = await findOne(home, {}, { isBounded: false });
  assert.deepEqual([row.sessionId, row.cwd, row.title, row.lastText], ['ses_1', '/work/oc', 'Stored', '']);
});

test('OpenCode: a file that is no database costs only itself', async (t) => {
  const home = temporaryHome(t);
  tree(home);
  put(home, '.local/share/opencode/opencode.db', 'garbage');
  assert.equal((await findOne(home)).title, 'The title');
});

test('each agent\'s own variable moves its place, and an empty or relative one does not', async (t) => {
  const home = temporaryHome(t);
  const moved = path.join(home.home, 'moved');
  const places = {
    CLAUDE_CONFIG_DIR: ['.claude', 'projects/-a/c.jsonl', lines(user('p'))],
    CODEX_HOME: ['.codex', 'sessions/2026/11/20/rollout-x.jsonl', lines(meta({ id: 'c' }))],
    GEMINI_CLI_HOME: ['', '.gemini/tmp/p/chats/session-1.jsonl', lines({ sessionId: 'c' }, ...geminiMessages)],
    CLINE_DATA_DIR: ['.cline/data', 'sessions/c/c.messages.json', { messages: [{ role: 'user', content: 'p' }] }],
    PI_CODING_AGENT_DIR: ['.pi/agent', 'sessions/--a--/1_c.jsonl', lines({ type: 'session', id: 'c' })],
  };
  for (const [name, [usual, file, content]] of Object.entries(places)) {
    for (const [folder, value] of [[moved, moved], [path.join(home.home, usual), ''], [path.join(home.home, usual),
      'rel'],
      [moved, '~/moved']]) {
      const transcript = put(home, path.join(folder, file), content);
      assert.equal((await findOne(home, { [name]: value })).transcript, transcript, `${name}=${value}`);
      fs.rmSync(transcript);
    }
  }
  tree(home, 'moved/opencode/storage');
  assert.equal((await findOne(home, { XDG_DATA_HOME: moved })).sessionId, 'ses_1');
  assert.deepEqual(await find(home, { XDG_DATA_HOME: 'moved' }), []);
});
