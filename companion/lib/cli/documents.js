// The shared documents as the commands read and change them: one that can't be read is an empty one, but that is told.

import fs from 'node:fs';

import { SharedDocument } from '../sharedDocument.js';
import { CommandFailure } from '../words/failure.js';

const noObject = 'it holds no JSON object';

/** Why `error` stopped it, in words where they are better than a code. */
function reason({ code }) {
  if (code === 'EISDIR') return 'it is a folder';
  if (code === 'EACCES' || code === 'EPERM') return "this user isn't allowed to";
  return code ?? noObject;
}

/**
 * @param {string} path
 * @param {import('../words/output.js').Output} output
 */
export function readDocument(path, output) {
  let text = '';
  try {
    text = fs.readFileSync(path, 'utf8');
    return SharedDocument.parse(text);
  } catch (error) {
    const isEmpty = error.code === 'ENOENT' || (!error.code && text.trim() === '');
    if (!isEmpty) output.note(`${path} can't be read: ${reason(error)}.`);
    return new SharedDocument();
  }
}

/**
 * Lets `change` change the document, with the options that it is to hand on. Fails with a sentence where the file system
 * is against it.
 * @template T
 * @param {string} path
 * @param {import('../words/output.js').Output} output
 * @param {(options: { onSetAside: (copy: string) => void }) => Promise<T>} change
 * @returns {Promise<T>}
 */
export async function changeDocument(path, output, change) {
  const onSetAside = (copy) => output.note(`${path} can't be read: ${noObject}. It is kept as ${copy}.`);
  try {
    return await change({ onSetAside });
  } catch (error) {
    if (!error.code) throw error;
    throw new CommandFailure(`${path} can't be changed: ${reason(error)}.`);
  }
}
