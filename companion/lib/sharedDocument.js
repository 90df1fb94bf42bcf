// A JSON document that several programs rewrite under its lock, such as state.json: each reads it, changes its own
// keys, and replaces it whole.

import fs from 'node:fs';

import { joinMembers, memberText, splitMembers } from './jsonMembers.js';
import { withLock } from './stateLock.js';
import { makeFolderOf, readIfPresent, replaceFile } from './wholeFile.js';

/** A document in memory: what isn't set keeps its own text. */
export class SharedDocument {
  /** @param {Map<string, string>} members each value's JSON text */
  constructor(members = new Map()) {
    this.members = members;
    this.changed = false;
  }

  /** Tolerant: a missing, unreadable or broken document is an empty one. */
  static read(path) {
    try {
      return SharedDocument.parse(fs.readFileSync(path, 'utf8'));
    } catch {
      return new SharedDocument();
    }
  }

  /** Throws SyntaxError unless `text` is a JSON object. */
  static parse(text) {
    return new SharedDocument(splitMembers(text));
  }

  get(name) {
    const text = this.members.get(name);
    return text === undefined ? undefined : JSON.parse(text);
  }

  /** The list under `name`; empty where there is something else. */
  list(name) {
    const value = this.get(name);
    return Array.isArray(value) ? value : [];
  }

  /** An equal value isn't a change. */
  set(name, value) {
    const text = memberText(value);
    const present = this.members.get(name);
    if (present !== undefined && (present === text || JSON.stringify(JSON.parse(present)) === JSON.stringify(value))) return;
    this.members.set(name, text);
    this.changed = true;
  }

  delete(name) {
    this.changed = this.members.delete(name) || this.changed;
  }

  toString() {
    return joinMembers(this.members);
  }
}

/** A document that nobody can read is about to be begun anew; what it held may still be of use. */
function parseOrSetAside(path, text, onSetAside) {
  if (text === undefined || text.trim() === '') return new SharedDocument();
  try {
    return SharedDocument.parse(text);
  } catch {
    replaceFile(`${path}.unreadable`, text);
    onSetAside?.(`${path}.unreadable`);
    return new SharedDocument();
  }
}

/**
 * Reads, lets `mutate` change, and replaces the document at `path`, all under its lock. Nothing is written when nothing
 * changed. Fails with StateLockError when the lock can't be had in time, and with the file system's error when the
 * document is there and can't be read, or can't be written.
 * @template T
 * @param {string} path
 * @param {(document: SharedDocument) => T} mutate synchronous
 * @param {{ timeout?: number, mode?: number, ending?: string, temporary?: string,
 *   onSetAside?: (copy: string) => void }} [options] `ending` follows the object in the file; `temporary` is the
 *   neighbour that is written first; `onSetAside` is told where what nobody could read has been kept
 * @returns {Promise<T>} what `mutate` returned
 */
export async function updateDocument(path, mutate, { timeout, mode, ending = '', temporary, onSetAside } = {}) {
  makeFolderOf(path);
  return withLock(path, () => {
    const document = parseOrSetAside(path, readIfPresent(path), onSetAside);
    const result = mutate(document);
    if (document.changed) replaceFile(path, `${document}${ending}`, { mode, temporary });
    return result;
  }, { timeout });
}
