// The agents' real transcripts, laid out as the agents do, are all found. Nothing of their texts stands here but digests.

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import { findSessions } from '../lib/discovery/discovery.js';
import { dated, lay, now, realTranscripts } from './agents.js';
import { temporaryHome } from './home.js';

const digest = (text) => (text === '' ? '' : createHash('sha256').update(text).digest('hex').slice(0, 8));

/** Source, place, and which real one. */
const files = [
  ['claude-code', '.claude/projects/-path-to-Demo/fe5e.jsonl', 'claude-code/sidechains-inline.jsonl'],
  ['claude-code', '.claude/projects/-Users-me-x/cb2e.jsonl', 'claude-code/thinking-and-queue.jsonl'],
  ['claude-code', '.claude/projects/-home-wei/e9f1.jsonl', 'claude-code/chinese.jsonl'],
  ['claude-code', '.claude/projects/-tmp/edge.jsonl', 'claude-code/edge-cases.jsonl'],
  ['claude-code', '.claude/projects/-tmp/all.jsonl', 'claude-code/all-record-types.jsonl'],
  ['codex', '.codex/sessions/2025/09/19/rollout-2025-09-19T09-02-12-a.jsonl', 'codex/each-reply-twice-chinese.jsonl'],
  ['codex', '.codex/sessions/2025/11/17/rollout-2025-11-17T21-30-28-b.jsonl', 'codex/no-assistant-message.jsonl'],
  ['codex', '.codex/sessions/2026/08/03/rollout-2026-08-03T10-48-56-c.jsonl', 'codex/paginated-all-record-types.jsonl'],
  ['gemini', '.gemini/tmp/a/chats/session-1.json', 'gemini/document-growth-2.json'],
  ['gemini', '.gemini/tmp/b/chats/session-2.jsonl', 'gemini/lines-chinese-repeated-ids.jsonl'],
  ['gemini', '.gemini/tmp/c/chats/session-3.jsonl', 'gemini/lines-v040.jsonl'],
  ['aider', 'aided/.aider.chat.history.md', 'aider/many-sessions.md'],
  ['aider', 'short/.aider.chat.history.md', 'aider/short.md'],
  ['cline', '.config/Code/User/globalStorage/saoudrizwan.claude-dev/tasks/1/api_conversation_history.json',
    'cline/cline_cline__sdk4x_success.messages.json'],
  ['cline', '.cline/data/sessions/s/s.messages.json', 'cline/cline_cline__sdk4x_session.messages.json'],
  ['pi', '.pi/agent/sessions/--a--/1_a.jsonl', 'pi/v1-compaction.jsonl'],
  ['pi', '.pi/agent/sessions/--a--/2_b.jsonl', 'pi/v1-two-records-on-a-line.jsonl'],
  ['pi', '.pi/agent/sessions/--c--/3_c.jsonl', 'pi/v3-small.jsonl'],
];

/** Source, session, and digests of folder, branch, title and last text; looked through by eye when they were made. */
const golden = [
  'claude-code fe5e 35b5596d  e3bfc731 ff34cb09',
  'claude-code cb2e 58e619fe 1e2d7609 5a0da499 6872509a',
  'claude-code e9f1 f219b2a1 0d6e4079 e164f867 137ead3b',
  'claude-code edge e9671acd  f29181cd f6581549',
  'claude-code all e9671acd 6ff13f88 2221f48d 6ff13f88',
  'codex 01996135-afde-7911-97f0-d863511eca56 7a8866aa 0d6e4079 99c87787 f75861be',
  'codex 019a93b9-f380-7600-98ff-940e6b99603c c829fcca 0d6e4079 72c7e2f2 ',
  'codex 019fc8be-3658-7ca3-9e29-000000000000 b6fe87a9 0d6e4079 e975f78f 6ff13f88',
  'gemini f7633853-6663-4dbb-bbf4-6159afa29df8   2a0b1d47 2b7bd89c',
  'gemini 0ab84937-9fe7-4284-986a-33c832af0b6a   9340ce3d 887946e6',
  'gemini gemini_stage0_jsonl   1cabd79b 6ae62a9b',
  'cline 1   ec3270f0 6bbbf345',
  'cline s   61b7b639 cd153d3c',
  'pi ffae836b-9420-4060-ac13-7745215f90ff a23ae8e5  cd23b5f6 5d57d39e',
  'pi 5fd1e58c-9635-410e-a644-133a96057c90 a23ae8e5  88247cb7 4230b168',
  'pi 019e19b4-eb48-746a-aa6b-8dfcfa37954b 6adf47ae  4704a9ea ad30cd68',
  'claude-code ef958aa1-0e93-49f0-bb71-150f63befcd1  fc613b4d f8c0b181 dbbf2183',
];

