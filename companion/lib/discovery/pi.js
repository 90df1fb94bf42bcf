// Sessions of Pi: a folder for each project, in it a file of JSON lines for each session.

import path from 'node:path';

import { piSessionsDirectory } from '../places.js';
import { filesOfProjects } from './projectFolders.js';
import { readTranscript } from './readTranscript.js';
import { contentText, firstText, realPrompt, textOf } from './text.js';

export const source = 'pi';

const isTranscript = (name) => name.endsWith('.jsonl');

const format = {
  takeHead(record, facts) {
    if (record.type === 'session') {
      facts.sessionId ||= textOf(record.id);
      facts.cwd ||= textOf(record.cwd);
    }
    if (record.type === 'message' && record.message?.role === 'user') {
      facts.prompt ||= realPrompt(contentText(record.message.content, ['text']));
    }
  },
  isHeadDone: (facts) => Boolean(facts.sessionId && facts.prompt),
  takeTail(record, found) {
    if (record.type === 'session_info') found.ownTitle ||= textOf(record.name);
    if (record.type === 'message' && record.message?.role === 'assistant') {
      found.lastText ||= firstText(record.message.content, ['text']);
    }
  },
};

export class Pi {
  source = source;

  constructor({ environment }) {
    this.root = piSessionsDirectory(environment);
  }

  candidates({ folders }) {
    return filesOfProjects(folders, this.root, isTranscript);
  }

  async read(entry, previous, { reader }) {
    const facts = await readTranscript(reader, entry.path, previous, format);
    const stem = path.basename(entry.path, '.jsonl');
    return { ...facts, sessionId: facts.sessionId || stem.slice(stem.lastIndexOf('_') + 1) };
  }
}
