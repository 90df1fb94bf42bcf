// The texts of --help, made from the table of commands.

import { commands, globalOptions } from './commands.js';
import { findCommand } from './arguments.js';
import { usageError } from '../words/failure.js';
import { columns } from '../words/output.js';

const optionRow = ({ name, short, value, help }) =>
  [`${short ? `${short}, ` : ''}${name}${value ? ` ${value}` : ''}`, help];

/** What a command takes, in brackets where it may be left out. */
const argumentsOf = ({ arguments: words, min }) => (!words || min ? words : `[${words}]`);

/** The words behind "tts" in the line that shows how a command is called. */
export function synopsis(command) {
  const options = (command.options ?? []).map(({ name, value }) => `[${name}${value ? ` ${value}` : ''}]`);
  return [command.name, ...options, argumentsOf(command)].filter(Boolean).join(' ');
}

export function generalHelp() {
  const summary = (command) => [[command.name, argumentsOf(command)].filter(Boolean).join(' '), command.summary];
  return [
    'Usage: tts COMMAND [OPTIONS]',
    '',
    'Sonra reads the replies of AI coding agents aloud; this steers it.',
    '',
    'Commands:',
    ...columns(commands.map(summary)),
    '',
    'Options of every command:',
    ...columns(globalOptions.map(optionRow)),
    '',
    'A command may also be written as an option: "tts --on" is "tts on".',
    '"tts COMMAND --help" tells more; the manual page, tts(1), tells the exit codes and what --json prints.',
  ].join('\n');
}

/** @param {import('./commands.js').Command} command */
export function commandHelp(command) {
  const options = [...(command.options ?? []), ...globalOptions];
  return [
    `Usage: tts ${synopsis(command)}`,
    '',
    `${command.summary[0].toUpperCase()}${command.summary.slice(1)}.`,
    ...(command.help ?? []),
    ...(command.aliases ? [`Also: ${command.aliases.map((name) => `tts ${name}`).join(', ')}.`] : []),
    '',
    'Options:',
    ...columns(options.map(optionRow)),
  ].join('\n');
}

export function judge({ positionals: [name] }) {
  if (name !== undefined && !findCommand(name)) {
    throw usageError(`There is no command "${name}". "tts --help" lists them.`);
  }
}

/** "tts help [COMMAND]" */
export async function help({ output, positionals: [name] }) {
  const command = name === undefined ? undefined : findCommand(name);
  const text = command ? commandHelp(command) : generalHelp();
  output.say(text);
  output.result({ help: text });
}
