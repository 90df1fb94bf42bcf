// Sessions of Gemini CLI: a folder for each project, in it a file for each session, of JSON lines or, in older
// versions, one JSON document. A transcript doesn't tell where its session runs: the project's folder is named after a
// list of projects, or by the SHA-256 of the path, which is found among the folders that other sessions are known to
// run in.

import { createHash } from 'node:crypto';
import path from 'node:path';

import { geminiDirectory } from '../places.js';
import { isPassing } from './folder.js';
import { document, lines, readTranscript } from './readTranscript.js';
import { contentText, firstText, folderOf, realPrompt, textOf } from './text.js';

export const source = 'gemini';

const isTranscript = (name) => /^session-.*\.jsonl?$/.test(name);
const rootFile = '.project_root';

const format = {
  takeHead(record, facts) {
    if (record.type === undefined) {
      facts.sessionId ||= textOf(record.sessionId);
      facts.projectHash ||= textOf(record.projectHash);
      facts.isOther ||= record.kind === 'subagent';
    }
    if (record.type === 'user') facts.prompt ||= realPrompt(contentText(record.content ?? record.text));
  },
  isHeadDone: (facts) => Boolean(facts.sessionId && facts.prompt),
  takeTail(record, found) {
    if (record.type === undefined) found.ownTitle ||= textOf(record.summary) || textOf(record.$set?.summary);
    if (record.type === 'gemini') found.lastText ||= firstText(record.content) || textOf(record.text).trim();
  },
};

export class Gemini {
  source = source;
  #projects = { stamp: undefined, folders: new Map() };
  #roots = new Map();
  #hashes = new Map();

  constructor({ environment }) {
    this.root = geminiDirectory(environment);
  }

  async candidates({ folders, reader }) {
    await this.#readProjects(folders, reader);
    const found = [];
    for (const project of await folders.list(path.join(this.root, 'tmp'))) {
      if (!project.isFolder) continue;
      const names = ['chats', rootFile];
      const parts = await folders.list(project.path, { names, ino: project.ino });
      await this.#readRoot(project.name, parts.find((part) => part.name === rootFile), reader);
      const chats = parts.find((part) => part.name === 'chats' && part.isFolder);
      const entries = chats ? await folders.list(chats.path, { accepts: isTranscript, ino: chats.ino }) : [];
      for (const entry of entries) if (entry.isFile) found.push({ ...entry, project: project.name });
    }
    return found;
  }

  read(entry, previous, { reader }) {
    const shape = entry.name.endsWith('.json') ? document : lines;
    return readTranscript(reader, entry.path, previous, format, shape);
  }

  /** Where a session runs, if that has become known meanwhile. `known` are the folders of other sessions. */
  cwdOf(entry, facts, known) {
    const named = this.#projects.folders.get(entry.project) ?? this.#roots.get(entry.project)?.folder;
    if (named) return named;
    for (const folder of [...this.#projects.folders.values(), ...known]) {
      const hash = this.#hashOf(folder);
      if (hash === facts.projectHash || hash === entry.project) return folder;
    }
    return '';
  }

  #hashOf(folder) {
    let hash = this.#hashes.get(folder);
    if (hash === undefined) {
      hash = createHash('sha256').update(folder).digest('hex');
      this.#hashes.set(folder, hash);
    }
    return hash;
  }

  /** The agent's list: an object from paths to the names of the projects' folders. */
  async #readProjects(folders, reader) {
    const [list] = await folders.list(this.root, { names: ['projects.json'] });
    if (list?.stamp === this.#projects.stamp) return;
    let projects;
    try {
      projects = (list && await reader.json(list.path))?.projects;
    } catch {
      // It can't be read just now, and is as it was.
      return;
    }
    const pairs = Object.entries(projects !== null && typeof projects === 'object' ? projects : {})
      .filter(([folder, name]) => folderOf(folder) && typeof name === 'string');
    this.#projects = { stamp: list?.stamp, folders: new Map(pairs.map(([folder, name]) => [name, folder])) };
  }

  async #readRoot(project, entry, reader) {
    if (entry?.stamp === this.#roots.get(project)?.stamp) return;
    const look = async (file) => (await file.head(4096)).toString();
    let text = '';
    try {
      if (entry) text = await reader.read(entry.path, look);
    } catch (error) {
      if (isPassing(error)) return;
    }
    this.#roots.set(project, { stamp: entry?.stamp, folder: folderOf(text.trim()) });
  }
}
