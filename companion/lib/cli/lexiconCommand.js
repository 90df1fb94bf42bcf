// "tts lexicon": what is said for which word.

import { addEntry, loadEntries, maxEntries, removeEntry, validateEntry } from '../lexicon.js';
import { profilePath } from '../places.js';
import { changeDocument, readDocument } from './documents.js';
import { CommandFailure, notFound, usageError } from '../words/failure.js';
import { columns, plain } from '../words/output.js';

function list({ environment, output }) {
  readDocument(profilePath(environment), output);
  const entries = loadEntries(environment);
  const rows = entries.map(({ match, say }) => [plain(match), plain(say) || '(left out)']);
  output.say(...(rows.length ? columns(rows, '') : ['There are no entries. Try: tts lexicon add nginx "engine x"']));
  output.result({ entries });
}

async function add({ environment, output }, [match, say]) {
  const how = await changeDocument(profilePath(environment), output,
    (options) => addEntry(match, say, environment, options));
  if (how === 'full') throw new CommandFailure(`The lexicon is full (max ${maxEntries} entries).`);
  output.say(say ? `"${plain(match)}" is spoken "${plain(say)}".` : `"${plain(match)}" is left out.`);
  output.result({ entry: { match, say }, replaced: how === 'replaced' });
}

async function remove({ environment, output }, [match]) {
  const removed = await changeDocument(profilePath(environment), output,
    (options) => removeEntry(match, environment, options));
  if (!removed) throw notFound(`There is no entry for "${plain(match)}".`);
  output.say(`"${plain(match)}" is spoken as it is written.`);
  output.result({ removed: match });
}

const actions = new Map([
  ['list', { body: list, count: 0, form: 'list' }],
  ['add', { body: add, count: 2, form: 'add WORD SAY' }],
  ['remove', { body: remove, count: 1, form: 'remove WORD' }],
]);

export function judge({ positionals: [name, ...words] }) {
  const action = actions.get(name);
  if (!action) throw usageError(`"${name}" is none of list, add and remove.`);
  if (words.length !== action.count) throw usageError(`It is "tts lexicon ${action.form}".`);
  const reason = name === 'add' && validateEntry(...words);
  if (reason) throw usageError(`That can't be an entry: ${reason}.`);
}

/** "tts lexicon list|add|remove" */
export async function lexicon(context) {
  const [name, ...words] = context.positionals;
  await actions.get(name).body(context, words);
}
