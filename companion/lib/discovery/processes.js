// Where programs of a name run now, as /proc tells it. Processes of other users don't tell.
//
// Read synchronously, a few at a time: these files lie in memory, and a look at each by way of the thread pool costs
// ten times as much.

import fs from 'node:fs';
import path from 'node:path';
import { setImmediate as breathe } from 'node:timers/promises';

const atOnce = 20;
/** Enough for an interpreter, its options and a script. */
const commandLine = Buffer.alloc(4096);

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

function commandOf(folder) {
  const fd = fs.openSync(`${folder}/cmdline`, fs.constants.O_RDONLY | fs.constants.O_NONBLOCK);
  try {
    return commandLine.toString('utf8', 0, fs.readSync(fd, commandLine, 0, commandLine.length, 0));
  } finally {
    fs.closeSync(fd);
  }
}

function folderOfProcess(folder, name) {
  try {
    return runs(commandOf(folder), name) ? fs.readlinkSync(`${folder}/cwd`) : undefined;
  } catch {
    // It has ended, or belongs to somebody else.
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

/** @returns {Promise<string[]>} */
export async function foldersOfRunning(name, proc = '/proc') {
  const found = new Set();
  const ids = processIds(proc);
  for (let i = 0; i < ids.length; i += 1) {
    if (i % atOnce === 0) await breathe();
    const folder = folderOfProcess(path.join(proc, ids[i]), name);
    if (folder) found.add(folder);
  }
  return [...found];
}
