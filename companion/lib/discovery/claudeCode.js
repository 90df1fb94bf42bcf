// Sessions of Claude Code: a folder for each project, in it a file of JSON lines for each session. Sub-agents' files,
// which lie beside it ("agent-…") or deeper, are none.

import path from 'node:path';

import { claudeProjectsDirectory } from '../places.js';
import { filesOfProjects } from './projectFolders.js';
import { readTranscript } from './readTranscript.js';
import { contentText, firstText, realPrompt, textOf } from './text.js';

export const source = 'claude-code';

const isTranscript = (name) => name.endsWith('.jsonl') && !name.startsWith('agent-');

/** The project's folder from the name that the agent makes of it; a "-" of its own comes back as a "/". */
export function decodeCwd(name) {
  const rest = name.startsWith('-') ? name.slice(1) : name;
  return rest === '' ? '' : `/${rest.replaceAll('-', '/')}`;
}

function noteKind(record, facts) {
  if (record.type !== 'user' && record.type !== 'assistant') return;
  if (record.isSidechain === true) facts.hasSidechain = true;
  else facts.hasTurns = true;
}

function noteTitle(record, facts) {
  if (record.type === 'custom-title') facts.customTitle ||= textOf(record.customTitle);
  if (record.type === 'ai-title') facts.aiTitle ||= textOf(record.aiTitle);
}

/** A summary may be that of an older session; it tells with which record its session ends. */
function noteSummary(record, facts, part) {
  const seen = (facts[part] ??= { summaries: [], ids: new Set() });
  if (record.type === 'summary') seen.summaries.push(record);
  else if (typeof record.uuid === 'string') seen.ids.add(record.uuid);
}

function judgeSummaries(facts) {
  const seen = [facts.tailSeen, facts.headSeen].filter(Boolean);
  const own = seen.flatMap(({ summaries }) => summaries)
    .find((summary) => seen.some(({ ids }) => ids.has(summary.leafUuid)));
  if (own) facts.summary = textOf(own.summary);
  else facts.anySummary ||= textOf(seen[0]?.summaries[0]?.summary) || textOf(seen[1]?.summaries[0]?.summary);
  delete facts.tailSeen;
  delete facts.headSeen;
}

const format = {
  takeHead(record, facts) {
    noteKind(record, facts);
    noteTitle(record, facts);
    noteSummary(record, facts, 'headSeen');
    facts.cwd ||= textOf(record.cwd);
    if (record.isSidechain === true) return;
    facts.branch ||= textOf(record.gitBranch);
    if (record.type === 'user' && record.isMeta !== true && record.isCompactSummary !== true) {
      facts.prompt ||= realPrompt(contentText(record.message?.content, ['text']));
    }
  },
  isHeadDone: (facts) => Boolean(facts.cwd && facts.prompt),
  takeTail(record, found) {
    noteKind(record, found);
    noteTitle(record, found);
    noteSummary(record, found, 'tailSeen');
    if (record.type === 'last-prompt') found.lastPrompt ||= realPrompt(textOf(record.lastPrompt));
    if (record.isSidechain === true) return;
    // Its own branch, where a session changes it: the newest.
    if (textOf(record.gitBranch)) found.branch ||= record.gitBranch;
    const content = record.message?.content;
    if (record.type === 'assistant' && Array.isArray(content)) found.lastText ||= firstText(content, ['text']);
  },
  judge(facts, isWhole) {
    judgeSummaries(facts);
    facts.ownTitle = facts.customTitle || facts.aiTitle || facts.summary || '';
    // Where the user only gave commands, anything is better than nothing.
    facts.prompt ||= facts.lastPrompt || facts.anySummary;
    facts.isOther = !facts.hasTurns && (facts.hasSidechain === true || isWhole);
  },
};

export class ClaudeCode {
  source = source;

  constructor({ environment }) {
    this.root = claudeProjectsDirectory(environment);
  }

  candidates({ folders }) {
    return filesOfProjects(folders, this.root, isTranscript);
  }

  async read(entry, previous, { reader }) {
    const facts = await readTranscript(reader, entry.path, previous, format);
    return {
      ...facts,
      sessionId: path.basename(entry.path, '.jsonl'),
      cwd: facts.cwd || decodeCwd(path.basename(path.dirname(entry.path))),
    };
  }
}
