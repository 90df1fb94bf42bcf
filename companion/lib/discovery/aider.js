// Sessions of aider, which keeps one history of all its chats in the folder it works in, or at the root of the
// repository around it. There is no list of such folders. It is looked for where other agents' sessions run, where
// attached sessions run, where an aider runs now, and in the folders that SONRA_AIDER_FOLDERS names (with ":" between).
// A history is one session, which is named after its place.

import { createHash } from 'node:crypto';
import { stat } from 'node:fs/promises';
import path from 'node:path';

import { foldersOfRunning } from './processes.js';
import { plain, readTranscript } from './readTranscript.js';
import { folderOf, realPrompt } from './text.js';

export const source = 'aider';

const historyName = '.aider.chat.history.md';
export const searchInterval = 45_000;
const mostFolders = 100;
const highestClimb = 16;
/** A folder of another machine that doesn't answer is left alone for a while. */
const usualAnswerLimit = 2000;
export const silenceInterval = 180_000;

const isChatHeader = (line) => line.startsWith('# aider chat started at ');
const isUser = (line) => line.startsWith('#### ');
const isTool = (line) => line.startsWith('> ') || line === '>';

/** Lines of the last reply: what stands between two lines of the user or of a tool. */
export function lastReply(lines) {
  let end = -1;
  for (let i = lines.length - 1; i >= 0; i -= 1) {
    const line = lines[i];
    const isReply = line !== '' && !isUser(line) && !isTool(line) && !isChatHeader(line);
    if (isReply && end < 0) end = i + 1;
    if (!isReply && line !== '' && end >= 0) return lines.slice(i + 1, end).join('\n');
  }
  return end < 0 ? '' : lines.slice(0, end).join('\n');
}

const isCommand = (text) => /^[/!]\S/.test(text);

/** The first that the user typed in the newest chat, else in the one before it and so on. */
export function newestPrompt(lines) {
  let prompt = '';
  for (let i = lines.length - 1; i >= 0; i -= 1) {
    if (isUser(lines[i])) {
      const text = lines[i].slice(5).trim();
      if (text !== '' && !isCommand(text)) prompt = realPrompt(text) || prompt;
    } else if (isChatHeader(lines[i]) && prompt !== '') {
      return prompt;
    }
  }
  return prompt;
}

const linesOf = (text) => text.split('\n').map((line) => line.trimEnd());

const format = {
  takeHead() {},
  isHeadDone: () => true,
  takeTail(text, found) {
    const lines = linesOf(text);
    found.lastText = lastReply(lines);
    found.prompt = newestPrompt(lines);
  },
};

/** The root of the repository around a folder, if there is one. */
async function repositoryRoot(folder) {
  let at = folder;
  for (let i = 0; i < highestClimb; i += 1) {
    if (await stat(path.join(at, '.git')).then(() => true, () => false)) return at;
    const above = path.dirname(at);
    if (above === at) return undefined;
    at = above;
  }
  return undefined;
}

export class Aider {
  source = source;
  #environment;
  #folders = [];
  #searchedFor = '';
  #searchedAt = -Infinity;
  /** When a folder gave no answer. */
  #silent = new Map();
  #now = 0;
  #answerLimit;

  constructor({ environment, runningFolders = foldersOfRunning, answerLimit = usualAnswerLimit }) {
    this.#environment = environment;
    this.#answerLimit = answerLimit;
    this.runningFolders = runningFolders;
  }

  /** @param {{ known: string[] }} context `known` are the folders of other sessions */
  async candidates({ folders, known, now }) {
    this.#now = now;
    this.#forgetSilence();
    await this.#search(known, now);
    const found = [];
    for (const { folder, name } of this.#folders) {
      const entries = await this.#within(folder, folders.list(folder, { names: [name] }), []);
      for (const entry of entries) if (entry.isFile) found.push(entry);
    }
    return found;
  }

  async read(entry, previous, { reader }) {
    const facts = await readTranscript(reader, entry.path, previous, format, plain);
    const id = createHash('md5').update(entry.path).digest('hex').slice(0, 16);
    return { ...facts, sessionId: `aider-${id}`, cwd: path.dirname(entry.path) };
  }

  #forgetSilence() {
    for (const [folder, since] of this.#silent) {
      const age = this.#now - since;
      if (age < 0 || age >= silenceInterval) this.#silent.delete(folder);
    }
  }

  async #search(known, now) {
    const wanted = known.join('\0');
    if (wanted === this.#searchedFor && now >= this.#searchedAt && now - this.#searchedAt < searchInterval) return;
    this.#searchedFor = wanted;
    this.#searchedAt = now;
    const own = this.#environment.AIDER_CHAT_HISTORY_FILE ?? '';
    const name = own !== '' && !own.includes('/') ? own : historyName;
    const places = new Map();
    if (path.isAbsolute(own)) places.set(own, { folder: path.dirname(own), name: path.basename(own) });
    for (const folder of await this.#foldersToLookIn(known)) {
      if (places.size < mostFolders) places.set(path.join(folder, name), { folder, name });
    }
    this.#folders = [...places.values()];
  }

  async #foldersToLookIn(known) {
    const named = (this.#environment.SONRA_AIDER_FOLDERS ?? '').split(':');
    const starts = [...named, ...await this.runningFolders('aider'), ...known].map(folderOf).filter(Boolean);
    const all = new Set();
    for (const start of starts) {
      if (all.size >= mostFolders) break;
      all.add(path.normalize(start));
      const root = this.#silent.has(start) ? undefined : await this.#within(start, repositoryRoot(start), undefined);
      if (root) all.add(root);
    }
    return [...all].filter((folder) => !this.#silent.has(folder));
  }

  async #within(folder, answer, otherwise) {
    let timer;
    const limit = new Promise((resolve) => { timer = setTimeout(resolve, this.#answerLimit, this); });
    const first = await Promise.race([answer, limit]);
    clearTimeout(timer);
    if (first !== this) return first;
    this.#silent.set(folder, this.#now);
    this.#folders = this.#folders.filter((place) => place.folder !== folder);
    return otherwise;
  }
}
