// Where programs of a name run now, as /proc tells it. Processes of other users don't tell.
//
// What a process is called is read synchronously, a few at a time: it lies in memory, and a look at each by way of the
// thread pool costs ten times as much. The command line lies in the process's own memory, which can't be read as long as
// a file system holds the process up; only those that may be meant are asked for it, and not waited for.

import fs from 'node:fs';
import { open } from 'node:fs/promises';
import path from 'node:path';
import { setImmediate as breathe } from 'node:timers/promises';

const atOnce = 20;
/** Enough for an interpreter, its options and a script. */
const longestCommand = 4096;
/** The kernel keeps no more of a name. */
const longestName = 15;

/** Options of Python whose value is the next word, alone or behind others that have none. */
const takesValue = /^-[bBdEhiIOPqRsSuvx]*[XW]$|^--check-hash-based-pycs$/;

/** True for `name` itself, and for an interpreter that runs a script or module of that name. */
export function runs(command, name) {
  const [program, ...args] = command.split('\0');
  if (path.basename(program) === name) return true;
  if (!/^python[\d.]*$/.test(path.basename(program))) return false;
  const script = args.find((arg, i) => !arg.startsWith('-') && !takesValue.test(args[i - 1] ?? ''));
  return script !== undefined && path.basename(script) === name;
}

async function commandOf(folder) {
  const file = await open(`${folder}/cmdline`);
  try {
    const { buffer, bytesRead } = await file.read(Buffer.alloc(longestCommand), 0, longestCommand, 0);
    return buffer.toString('utf8', 0, bytesRead);
  } finally {
    await file.close();
  }
}

/** What the kernel calls it: the program, or the script that it was started by. */
function mayRun(folder, name) {
  try {
    const called = fs.readFileSync(`${folder}/comm`, 'utf8').trimEnd();
    return called === name.slice(0, longestName) || called.startsWith('python');
  } catch {
    return false;
  }
}

async function folderOfProcess(folder, name, answers) {
  try {
    const command = await answers.demand(folder, () => commandOf(folder));
    return runs(command, name) ? fs.readlinkSync(`${folder}/cwd`) : undefined;
  } catch {
    // It has ended, belongs to somebody else, or is held up.
    return undefined;
  }
}

function processIds(proc) {
  try {
    return fs.readdirSync(proc).filter((name) => /^\d+$/.test(name));
  } catch {
    return [];
  }
}

/**
 * @param {string} name
 * @param {import('../answerLimit.js').AnswerLimit} answers
 * @returns {Promise<string[]>}
 */
export async function foldersOfRunning(name, answers, proc = '/proc') {
  const found = new Set();
  const ids = processIds(proc);
  for (let i = 0; i < ids.length; i += 1) {
    if (i % atOnce === 0) await breathe();
    const process = path.join(proc, ids[i]);
    const folder = mayRun(process, name) ? await folderOfProcess(process, name, answers) : undefined;
    if (folder) found.add(folder);
  }
  return [...found];
}
