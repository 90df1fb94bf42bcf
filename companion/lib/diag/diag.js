// The diagnostics bundle: a zip file that a user may send to support after looking into it. It holds no secrets, no
// spoken text and no addresses of mail. Nothing is changed but that one file is written.

import fs from 'node:fs';
import path from 'node:path';
import { parseArgs } from 'node:util';

import { CommandFailure, usageError } from '../words/failure.js';
import { Output } from '../words/output.js';
import { configDirectory, homeDirectory } from '../places.js';
import { fileBehind, readIfPresent, replaceFile } from '../wholeFile.js';
import { collectDocuments } from './documents.js';
import { collectPlatform, collectRunning, collectVersions } from './facts.js';
import { collectLogs } from './logs.js';
import { Scrubber } from './scrubber.js';
import { sendBundle } from './support.js';
import { zip } from './zip.js';

const readme = `Diagnostics of Sonra.

logs/            the logs of the service and the daemon, and what the daemon said when it couldn't go on; the newest
                 lines, redacted
*.json           the shared documents without texts: how the programs are set up
versions.json    of the programs
platform.json    of this computer and its desktop
running.json     what ran when this was made
notes.txt        what the user wrote, if anything

Secrets, spoken text, lexicon words and the names in mail addresses have been taken out; "~" is the user's home. Names
of folders and ids of sessions are in it. Look through it before you pass it on.
`;

const help = `Usage: diag [--out=PATH] [--notes=TEXT] [--send] [--cleanup] [--json]

Writes a redacted bundle of logs and facts for support; by default onto the desktop.

  --out=PATH    where to write it
  --notes=TEXT  what you were doing when it happened
  --send        send it to the address in SONRA_SUPPORT_URL
  --cleanup     remove the file once it has been sent
  --json        print the result as one JSON object
`;

/** A variable of user-dirs.dirs: a path, or one below "$HOME". */
function desktopFrom(environment) {
  const text = readIfPresent(path.join(configDirectory(environment), 'user-dirs.dirs')) ?? '';
  const value = environment.XDG_DESKTOP_DIR || /^\s*XDG_DESKTOP_DIR="(.*)"/m.exec(text)?.[1] || '$HOME/Desktop';
  return value.replace(/^\$HOME(?=\/|$)/, homeDirectory(environment));
}

function isFolder(file) {
  try {
    return fs.statSync(file).isDirectory();
  } catch {
    return false;
  }
}

function fileName(date) {
  const two = (number) => String(number).padStart(2, '0');
  const day = `${date.getFullYear()}${two(date.getMonth() + 1)}${two(date.getDate())}`;
  return `sonra-diagnostics-${day}-${two(date.getHours())}${two(date.getMinutes())}${two(date.getSeconds())}.zip`;
}

/** Where the bundle goes. A shell leaves "~" alone behind "--out=". */
function target(out, { environment, cwd, date }) {
  if (out === undefined) {
    const folder = [desktopFrom(environment), path.join(homeDirectory(environment), 'Desktop')].find(isFolder) ?? cwd;
    return path.join(folder, fileName(date));
  }
  const file = path.resolve(cwd, out.replace(/^~(?=\/|$)/, homeDirectory(environment)));
  return isFolder(file) ? path.join(file, fileName(date)) : file;
}

const json = (value) => `${JSON.stringify(value, null, 2)}\n`;

/** @returns {Promise<Array<{ name: string, content: string }>>} */
export async function collectFiles({ environment, notes, date }) {
  const scrubber = new Scrubber({ environment });
  const [versions, platform, running] = await Promise.all([
    collectVersions(environment), collectPlatform(environment), collectRunning(environment),
  ]);
  const logs = collectLogs(environment, scrubber);
  const manifest = { made: date.toISOString(), omittedLogBytes: logs.omittedBytes, problems: logs.problems };
  // Facts come from the outside as well: a program that answers with a path tells the home's name.
  const fact = (value) => json(scrubber.facts(value));
  return [
    { name: 'README.txt', content: readme },
    { name: 'manifest.json', content: json(manifest) },
    { name: 'versions.json', content: fact(versions) },
    { name: 'platform.json', content: fact(platform) },
    { name: 'running.json', content: fact(running) },
    ...Object.entries(collectDocuments(environment, scrubber)).map(([name, value]) => ({ name, content: json(value) })),
    ...(notes ? [{ name: 'notes.txt', content: `${scrubber.text(notes)}\n` }] : []),
    ...logs.files,
  ];
}

