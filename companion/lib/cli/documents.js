// The shared documents as the commands read them: one that can't be read is an empty one, but that is told.

import fs from 'node:fs';

import { SharedDocument } from '../sharedDocument.js';
import { CommandFailure } from '../words/failure.js';

/** Why `error` stopped it, in words where they are better than a code. */
function reason({ code }) {
  if (code === 'EISDIR') return 'it is a folder';
  if (code === 'EACCES' || code === 'EPERM') return "this user isn't allowed to";
  return code ?? 'it holds no JSON object';
}

/**
 * @param {string} path
 * @param {import('../words/output.js').Output} output
 * @param {{ isWritten?: boolean }} [options] `isWritten`: the document is about to be changed
 */
export function readDocument(path, output, { isWritten = false } = {}) {
  let text = '';
  try {
    text = fs.readFileSync(path, 'utf8');
    return SharedDocument.parse(text);
  } catch (error) {
    if (error.code === 'ENOENT' || (!error.code && text.trim() === '')) return new SharedDocument();
    if (isWritten && error.code) throw new CommandFailure(`${path} can't be changed: ${reason(error)}.`);
    output.note(`${path} can't be read: ${reason(error)}.${isWritten ? ` It is kept as ${path}.unreadable.` : ''}`);
    return new SharedDocument();
  }
}
