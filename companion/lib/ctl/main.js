// The words of ctl.js. Each is loaded when it is asked for, so that the short ones stay quick.
//
// Ends with 0 when it did what was asked, with 1 and a sentence when it couldn't, with 2 when it wasn't asked properly.

import { packageVersion } from '../version.js';
import { CommandFailure, usageError } from '../words/failure.js';
import { Output } from '../words/output.js';

/**
 * @typedef {{ environment: NodeJS.ProcessEnv, words: string[] }} Call
 * @typedef {{ text: string, facts: object }} Result what a person reads, and what a program does
 * @typedef {{ summary: string, words?: string, run: (call: Call) => Promise<Result> }} Command
 */

/** @type {{ [name: string]: Command }} */
const commands = {
  standby: { summary: 'start the daemon, unless it runs', run: async (call) => (await import('./daemonWords.js')).standby(call) },
  'stop-daemon': { summary: 'end the daemon', run: async (call) => (await import('./daemonWords.js')).stop(call) },
  status: { summary: 'say what runs and what is known', run: async (call) => (await import('./status.js')).status(call) },
  install: { summary: 'start at login', run: async (call) => (await import('./loginWords.js')).install(call) },
  uninstall: { summary: 'no longer start at login', run: async (call) => (await import('./loginWords.js')).uninstall(call) },
  captions: { summary: 'show the captions or hide them', words: 'on|off', run: async (call) => (await import('./captions.js')).captions(call) },
};

function help() {
  const names = Object.entries(commands).map(([name, { words }]) => (words ? `${name} ${words}` : name));
  const rows = [...Object.values(commands).map(({ summary }, i) => [names[i], summary]),
    ['diag [options]', 'make a bundle for support; diag --help says more']];
  return [
    'Controls the daemon that finds agents\' sessions and serves the phone.', '',
    'Usage: ctl.js COMMAND [--json]', '',
    ...rows.map(([name, summary]) => `  ${name.padEnd(18)}${summary}`), '',
    '  --json            print one JSON object instead of words',
    '  --help            print this text',
    '  --version         print the version', '',
    'Ends with 0 when done, 1 when it couldn\'t be done, 2 when the command line is wrong.', '',
  ].join('\n');
}

function version() {
  return `sonra-ctl ${packageVersion() ?? 'unknown'}\n`;
}

/** The command, its words and whether facts are wanted. Fails with a usage error. */
function parse(args) {
  const end = args.indexOf('--');
  const options = (end < 0 ? args : args.slice(0, end)).filter((word) => word.startsWith('-'));
  const unknown = options.find((option) => option !== '--json');
  if (unknown !== undefined) throw usageError(`Unknown option "${unknown}"; --help lists what there is.`);
  const [name, ...words] = args.filter((word, i) => i !== end && (!word.startsWith('-') || (end >= 0 && i > end)));
  if (name === undefined) throw usageError(`A command is missing: ${Object.keys(commands).join(', ')} or diag.`);
  if (!Object.hasOwn(commands, name)) throw usageError(`Unknown command "${name}"; --help lists what there is.`);
  const allowed = commands[name].words ? 1 : 0;
  if (words.length > allowed) throw usageError(`"${words[allowed]}" is one word too many; --help lists what there is.`);
  return { command: commands[name], words, json: options.length > 0 };
}

/** Also where the rest can't be understood: a program that asked for an object gets one. */
const wantsFacts = (args) => args.slice(0, args.includes('--') ? args.indexOf('--') : undefined).includes('--json');

async function runCommand(args, { environment, stdout }) {
  const { command, words, json } = parse(args);
  const { text, facts } = await command.run({ environment, words });
  stdout.write(json ? `${JSON.stringify(facts)}\n` : `${text}\n`);
  return 0;
}

/**
 * @param {string[]} args without Node.js and the script
 * @param {{ environment?: NodeJS.ProcessEnv, stdout?: NodeJS.WritableStream, stderr?: NodeJS.WritableStream }} [surroundings]
 * @returns {Promise<number>} the exit code
 */
export async function runCtl(args, { environment = process.env, stdout = process.stdout, stderr = process.stderr } = {}) {
  try {
    const word = args.findIndex((arg) => !arg.startsWith('-'));
    if (args[word] === 'diag' && !args.slice(0, word).includes('--')) {
      const { runDiag } = await import('../diag/diag.js');
      // Its options are its own, wherever they stand.
      return await runDiag(args.filter((_, i) => i !== word), { environment, stdout, stderr });
    }
    const question = args.find((word) => word === '--' || word === '--help' || word === '--version');
    if (question === '--help' || question === '--version') {
      stdout.write(question === '--help' ? help() : version());
      return 0;
    }
    return await runCommand(args, { environment, stdout });
  } catch (error) {
    const failure = error instanceof CommandFailure ? error : new CommandFailure(String(error?.message ?? error));
    new Output({ stdout, stderr, environment, json: wantsFacts(args), program: 'ctl.js' }).failure(failure);
    return failure.exit;
  }
}
