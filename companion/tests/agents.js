// Sessions of the agents as they lie on a disk: made ones, small, and the real ones where they are at hand.

import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

/** A time of the tests' own, from which ages are counted. */
export const now = Date.UTC(2026, 10, 20, 12);

/** Writes a file, its folders too, that was last written `age` seconds before `now`. */
export function put(home, name, content, { age = 60 } = {}) {
  const file = path.isAbsolute(name) ? name : path.join(home.home, name);
  fs.mkdirSync(path.dirname(file), { recursive: true });
  fs.writeFileSync(file, typeof content === 'string' ? content : JSON.stringify(content));
  return dated(file, age);
}

/** Lays a copy of a real file or folder where the agent would have it. */
export function lay(home, name, original, { age = 60 } = {}) {
  const target = path.join(home.home, name);
  fs.mkdirSync(path.dirname(target), { recursive: true });
  fs.cpSync(original, target, { recursive: true });
  for (const below of fs.readdirSync(path.dirname(target), { recursive: true })) {
    fs.chmodSync(path.join(path.dirname(target), below), 0o700);
  }
  return dated(target, age);
}

export function dated(file, age) {
  fs.utimesSync(file, now / 1000 - age, now / 1000 - age);
  return file;
}

export const lines = (...records) => `${records.map((record) => (
  typeof record === 'string' ? record : JSON.stringify(record))).join('\n')}\n`;

/** The folder of the real transcripts; nothing, and a line that says so, where it is absent. */
export function realTranscripts(context) {
  const folder = process.env.SONRA_TRANSCRIPTS
    ?? fileURLToPath(new URL('../../../shared/transcripts', import.meta.url));
  if (fs.existsSync(folder)) return folder;
  context.skip('no real transcripts here');
  return undefined;
}

/** Runs statements in a database of OpenCode's. */
export function store(file, statements) {
  fs.mkdirSync(path.dirname(file), { recursive: true });
  const program = 'import sqlite3,sys\nc=sqlite3.connect(sys.argv[1])\nc.executescript(sys.argv[2])\nc.commit()\nc.close()';
  execFileSync('python3', ['-c', program, file, statements]);
}

/** A session with a sub-agent's, as newer versions store them. */
export const openCodeSchema = `
  PRAGMA journal_mode = WAL;
  CREATE TABLE session(id text primary key, parent_id text, directory text, title text, time_updated integer);
  CREATE TABLE message(id text primary key, session_id text, time_created integer, time_updated integer, data text);
  CREATE TABLE part(id text primary key, message_id text, data text);
  INSERT INTO session VALUES ('ses_1', NULL, '/work/oc', 'Stored', ${now - 50_000}), ('ses_2', 'ses_1', '/x', 'Sub',
    ${now});
  INSERT INTO message VALUES ('m1', 'ses_1', 1, ${now - 50_000}, '{"role":"user"}'),
    ('m2', 'ses_1', 2, ${now - 40_000}, '{"role":"assistant"}');
  INSERT INTO part VALUES ('p1', 'm1', '{"type":"text","text":"Ask"}'), ('p2', 'm2',
    '{"type":"text","text":"Kept in rows"}'),
    ('p3', 'm2', '{"type":"tool"}'), ('p4', 'm2', 'broken');`;
