// One look at all the agents' sessions. Keeps what it has read of a transcript until that changes, so that the next
// look costs little. One look at a time. Never throws: what can't be read isn't found.

import { setImmediate as breathe } from 'node:timers/promises';

import { statePath } from '../places.js';
import { SharedDocument } from '../sharedDocument.js';
import { Aider, searchInterval } from './aider.js';
import { ClaudeCode } from './claudeCode.js';
import { Cline } from './cline.js';
import { Codex } from './codex.js';
import { isPassing } from './folder.js';
import { Folders } from './folders.js';
import { Gemini } from './gemini.js';
import { OpenCode } from './openCode.js';
import { Pi } from './pi.js';
import { folderOf, listText, textOf, titleText } from './text.js';
import { TranscriptReader } from './transcriptReader.js';

export const mostRows = 40;
export const oldestMs = 14 * 24 * 3600 * 1000;
export const activeMs = 15 * 60 * 1000;
const mostCached = 4 * mostRows;

/**
 * @typedef {object} Row what the service and its menu read
 * @property {string} sessionId
 * @property {string} cwd
 * @property {string} lastText
 * @property {string} source
 * @property {string} transcript
 * @property {number} mtimeMs
 * @property {boolean} active
 * @property {string} title
 * @property {string} branch
 */

const newestFirst = (a, b) => b.entry.mtimeMs - a.entry.mtimeMs || (a.entry.path < b.entry.path ? -1 : 1);

/** A path that JSON can't hold can't be told to anybody. */
const isTellable = (path) => !path.includes('\ufffd');

const isId = (value) => (
  typeof value === 'string' && value !== '' && value.length <= 200 && !/[\p{Cc}\p{Cs}]/u.test(value));

/** Failures that last as long as the file stays as it is. */
const lasting = new Set([undefined, 'EACCES', 'EISDIR', 'ELOOP', 'ENXIO']);
/** What can't be read just now is tried again soon; behind so many tries it counts as broken. */
const mostHurriedLooks = 10;

export class Scanner {
  #agents;
  #aider;
  #cache = new Map();
  #environment;
  #folders;
  /** True if what is known of a transcript is that of the look before. */
  #isUnsettled = false;
  #unsettledLooks = 0;
  #last;
  #log;
  #mostRows;
  #oldestMs;
  #reader;
  #reported = new Set();

  /**
   * @param {{ environment: NodeJS.ProcessEnv, log: import('../log.js').Log, now: () => number, watch?: boolean,
   *   onChange?: () => void, isBounded?: boolean, session?: string, folders?: object,
   *   runningFolders?: (name: string, answers: import('../answerLimit.js').AnswerLimit) => Promise<string[]> }} options
   * `folders` are further ones for Folders; `isBounded`: not those that are too old to be offered, nor more than can be;
   * `session`: the beginning of the id of the one that is looked for among all
   */
  constructor(options) {
    const { environment, log, now, watch = true, onChange, runningFolders, isBounded = true, session = '', folders } = options;
    this.#environment = environment;
    this.#log = log;
    this.#mostRows = isBounded ? mostRows : Infinity;
    this.#oldestMs = isBounded ? oldestMs : Infinity;
    this.#folders = new Folders({ watch, log, now, onChange, ...folders });
    this.#reader = new TranscriptReader(this.#folders.answers);
    this.#agents = [ClaudeCode, Codex, Gemini, OpenCode, Cline, Pi]
      .map((Agent) => new Agent({ environment, log, wanted: isBounded ? undefined : session }));
    this.#aider = new Aider({ environment, runningFolders });
  }

