// Sessions of aider, which keeps one history of all its chats in the folder it works in, or at the root of the
// repository around it. There is no list of such folders. It is looked for where other agents' sessions run, where
// attached sessions run, where an aider runs now, and in the folders that SONRA_AIDER_FOLDERS names (with ":" between).
// A history is one session, which is named after its place.

import { createHash } from 'node:crypto';
import path from 'node:path';

import { foldersOfRunning } from './processes.js';
import { plain, readTranscript } from './readTranscript.js';
import { folderOf, realPrompt } from './text.js';

export const source = 'aider';

const historyName = '.aider.chat.history.md';
export const searchInterval = 45_000;
const mostFolders = 100;
const highestClimb = 16;

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
async function repositoryRoot(folder, folders) {
  let at = folder;
  for (let i = 0; i < highestClimb; i += 1) {
    if (await folders.has(path.join(at, '.git'))) return at;
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

  constructor({ environment, runningFolders = foldersOfRunning }) {
    this.#environment = environment;
    this.runningFolders = runningFolders;
  }

  /** @param {{ known: string[] }} context `known` are the folders of other sessions */
  async candidates({ folders, known, now }) {
    await this.#search(known, now, folders);
    const found = [];
    for (const { folder, name } of this.#folders) {
      for (const entry of await folders.list(folder, { names: [name] })) if (entry.isFile) found.push(entry);
    }
    return found;
  }

  async read(entry, previous, { reader }) {
    const facts = await readTranscript(reader, entry.path, previous, format, plain);
    const id = createHash('md5').update(entry.path).digest('hex').slice(0, 16);
    return { ...facts, sessionId: `aider-${id}`, cwd: path.dirname(entry.path) };
  }

  async #search(known, now, folders) {
    const wanted = known.join('\0');
    if (wanted === this.#searchedFor && now >= this.#searchedAt && now - this.#searchedAt < searchInterval) return;
    this.#searchedFor = wanted;
    this.#searchedAt = now;
    const own = this.#environment.AIDER_CHAT_HISTORY_FILE ?? '';
    const name = own !== '' && !own.includes('/') ? own : historyName;
    const places = new Map();
    if (path.isAbsolute(own)) places.set(own, { folder: path.dirname(own), name: path.basename(own) });
    for (const folder of await this.#foldersToLookIn(known, folders)) {
      if (places.size < mostFolders) places.set(path.join(folder, name), { folder, name });
    }
    this.#folders = [...places.values()];
  }

  async #foldersToLookIn(known, folders) {
    const named = (this.#environment.SONRA_AIDER_FOLDERS ?? '').split(':');
    const starts = [...named, ...await this.runningFolders('aider', folders.answers), ...known].map(folderOf).filter(Boolean);
    const all = new Set();
    for (const start of starts) {
      if (all.size >= mostFolders) break;
      all.add(path.normalize(start));
      const root = await folders.answers.ask(start, () => repositoryRoot(start, folders), undefined);
      if (root) all.add(root);
    }
    return [...all].filter((folder) => !folders.answers.isSilent(folder));
  }
}
