// A session of OpenCode in its tree of small JSON files: one for the session, one for each message in
// "message/<session>/", and the message's words in "part/<message>/". Names of messages and parts sort by time.

import path from 'node:path';

import { contentText, realPrompt, textOf } from './text.js';

/** How many of the newest messages are looked into for words. */
const mostMessages = 12;

const isJson = (name) => name.endsWith('.json');

/** What a new session is called until the agent has found a name for it. */
const isPlaceholder = (title) => /^(New|Child) session - \d{4}-\d\d-\d\dT/.test(title);

export const ownTitle = (title) => (isPlaceholder(textOf(title)) ? '' : textOf(title));

/** The texts of a message's parts, without what the agent has put in. */
async function wordsOf(storage, message, reader) {
  const words = [];
  const folder = path.join(storage, 'part', message);
  for (const name of (await reader.names(folder, isJson)).sort()) {
    const part = await reader.json(path.join(folder, name));
    if (part?.type === 'text' && part.synthetic !== true && part.ignored !== true) words.push(textOf(part.text).trim());
  }
  return words.filter(Boolean);
}

async function messageAt(file, storage, reader) {
  const message = await reader.json(file);
  if (message === null || typeof message !== 'object') return undefined;
  const id = path.basename(file, '.json');
  const own = contentText(message.content ?? message.text).trim();
  return { role: message.role, path: message.path, words: own ? [own] : await wordsOf(storage, id, reader) };
}

async function firstPrompt(files, storage, reader) {
  for (const file of files.slice(0, mostMessages)) {
    const message = await messageAt(file, storage, reader);
    const prompt = message?.role === 'user' ? realPrompt(message.words.join(' ')) : '';
    if (prompt) return prompt;
  }
  return '';
}

/**
 * @param {string} storage
 * @param {object} session what its own file holds
 * @param {string} folder the folder of its messages
 * @param {import('./transcriptReader.js').TranscriptReader} reader
 * @returns {Promise<import('./readTranscript.js').Facts>}
 */
export async function readTree(storage, session, folder, reader) {
  const files = (await reader.names(folder, isJson)).sort().map((name) => path.join(folder, name));
  const facts = { cwd: textOf(session.directory), ownTitle: ownTitle(session.title) };
  for (const file of files.slice(-mostMessages).reverse()) {
    const message = await messageAt(file, storage, reader);
    if (message?.role !== 'assistant') continue;
    facts.cwd ||= textOf(message.path?.cwd) || textOf(message.path?.root);
    facts.lastText ||= message.words.at(-1) ?? '';
    if (facts.lastText) break;
  }
  if (!facts.ownTitle) facts.prompt = await firstPrompt(files, storage, reader);
  return facts;
}
