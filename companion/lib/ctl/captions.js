// Turns the caption window on or off; a running service follows within a moment.

import { statePath } from '../places.js';
import { updateDocument } from '../sharedDocument.js';
import { usageError } from '../words/failure.js';

export async function captions({ environment, words: [word] }) {
  if (word !== 'on' && word !== 'off') throw usageError('captions takes one word, "on" or "off".');
  await updateDocument(statePath(environment), (document) => document.set('captions', word === 'on'));
  return { text: `Captions are ${word}.`, facts: { captions: word === 'on' } };
}