  /** True if something is known to have changed that the last look had to leave. */
  get isLate() {
    const isUnsettled = this.#isUnsettled || this.#folders.isUnsettled;
    return (isUnsettled && this.#unsettledLooks <= mostHurriedLooks) || this.#agents.some((agent) => agent.isLate);
  }

  /** When the agents' folders were last looked through, which isn't done as long as nothing tells of a change. */
  get lookedAt() {
    return this.#last?.at ?? -Infinity;
  }

  /** How many folders are watched. */
  get watched() {
    return this.#folders.watched;
  }

  close() {
    this.#folders.close();
  }

  /**
   * The newest sessions, newest first.
   * @param {number} now
   * @returns {Promise<Row[]>}
   */
  async scan(now) {
    if (!await this.#isUnchanged(now)) this.#last = await this.#look(now);
    const { sessions, known } = this.#last;
    const rows = sessions.filter(({ entry }) => entry.mtimeMs >= now - this.#oldestMs)
      .map((session) => Scanner.#row(session, known, now));
    return rows.sort((a, b) => b.mtimeMs - a.mtimeMs || (a.transcript < b.transcript ? -1 : 1)).slice(0, this.#mostRows);
  }

  /** True if a look would find what the last one found. */
  async #isUnchanged(now) {
    const age = now - this.#last?.at;
    return age >= 0 && age < searchInterval && !this.isLate && this.#folders.isUnchanged();
  }

  async #look(now) {
    this.#folders.startOver();
    this.#isUnsettled = false;
    const context = { folders: this.#folders, reader: this.#reader, now, oldest: now - this.#oldestMs };
    const used = new Set();
    const sessions = await this.#sessions(await this.#candidates(this.#agents, context), context, used);
    const known = this.#knownFolders(sessions);
    const late = await this.#candidates([this.#aider], { ...context, known });
    sessions.push(...await this.#sessions(late, context, used));
    this.#folders.forgetOthers();
    this.#forgetOthers(used);
    this.#unsettledLooks = this.#isUnsettled || this.#folders.isUnsettled ? this.#unsettledLooks + 1 : 0;
    return { at: now, sessions, known };
  }

  async #candidates(agents, context) {
    const all = [];
    for (const agent of agents) {
      try {
        for (const entry of await agent.candidates(context)) {
          if (entry.mtimeMs >= context.oldest && isTellable(entry.path)) all.push({ agent, entry });
        }
      } catch (error) {
        this.#reportOnce(agent.source, error);
      }
      await breathe();
    }
    return all.sort(newestFirst);
  }

  /** Reads from the newest on, until there are enough. */
  async #sessions(candidates, context, used) {
    const sessions = [];
    const ids = new Set();
    for (const { agent, entry } of candidates) {
      if (sessions.length >= this.#mostRows) break;
      const facts = await this.#facts(agent, entry, context, used);
      const id = `${agent.source} ${facts?.sessionId}`;
      if (!isId(facts?.sessionId) || facts.isOther || ids.has(id)) continue;
      ids.add(id);
      sessions.push({ agent, entry, facts });
    }
    return sessions;
  }

  async #facts(agent, entry, context, used) {
    const key = `${agent.source} ${entry.path}`;
    used.add(key);
    const known = this.#cache.get(key);
    if (known && known.stamp === entry.stamp) return known.facts;
    await breathe();
    try {
      const facts = await agent.read(entry, known?.facts, context);
      this.#isUnsettled ||= facts.isKept === true;
      this.#cache.set(key, { stamp: facts.isKept ? undefined : entry.stamp, facts });
      return facts;
    } catch (error) {
      if (error.code === undefined) this.#reportOnce(agent.source, error);
      if (lasting.has(error.code)) this.#cache.set(key, { stamp: entry.stamp, facts: undefined });
      this.#isUnsettled ||= isPassing(error);
      return isPassing(error) ? known?.facts : undefined;
    }
  }

  #forgetOthers(used) {
    if (this.#cache.size <= Math.max(mostCached, 2 * used.size)) return;
    for (const key of this.#cache.keys()) if (!used.has(key)) this.#cache.delete(key);
  }

  /** Where sessions are known to run. */
  #knownFolders(sessions) {
    const attached = SharedDocument.read(statePath(this.#environment)).list('sessions').map((row) => row?.cwd);
    const folders = [...sessions.map(({ facts }) => facts.cwd), ...attached].map(folderOf);
    return [...new Set(folders)].filter(Boolean).sort();
  }

  /** A fault of ours, or a file of a kind that nobody thought of. */
  #reportOnce(source, error) {
    const text = `${source} ${error?.message}`;
    if (this.#reported.has(text) || this.#reported.size > 100) return;
    this.#reported.add(text);
    this.#log.error('sessions could not be looked for', error, { source });
  }

  static #row({ agent, entry, facts }, known, now) {
    const mtimeMs = Math.floor(entry.mtimeMs);
    // In the order of names, in which every program writes them: a list that came back is then the same text.
    return {
      active: now - mtimeMs <= activeMs,
      branch: listText(textOf(facts.branch)),
      cwd: folderOf(facts.cwd) || folderOf(agent.cwdOf?.(entry, facts, known)),
      lastText: listText(textOf(facts.lastText)),
      mtimeMs,
      sessionId: facts.sessionId,
      source: agent.source,
      title: titleText(textOf(facts.ownTitle)) || titleText(textOf(facts.prompt)),
      transcript: entry.path,
    };
  }
}
