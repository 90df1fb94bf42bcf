// What can be known of a JSON document of which only the beginning, or only the end, is at hand: the members of its
// object and the elements of its list that are complete. The list is the document itself or its member "messages".

import { scalarEnd, stringEnd, valueEnd } from '../jsonEnds.js';

const space = /[ \t\r\n]/;

function skipForward(text, at) {
  while (at < text.length && space.test(text[at])) at += 1;
  return at;
}

/** Index behind the last character before `end` that isn't space. */
function skipBackward(text, end) {
  while (end > 0 && space.test(text[end - 1])) end -= 1;
  return end;
}

/** Index at which the string begins whose closing quote is before `end`; -1 where it is cut. */
function stringStart(text, end) {
  for (let i = text.lastIndexOf('"', end - 2); i >= 0; i = i === 0 ? -1 : text.lastIndexOf('"', i - 1)) {
    let marks = 0;
    while (text[i - 1 - marks] === '\\') marks += 1;
    if (marks % 2 === 0) return i;
  }
  return -1;
}

/** Index at which the value begins that ends before `end`; -1 where it is cut. */
function valueStart(text, end) {
  if (text[end - 1] === '"') return stringStart(text, end);
  let depth = 0;
  for (let i = end - 1; i >= 0; i -= 1) {
    const c = text[i];
    if (c === '"') {
      i = stringStart(text, i + 1);
      if (i < 0) return -1;
    } else if (c === '}' || c === ']') {
      depth += 1;
    } else if (c === '{' || c === '[') {
      depth -= 1;
      if (depth === 0) return i;
      if (depth < 0) return i + 1;
    } else if (depth === 0 && scalarEnd.test(c)) {
      return i + 1;
    }
  }
  return -1;
}

function parsed(text) {
  try {
    return JSON.parse(text);
  } catch {
    return undefined;
  }
}

/** The complete elements of the list whose "[" is at `at`, and where it goes on behind it (-1 where it is cut). */
function elementsForward(text, at) {
  const elements = [];
  for (let i = skipForward(text, at + 1); i < text.length; ) {
    if (text[i] === ']') return { elements, next: i + 1 };
    const end = valueEnd(text, i);
    if (end < 0 || end === i) break;
    elements.push(parsed(text.slice(i, end)));
    i = skipForward(text, end);
    if (text[i] === ',') i = skipForward(text, i + 1);
  }
  return { elements, next: -1 };
}

/**
 * What is complete in the beginning of a document.
 * @param {string} text
 * @returns {{ members: Record<string, unknown>, elements: unknown[] }} in the document's order
 */
export function leadingPieces(text) {
  const members = Object.create(null);
  let elements = [];
  let i = skipForward(text, text.charCodeAt(0) === 0xfeff ? 1 : 0);
  if (text[i] === '[') return { members, elements: elementsForward(text, i).elements };
  if (text[i] !== '{') return { members, elements };
  i = skipForward(text, i + 1);
  while (text[i] === '"') {
    const nameEnd = stringEnd(text, i);
    const begin = skipForward(text, skipForward(text, nameEnd) + 1);
    if (nameEnd < 0) break;
    const name = parsed(text.slice(i, nameEnd));
    let end;
    if (name === 'messages' && text[begin] === '[') ({ elements, next: end } = elementsForward(text, begin));
    else if ((end = valueEnd(text, begin)) > 0) members[name] = parsed(text.slice(begin, end));
    if (end < 0) break;
    i = skipForward(text, end);
    if (text[i] === ',') i = skipForward(text, i + 1);
  }
  return { members, elements };
}

/** The complete elements of the list whose "]" is before `end`, newest first. */
function elementsBackward(text, end) {
  const elements = [];
  for (let i = skipBackward(text, end - 1); i > 0 && text[i - 1] !== '['; ) {
    const start = valueStart(text, i);
    if (start < 0 || start === i) break;
    elements.push(parsed(text.slice(start, i)));
    i = skipBackward(text, start);
    if (text[i - 1] !== ',') break;
    i = skipBackward(text, i - 1);
  }
  return elements;
}

/**
 * What is complete in the end of a document.
 * @param {string} text
 * @returns {{ members: Record<string, unknown>, elements: unknown[] }} the elements newest first
 */
export function trailingPieces(text) {
  const members = Object.create(null);
  let i = skipBackward(text, text.length);
  if (text[i - 1] === ']') return { members, elements: elementsBackward(text, i) };
  if (text[i - 1] !== '}') return { members, elements: [] };
  i = skipBackward(text, i - 1);
  while (i > 0) {
    const start = valueStart(text, i);
    // Only a list can be that long.
    if (start < 0) return { members, elements: text[i - 1] === ']' ? elementsBackward(text, i) : [] };
    const colon = skipBackward(text, start);
    if (text[colon - 1] !== ':') break;
    const nameEnd = skipBackward(text, colon - 1);
    const nameStart = text[nameEnd - 1] === '"' ? stringStart(text, nameEnd) : -1;
    if (nameStart < 0) return { members, elements: text[i - 1] === ']' ? elementsBackward(text, i) : [] };
    const name = parsed(text.slice(nameStart, nameEnd));
    if (name === 'messages') return { members, elements: elementsBackward(text, i) };
    members[name] = parsed(text.slice(start, i));
    i = skipBackward(text, nameStart);
    if (text[i - 1] !== ',') break;
    i = skipBackward(text, i - 1);
  }
  return { members, elements: [] };
}