const goldenTrees = [
  'opencode ses_341f480cfffekQwFX2LabeJFAU 6b29ed07  4dd61c52 07b2b4d1',
  'opencode ses_5d2d08e73ffeW3TfuQ4l0iThiG 6253df41  224f8235 7df63481',
  'opencode ses_5d7b80586ffegAiPryF9rnLmp5 1d2ccbbf  63db0e71 87330252',
  'opencode ses_62ba308b7ffeD9ULwPcdmD3Mgb 6253df41  5b9b2b9d abfb35b3',
  'opencode ses_reason_1 c52ddf65  0bdcf12d ec7bc514',
  'opencode ses_test_main 3253156f  43c45991 32465a23',
];

const goldenStore = [
  'opencode ses_341f3e676ffez6WUF6zpok7dUZ e9671acd  1bd00f14 425fc375',
  'opencode ses_341f480cfffekQwFX2LabeJFAU e9671acd  eeba86bd 07b2b4d1',
  'opencode ses_5d2d08e73ffeW3TfuQ4l0iThiG e9671acd  4096faab 7df63481',
  'opencode ses_5d7b80586ffegAiPryF9rnLmp5 e9671acd  63db0e71 87330252',
  'opencode ses_62ba308b7ffeD9ULwPcdmD3Mgb e9671acd  5b9b2b9d abfb35b3',
  'opencode ses_reason_1 e9671acd  0bdcf12d ec7bc514',
];

function find(home, variables = {}) {
  return findSessions({ environment: { ...home.environment, ...variables }, now, runningFolders: async () => [] });
}

const told = (rows) => rows.map((row) => [row.source, row.sessionId,
  ...[row.cwd, row.branch, row.title, row.lastText].map(digest)].join(' '));

test('files of six agents are all found, and so is what they tell', async (t) => {
  const real = realTranscripts(t);
  if (!real) return;
  const home = temporaryHome(t);
  files.forEach(([, name, original], i) => lay(home, name, path.join(real, original), { age: i }));
  const folder = 'claude-code/subagents-folder';
  fs.cpSync(path.join(real, folder), path.join(home.home, '.claude/projects/-sub'), { recursive: true });
  lay(home, '.claude/projects/-sub/agent-ea02459f.jsonl', path.join(real, 'claude-code/subagent-flat.jsonl'));
  dated(path.join(home.home, '.claude/projects/-sub/ef958aa1-0e93-49f0-bb71-150f63befcd1.jsonl'), 100);
  const rows = await find(home, { SONRA_AIDER_FOLDERS: ['aided', 'short'].map((name) => path.join(home.home,
    name)).join(':') });
  const places = files.map(([source, name]) => [source, path.join(home.home, name)]);
  assert.deepEqual(rows.slice(0, -1).map((row) => [row.source, row.transcript]), places);
  assert.equal(rows.at(-1).sessionId, 'ef958aa1-0e93-49f0-bb71-150f63befcd1');
  assert.deepEqual(told(rows.filter((row) => row.source !== 'aider')), golden);
});

test('trees of OpenCode are found, and of sub-agents\' sessions none', async (t) => {
  const real = realTranscripts(t);
  if (!real) return;
  const home = temporaryHome(t);
  const storage = path.join(home.home, '.local/share/opencode/storage');
  const trees = fs.readdirSync(path.join(real, 'opencode/storage-tree')).map((name) => `opencode/storage-tree/${name}/storage`);
  for (const tree of [...trees, 'opencode/storage-small']) {
    for (const file of fs.readdirSync(path.join(real, tree), { recursive: true })) {
      const original = path.join(real, tree, file);
      if (!fs.statSync(original).isFile()) continue;
      fs.mkdirSync(path.dirname(path.join(storage, file)), { recursive: true });
      fs.writeFileSync(path.join(storage, file), fs.readFileSync(original));
      dated(path.join(storage, file), 50);
    }
  }
  fs.readdirSync(path.join(storage, 'message')).sort().forEach((name, i) => dated(path.join(storage, 'message', name),
    i));
  const rows = await find(home);
  assert.deepEqual(told(rows), goldenTrees);
  for (const row of rows) assert.equal(row.transcript, path.join(storage, 'message', row.sessionId));
});

test('the database of OpenCode is found', async (t) => {
  const real = realTranscripts(t);
  if (!real) return;
  const home = temporaryHome(t);
  const file = path.join(home.home, '.local/share/opencode/opencode.db');
  fs.mkdirSync(path.dirname(file), { recursive: true });
  fs.writeFileSync(file, fs.readFileSync(path.join(real, 'opencode/opencode.db')));
  const program = `import sqlite3,sys
c = sqlite3.connect(sys.argv[1])
for i, (key,) in enumerate(c.execute('SELECT id FROM session ORDER BY id').fetchall()):
    c.execute('UPDATE session SET time_updated = ? WHERE id = ?', (int(sys.argv[2]) - i, key))
c.commit()
c.close()`;
  execFileSync('python3', ['-c', program, file, String(now)]);
  dated(file, 1);
  const rows = await find(home);
  assert.deepEqual(told(rows), goldenStore);
  for (const row of rows) assert.equal(row.transcript, `${file}#${row.sessionId}`);
});
