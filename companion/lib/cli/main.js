// The command line's entry: reads the words, runs one command, and turns what was thrown into a sentence and an exit
// code. It imports only what every command needs.

import fs from 'node:fs';
import { fileURLToPath } from 'node:url';

import { packageVersion } from '../version.js';
import { asFailure, exitCodes, usageError } from '../words/failure.js';
import { Output } from '../words/output.js';
import { parseArguments } from './arguments.js';
import { interruptible } from './interruption.js';

/**
 * @typedef {{ environment: NodeJS.ProcessEnv, output: Output, cwd: string, isTerminal: boolean, signal: AbortSignal,
 *   begins?: (command: import('./commands.js').Command) => void,
 *   stdout: { write(text: string): unknown }, stderr: { write(text: string): unknown },
 *   options: Record<string, string | true>, positionals: string[], command: import('./commands.js').Command,
 *   neighbours: import('./neighbours.js').Neighbours }} Context
 */

async function answerHelp({ command, options }, output) {
  if (options.version) {
    const version = packageVersion() ?? 'unknown';
    output.say(`tts ${version}`);
    output.result({ version });
    return exitCodes.ok;
  }
  const { generalHelp, commandHelp } = await import('./help.js');
  const text = command ? commandHelp(command) : generalHelp();
  if (!options.help) {
    if (output.json) throw usageError('A command is missing. "tts --help" lists them.');
    output.note(text);
    return exitCodes.usage;
  }
  output.say(text);
  output.result({ help: text });
  return exitCodes.ok;
}

async function startFirst(context) {
  const { startService } = await import('../serviceControl.js');
  if (await startService({ environment: context.environment, parts: context.neighbours.serviceParts }) === 'started') {
    context.output.note('Started the Sonra service.');
  }
}

async function runCommand(parsed, context) {
  const { command, options } = parsed;
  if (options.help || options.version || !command) return answerHelp(parsed, context.output);
  // Before anything is started: nobody who is told of a slip of the pen expects that.
  if (command.judge) (await command.judge())(parsed);
  if (options.start && command.name !== 'start' && !command.needsNothing) await startFirst(context);
  context.begins?.(command);
  const body = await command.load();
  return (await body({ ...context, ...parsed })) ?? exitCodes.ok;
}

/**
 * Runs one command line and gives its exit code; never throws.
 * @param {string[]} argv without the program's name
 * @param {Partial<Context>} [around] what a test replaces
 * @returns {Promise<number>}
 */
export async function run(argv, {
  environment = process.env, stdout = process.stdout, stderr = process.stderr, cwd = process.cwd(),
  isTerminal = Boolean(process.stdout.isTTY), signal = new AbortController().signal, begins, neighbours,
} = {}) {
  // Also when the words can't be read, a program that asked for JSON gets it.
  let output = new Output({ stdout, stderr, environment, json: argv.includes('--json') });
  try {
    const parsed = parseArguments(argv);
    output = new Output({ stdout, stderr, environment, json: Boolean(parsed.options.json) });
    const context = { environment, output, stdout, stderr, cwd, isTerminal, signal, begins };
    context.neighbours = neighbours ?? (await import('./neighbours.js')).neighbours;
    return await runCommand(parsed, context);
  } catch (error) {
    const failure = asFailure(error);
    output.failure(failure);
    return failure.exit;
  }
}

/** "tts status | head -1" isn't a failure; a result that is lost is one. */
function watchStreams() {
  process.stderr.on('error', () => {});
  process.stdout.on('error', (error) => {
    if (error.code === 'EPIPE') process.exit(exitCodes.ok);
    process.stderr.write(`tts: The result couldn't be written: ${error.code ?? error.message}.\n`);
    process.exit(exitCodes.failed);
  });
}

function currentFolder() {
  try {
    return process.cwd();
  } catch {
    // The folder has been removed under us; no session can be found by it.
    return '/';
  }
}

/** Whether this file is the program, not a module of a test. */
const isProgram = process.argv[1] !== undefined
  && fs.realpathSync(process.argv[1]) === fileURLToPath(import.meta.url);

if (isProgram) {
  watchStreams();
  const interruption = interruptible();
  process.exitCode = await run(process.argv.slice(2), {
    cwd: currentFolder(),
    signal: interruption.signal,
    begins: (command) => { interruption.undoes = Boolean(command.undoes); },
  });
}
