// Sessions of Codex: files of JSON lines in folders for year, month and day. A session that is taken up again is
// written on in the old folder. Sub-agents have files of their own, which say so.

import path from 'node:path';

import { codexSessionsDirectory } from '../places.js';
import { readTranscript } from './readTranscript.js';
import { contentText, firstText, realPrompt, textOf } from './text.js';

export const source = 'codex';

const isTranscript = (name) => name.startsWith('rollout-') && name.endsWith('.jsonl');
const isNumber = (name) => /^\d+$/.test(name);
const request = '## My request for Codex:';

/** What the user typed in an editor stands behind what the editor tells. */
function typedPrompt(text) {
  const at = text.indexOf(request);
  return realPrompt(at < 0 ? text : text.slice(at + request.length));
}

const item = (payload, type) => (
  payload.type === 'item_completed' && payload.item?.type === type ? payload.item : undefined);

function promptOf(record) {
  const { payload } = record;
  if (record.type === 'response_item' && payload.type === 'message' && payload.role === 'user') {
    return typedPrompt(contentText(payload.content, ['input_text']));
  }
  if (record.type !== 'event_msg') return '';
  if (payload.type === 'user_message') return typedPrompt(textOf(payload.message));
  return typedPrompt(contentText(item(payload, 'UserMessage')?.content));
}

function replyOf(record) {
  const { payload } = record;
  if (record.type === 'response_item' && payload.type === 'message' && payload.role === 'assistant') {
    return firstText(payload.content, ['output_text']);
  }
  if (record.type !== 'event_msg') return '';
  if (payload.type === 'agent_message') return textOf(payload.message).trim();
  return firstText(item(payload, 'AgentMessage')?.content, ['Text', 'text']);
}

function takeMeta(payload, facts) {
  // A session that was branched off holds the other's after its own.
  if (facts.sessionId) return;
  facts.sessionId = textOf(payload.id);
  facts.cwd = textOf(payload.cwd);
  facts.branch = textOf(payload.git?.branch);
  facts.isOther = payload.thread_source === 'subagent' || payload.source === 'subagent'
    || (payload.source !== null && typeof payload.source === 'object' && 'subagent' in payload.source);
}

const hasPayload = (record) => record.payload !== null && typeof record.payload === 'object';

const format = {
  takeHead(record, facts) {
    if (!hasPayload(record)) return;
    if (record.type === 'session_meta') takeMeta(record.payload, facts);
    else if (record.type === 'turn_context') facts.cwd ||= textOf(record.payload.cwd);
    else facts.prompt ||= promptOf(record);
  },
  isHeadDone: (facts) => Boolean(facts.sessionId && facts.prompt),
  takeTail(record, found) {
    if (!hasPayload(record)) return;
    if (record.payload.type === 'thread_name_updated') found.ownTitle ||= textOf(record.payload.thread_name);
    found.lastText ||= replyOf(record);
  },
};

export class Codex {
  source = source;

  constructor({ environment }) {
    this.root = codexSessionsDirectory(environment);
  }

  async candidates({ folders }) {
    const found = [];
    for (const day of await this.#days(folders)) {
      const entries = await folders.list(day.path, { accepts: isTranscript, ino: day.ino });
      for (const entry of entries) if (entry.isFile) found.push(entry);
    }
    return found;
  }

  async read(entry, previous, { reader }) {
    const facts = await readTranscript(reader, entry.path, previous, format);
    return { ...facts, sessionId: facts.sessionId || path.basename(entry.path, '.jsonl') };
  }

  /** The newest first: they come first where not all can be watched. */
  async #days(folders) {
    let level = [{ path: this.root, ino: undefined }];
    for (let depth = 0; depth < 3; depth += 1) {
      const below = [];
      for (const { path: directory, ino } of level) {
        const entries = await folders.list(directory, { accepts: isNumber, ino });
        below.push(...entries.filter((entry) => entry.isFolder).sort((a, b) => (a.name < b.name ? 1 : -1)));
      }
      level = below;
    }
    return level;
  }
}
