// "tts lexicon": what is said for which word.

import { addEntry, loadEntries, maxEntries, removeEntry, validateEntry } from '../lexicon.js';
import { profilePath } from '../places.js';
import { readDocument } from './documents.js';
import { CommandFailure, notFound, usageError } from '../words/failure.js';
import { columns, plain } from '../words/output.js';

function expectWords(words, count, form) {
  if (words.length !== count) throw usageError(`It is "tts lexicon ${form}".`);
  return words;
}

function list({ environment, output }, words) {
  expectWords(words, 0, 'list');
  readDocument(profilePath(environment), output);
  const entries = loadEntries(environment);
  const rows = entries.map(({ match, say }) => [plain(match), plain(say) || '(left out)']);
  output.say(...(rows.length ? columns(rows, '') : ['There are no entries. Try: tts lexicon add nginx "engine x"']));
  output.result({ entries });
}

async function add({ environment, output }, words) {
  const [match, say] = expectWords(words, 2, 'add WORD SAY');
  const reason = validateEntry(match, say);
  if (reason) throw usageError(`That can't be an entry: ${reason}.`);
  readDocument(profilePath(environment), output, { isWritten: true });
  const how = await addEntry(match, say, environment);
  if (how === 'full') throw new CommandFailure(`The lexicon is full (max ${maxEntries} entries).`);
  output.say(say ? `"${plain(match)}" is spoken "${plain(say)}".` : `"${plain(match)}" is left out.`);
  output.result({ entry: { match, say }, replaced: how === 'replaced' });
}

async function remove({ environment, output }, words) {
  const [match] = expectWords(words, 1, 'remove WORD');
  readDocument(profilePath(environment), output);
  if (!await removeEntry(match, environment)) throw notFound(`There is no entry for "${plain(match)}".`);
  output.say(`"${plain(match)}" is spoken as it is written.`);
  output.result({ removed: match });
}

const actions = new Map([['list', list], ['add', add], ['remove', remove]]);

/** "tts lexicon list|add|remove" */
export async function lexicon(context) {
  const [action, ...words] = context.positionals;
  const body = actions.get(action);
  if (!body) throw usageError(`"${action}" is none of list, add and remove.`);
  await body(context, words);
}
