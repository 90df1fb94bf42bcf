// A JSON object as its members' own text. A shared document is rewritten by programs in several languages; what one of
// them doesn't touch must come back byte for byte: numbers that a double can't hold, "1.0", and characters that only
// exist escaped.

import { stringEnd, valueEnd } from './jsonEnds.js';

const space = new Set([' ', '\t', '\n', '\r']);

function skipSpace(text, at) {
  while (space.has(text[at])) at += 1;
  return at;
}

const byteOrderMark = '\ufeff';

/**
 * The members of the object in a text, each as the text of its value; of two with one name the last wins. A byte-order
 * mark, which some editors put in front, counts for nothing. Throws SyntaxError unless it is a JSON object.
 * @param {string} marked the text, perhaps with such a mark
 * @returns {Map<string, string>}
 */
export function splitMembers(marked) {
  const text = marked.startsWith(byteOrderMark) ? marked.slice(1) : marked;
  const whole = JSON.parse(text);
  if (whole === null || typeof whole !== 'object' || Array.isArray(whole)) throw new SyntaxError('not an object');
  const members = new Map();
  let at = skipSpace(text, skipSpace(text, 0) + 1);
  while (text[at] === '"') {
    const nameEnd = stringEnd(text, at);
    const name = JSON.parse(text.slice(at, nameEnd));
    const begin = skipSpace(text, skipSpace(text, nameEnd) + 1);
    const end = valueEnd(text, begin);
    members.set(name, text.slice(begin, end));
    at = skipSpace(text, end);
    if (text[at] === ',') at = skipSpace(text, at + 1);
  }
  return members;
}

/** By code units: any fixed order will do, and this one is the same in every program for the names in use. */
const byName = ([a], [b]) => (a < b ? -1 : a > b ? 1 : 0);

/** The document with these members, sorted by name, one to a line. */
export function joinMembers(members) {
  const lines = [...members].sort(byName).map(([name, value]) => `  ${JSON.stringify(name)}: ${value}`);
  return lines.length ? `{\n${lines.join(',\n')}\n}` : '{}';
}

/** A value's text, indented to stand as a member. */
export function memberText(value) {
  return JSON.stringify(value, null, 2).replaceAll('\n', '\n  ');
}
