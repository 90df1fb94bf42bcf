// From the words of a command line to a command, its options and its arguments. Options may stand anywhere; `--` ends
// them; a value follows after a blank or "=".

import { commands, globalOptions } from './commands.js';
import { usageError } from '../words/failure.js';

/** A number may be negative without being an option. */
const isOption = (word) => word.startsWith('-') && word !== '-' && !/^-\d/.test(word);

/**
 * The command that `word` names, also in the older spelling with two dashes. Nothing if there is none.
 */
export function findCommand(word) {
  const name = word.replace(/^--/, '');
  return commands.find((command) => command.name === name || command.aliases?.includes(name));
}

function distance(a, b) {
  let row = Array.from({ length: b.length + 1 }, (_, i) => i);
  for (let i = 1; i <= a.length; i += 1) {
    const next = [i];
    for (let j = 1; j <= b.length; j += 1) {
      next[j] = Math.min(row[j] + 1, next[j - 1] + 1, row[j - 1] + (a[i - 1] === b[j - 1] ? 0 : 1));
    }
    row = next;
  }
  return row[b.length];
}

function unknownCommand(word) {
  const typed = word.replace(/^--/, '');
  const near = commands.map(({ name }) => ({ name, far: distance(typed, name) })).sort((a, b) => a.far - b.far)[0];
  const guess = near.far <= 2 && near.far < typed.length - 1 ? ` Did you mean "${near.name}"?` : '';
  return usageError(`There is no command "${word}".${guess} "tts --help" lists them.`);
}

function takeValue(option, name, inline, words) {
  const value = inline ?? words.shift();
  // An empty one is a variable of a script that isn't set.
  if (value === undefined || (value === '' && !option.mayBeEmpty)) {
    throw usageError(`${name} needs a value: ${name} ${option.value}.`);
  }
  return value;
}

/** Reads one option into `options`; `words` are those behind it. */
function readOption(word, words, known, options, command) {
  const at = word.startsWith('--') ? word.indexOf('=') : -1;
  const name = at > 0 ? word.slice(0, at) : word;
  const inline = at > 0 ? word.slice(at + 1) : undefined;
  const option = known.find((candidate) => candidate.name === name || candidate.short === name);
  if (!option) throw usageError(`${command ? `"tts ${command.name}"` : 'tts'} has no option ${name}.`);
  const key = option.name.slice(2);
  if (option.value) options[key] = takeValue(option, name, inline, words);
  else if (inline !== undefined) throw usageError(`${name} takes no value.`);
  else options[key] = true;
}

/** "--voice=af_sky" is the older spelling of "voice af_sky". */
function takeCommand(word, words) {
  const at = word.startsWith('--') ? word.indexOf('=') : -1;
  const command = findCommand(at > 0 ? word.slice(0, at) : word);
  if (command && at > 0) words.unshift(word.slice(at + 1));
  return command;
}

function checkCount(command, positionals) {
  const { min = 0, max = min } = command;
  if (positionals.length < min) throw usageError(`"tts ${command.name}" needs ${command.arguments}.`);
  if (positionals.length > max) throw usageError(`"tts ${command.name}" can't take "${positionals[max]}".`);
}

/**
 * Fails with a usage error. Neither counts nor unknown commands are judged when help is asked for.
 * @param {string[]} argv
 * @returns {{ command?: object, options: Record<string, string | true>, positionals: string[] }}
 */
export function parseArguments(argv) {
  const words = [...argv];
  const options = {};
  const positionals = [];
  let command;
  let ended = false;
  while (words.length) {
    const word = words.shift();
    const globalOption = globalOptions.some(({ name, short }) => name === word || short === word);
    if (ended && !command) {
      command = commands.find(({ name, aliases }) => name === word || aliases?.includes(word));
      if (!command) throw unknownCommand(word);
    } else if (ended) positionals.push(word);
    else if (word === '--') ended = true;
    else if (!command && !globalOption) {
      command = takeCommand(word, words);
      if (!command && isOption(word)) readOption(word, words, globalOptions, options);
      else if (!command) throw unknownCommand(word);
    } else if (isOption(word)) {
      readOption(word, words, [...(command?.options ?? []), ...globalOptions], options, command);
    } else positionals.push(word);
  }
  // The older spelling of a command that is an option as well.
  if (!command && options.start) command = findCommand('start');
  if (command && !options.help) checkCount(command, positionals);
  return { command, options, positionals };
}
