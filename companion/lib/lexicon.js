// How words are to be spoken: pairs of a match and what is said for it, in profile.json. The service reads the file by
// the same rules and picks up a change with the next sentence. Reading is tolerant; writing happens under the profile's
// lock, keeps what else the document holds, and drops entries that the service would not take.

import { profilePath } from './places.js';
import { SharedDocument, updateDocument } from './sharedDocument.js';

export const maxEntries = 500;
const maxMatch = 64;
const maxSay = 256;

/** @typedef {{ match: string, say: string }} Entry */

/** Why the pair can't be an entry; nothing if it can. Lengths are in UTF-16 units. */
export function validateEntry(match, say) {
  if (match.length === 0) return 'match must be 1..64 characters';
  if (match.length > maxMatch) return 'match too long (max 64 characters)';
  if (match.trim().length === 0) return 'match must not be whitespace-only';
  if (say.length > maxSay) return 'say too long (max 256 characters)';
  return undefined;
}

/** The entries of a parsed profile, in its order. */
function entriesOf(document) {
  const entries = [];
  for (const element of document.list('lexicon')) {
    if (entries.length === maxEntries) break;
    const { match, say } = element ?? {};
    if (typeof match !== 'string' || typeof say !== 'string' || validateEntry(match, say)) continue;
    entries.push({ match, say });
  }
  return entries;
}

/** @returns {Entry[]} */
export function loadEntries(environment = process.env) {
  return entriesOf(SharedDocument.read(profilePath(environment)));
}

/** Lets `change` alter the list in place; what it returns, and whether to write: `[result, changed]`. */
function update(environment, change, onSetAside) {
  const path = profilePath(environment);
  return updateDocument(path, (document) => {
    const entries = entriesOf(document);
    const [result, changed] = change(entries);
    if (changed) {
      document.set('version', 1);
      document.set('lexicon', entries);
    }
    return result;
  }, { ending: '\n', temporary: `${path}.tmp.${process.pid}`, onSetAside });
}

const sameWord = (match) => (entry) => entry.match.toLowerCase() === match.toLowerCase();

/**
 * Adds the pair, or puts it in the place of the one for the same word. Fails as the lock and the file system do.
 * @returns {Promise<'added' | 'replaced' | 'full'>}
 */
export function addEntry(match, say, environment = process.env, { onSetAside } = {}) {
  return update(environment, (entries) => {
    const index = entries.findIndex(sameWord(match));
    if (index >= 0) {
      entries[index] = { match, say };
      return ['replaced', true];
    }
    if (entries.length >= maxEntries) return ['full', false];
    entries.push({ match, say });
    return ['added', true];
  }, onSetAside);
}

/** @returns {Promise<boolean>} whether there was one */
export function removeEntry(match, environment = process.env, { onSetAside } = {}) {
  return update(environment, (entries) => {
    const kept = entries.filter((entry) => !sameWord(match)(entry));
    const removed = kept.length < entries.length;
    entries.splice(0, entries.length, ...kept);
    return [removed, removed];
  }, onSetAside);
}