/** A folder that is named and missing is made, but not a whole way of them: that is a slip of the pen. */
function prepare(file) {
  const folder = path.dirname(file);
  if (!isFolder(folder)) {
    if (fs.existsSync(folder)) throw new CommandFailure(`${folder} is no folder.`);
    if (!isFolder(path.dirname(folder))) throw new CommandFailure(`There is no folder ${path.dirname(folder)}.`);
    fs.mkdirSync(folder, { mode: 0o700 });
  }
}

function write(file, bundle) {
  try {
    prepare(file);
    const behind = fileBehind(file);
    if (behind === undefined) throw new CommandFailure(`${file} is no file that could be replaced.`);
    replaceFile(behind, bundle, { mode: 0o600, temporary: `${behind}.${process.pid}.part` });
  } catch (error) {
    if (error instanceof CommandFailure) throw error;
    throw new CommandFailure(`The bundle can't be written to ${file}: ${error.code ?? error.message}.`);
  }
}

const optionTypes = {
  out: { type: 'string' },
  notes: { type: 'string' },
  json: { type: 'boolean' },
  send: { type: 'boolean' },
  cleanup: { type: 'boolean' },
};

function parse(args) {
  try {
    return parseArgs({ args, options: optionTypes, allowPositionals: false }).values;
  } catch (error) {
    throw usageError(error.message.split('\n')[0]);
  }
}

async function send(bundle, file, { environment, limit }) {
  try {
    return await sendBundle(bundle, { environment, limit });
  } catch (error) {
    if (error.name !== 'SendFailed') throw error;
    throw new CommandFailure(error.message, {
      kind: 'notSent',
      hint: `The bundle is at ${file}; it can be attached to a message to support by hand.`,
      details: { path: file },
    });
  }
}

/** Of a bundle that has arrived; who can't remove it still wants to know that. */
function remove(file, reference) {
  try {
    fs.rmSync(file, { force: true });
  } catch (error) {
    throw new CommandFailure(`The bundle was sent, but ${file} can't be removed: ${error.code ?? error.message}.`, {
      kind: 'notRemoved', details: { path: file, sent: true, ...(reference ? { reference } : {}) },
    });
  }
}

async function make(options, { environment, output, cwd, date, limit }) {
  const file = target(options.out, { environment, cwd, date });
  const files = await collectFiles({ environment, notes: options.notes, date });
  const bundle = zip(files, date);
  write(file, bundle);
  const result = { path: file, bytes: bundle.length, files: files.map(({ name }) => name), sent: false };
  if (!options.send) {
    output.say(`Wrote ${file}`);
    output.note('It is redacted; look through it before you pass it on.');
    return result;
  }
  const reference = await send(bundle, file, { environment, limit });
  output.say(reference ? `Sent. The reference is ${reference}.` : 'Sent. The answer named no reference.');
  if (options.cleanup) remove(file, reference);
  return { ...(reference ? { reference } : {}), ...result, sent: true, removed: Boolean(options.cleanup) };
}

/**
 * Makes the bundle, and sends it if asked to.
 * @param {string[]} args `--out=PATH`, `--notes=TEXT`, `--json`, `--send`, `--cleanup`
 * @param {{ environment?: NodeJS.ProcessEnv, stdout?: object, stderr?: object, cwd?: string, date?: Date,
 *   limit?: number, program?: string }} [around] `program` is the name in front of errors
 * @returns {Promise<number>} the exit code: 0, 1 for a failure, 2 for words that can't be read
 */
export async function runDiag(args, {
  environment = process.env, stdout = process.stdout, stderr = process.stderr, cwd = process.cwd(), date = new Date(),
  limit, program = 'ctl.js',
} = {}) {
  const output = new Output({ stdout, stderr, environment, json: args.includes('--json'), program });
  try {
    if (args.includes('--help')) {
      stdout.write(help);
      return 0;
    }
    output.result(await make(parse(args), { environment, output, cwd, date, limit }));
    return 0;
  } catch (error) {
    const known = error instanceof CommandFailure;
    const failure = known ? error : new CommandFailure(`No bundle was made: ${error.message}`);
    output.failure(failure);
    return failure.exit;
  }
}
