// Sessions of OpenCode: in a tree of JSON files, and since early 2026 in a SQLite database beside it. The transcript of
// the tree is the folder of the session's messages; that of the database is its path, "#" and the session's id. A
// session with a parent is a sub-agent's. A session that was taken over into the database stands there.

import path from 'node:path';

import { openCodeDirectory } from '../places.js';
import { OpenCodeStore } from './openCodeStore.js';
import { readTree } from './openCodeTree.js';

export const source = 'opencode';

const isJson = (name) => name.endsWith('.json');
const isStore = (name) => /^opencode(-[\w.]+)*\.db(-wal)?$/.test(name);

export class OpenCode {
  source = source;
  #environment;
  #log;
  #wanted;
  #stores = new Map();
  #python = { isMissing: false };

  /** @param {{ environment: NodeJS.ProcessEnv, log: import('../log.js').Log, wanted?: string }} options as OpenCodeStore's */
  constructor({ environment, log, wanted }) {
    this.#environment = environment;
    this.#log = log;
    this.#wanted = wanted;
    this.root = openCodeDirectory(environment);
    this.storage = path.join(this.root, 'storage');
  }

  /** True while a look at a database had to wait. */
  get isLate() {
    return [...this.#stores.values()].some((store) => store.isLate);
  }

  async candidates(context) {
    const stored = await this.#stored(context);
    const ids = new Set(stored.map((candidate) => candidate.id));
    return [...stored, ...(await this.#inTree(context)).filter((candidate) => !ids.has(candidate.id))];
  }

  async read(candidate, previous, { reader }) {
    if (candidate.facts) return candidate.facts;
    const session = candidate.about ? await reader.json(candidate.about.path) : {};
    if (session === null || typeof session !== 'object') return { isOther: true };
    if (typeof session.parentID === 'string' && session.parentID !== '') return { isOther: true };
    return { ...await readTree(this.storage, session, candidate.path, reader), sessionId: candidate.id };
  }

  async #stored({ folders, now, oldest }) {
    const entries = (await folders.list(this.root, { accepts: isStore })).filter((entry) => entry.isFile);
    const found = [];
    for (const entry of entries.filter(({ name }) => name.endsWith('.db'))) {
      const log = entries.find(({ name }) => name === `${entry.name}-wal`);
      if (Math.max(entry.mtimeMs, log?.mtimeMs ?? 0) < oldest) continue;
      const stamp = `${entry.stamp} ${log?.stamp ?? ''}`;
      for (const session of await this.#store(entry.path).sessions(stamp, now)) {
        found.push(OpenCode.#candidateOf(entry, session));
      }
    }
    return found;
  }

  #store(file) {
    if (!this.#stores.has(file)) {
      this.#stores.set(file, new OpenCodeStore(file, {
        environment: this.#environment, log: this.#log, python: this.#python, wanted: this.#wanted,
      }));
    }
    return this.#stores.get(file);
  }

  static #candidateOf(entry, { id, title, cwd, updated, lastText, prompt }) {
    const facts = { sessionId: id, ownTitle: title, cwd, lastText, prompt };
    return { path: `${entry.path}#${id}`, id, mtimeMs: updated, stamp: JSON.stringify([updated, facts]), facts };
  }

  /** A session is as new as the newest of its own file, the folder of its messages, and its newest message. */
  async #inTree({ folders, oldest }) {
    const sessions = await this.#sessionFiles(folders);
    const found = [];
    for (const messages of await folders.list(path.join(this.storage, 'message'))) {
      if (!messages.isFolder) continue;
      const about = sessions.get(messages.name);
      const stamps = [messages.stamp, about?.stamp];
      let mtimeMs = Math.max(messages.mtimeMs, about?.mtimeMs ?? 0);
      if (mtimeMs < oldest) continue;
      for (const file of await folders.list(messages.path, { accepts: isJson, ino: messages.ino })) {
        if (file.mtimeMs < mtimeMs) continue;
        mtimeMs = file.mtimeMs;
        stamps[2] = file.stamp;
      }
      found.push({ path: messages.path, id: messages.name, about, mtimeMs, stamp: stamps.join(' ') });
    }
    return found;
  }

  async #sessionFiles(folders) {
    const found = new Map();
    for (const project of await folders.list(path.join(this.storage, 'session'))) {
      if (!project.isFolder) continue;
      const entries = await folders.list(project.path, { accepts: isJson, ino: project.ino });
      for (const entry of entries) if (entry.isFile) found.set(path.basename(entry.name, '.json'), entry);
    }
    return found;
  }
}
