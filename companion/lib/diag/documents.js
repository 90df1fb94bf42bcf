// The shared documents for the bundle, without anybody's words: numbers and switches stand as they are, strings only
// under keys that are known to hold none.

import fs from 'node:fs';

import { nowPlayingPath, profilePath, statePath, tokensPath } from '../places.js';
import { SharedDocument } from '../sharedDocument.js';

/** Settings, names of sessions, and places. */
const keptStrings = new Set(['voice', 'player', 'id', 'sessionId', 'messageId', 'source', 'cwd', 'transcript', 'state',
  'kind']);

/** @param {import('./scrubber.js').Scrubber} scrubber */
function withoutTexts(key, value, scrubber) {
  if (Array.isArray(value)) return value.map((element) => withoutTexts(key, element, scrubber));
  if (value !== null && typeof value === 'object') {
    return Object.fromEntries(Object.entries(value)
      .map(([name, inner]) => [scrubber.text(name), withoutTexts(name, inner, scrubber)]));
  }
  if (typeof value !== 'string') return value;
  // A sentence of the service's, which may quote what it couldn't speak.
  if (key === 'lastSpeakError') return scrubber.sentence(value);
  return keptStrings.has(key) ? scrubber.text(value) : `[${value.length} characters]`;
}

function readable(file) {
  try {
    return SharedDocument.parse(fs.readFileSync(file, 'utf8'));
  } catch (error) {
    return { problem: error.code ?? 'no JSON object' };
  }
}

function reduced(file, scrubber) {
  const document = readable(file);
  if (document.problem) return { problem: document.problem };
  const whole = Object.fromEntries([...document.members.keys()].map((name) => [name, document.get(name)]));
  return withoutTexts('', whole, scrubber);
}

/** Only how much there is. */
function countOf(file, key) {
  const document = readable(file);
  return document.problem ? { problem: document.problem } : { [key]: document.list(key).length };
}

/** @returns {Record<string, object>} by the name of the file in the bundle */
export function collectDocuments(environment, scrubber) {
  return {
    'state.json': reduced(statePath(environment), scrubber),
    'now-playing.json': reduced(nowPlayingPath(environment), scrubber),
    'profile.json': countOf(profilePath(environment), 'lexicon'),
    'bridge-tokens.json': countOf(tokensPath(environment), 'tokens'),
  };
}
