// Where programs of a name run now, as /proc tells it. Processes of other users don't tell.

import { readdir, readFile, readlink } from 'node:fs/promises';
import path from 'node:path';

/** True for `name` itself, and for an interpreter that runs a script or module of that name. */
export function runs(commandLine, name) {
  const [program, ...args] = commandLine.split('\0');
  if (path.basename(program) === name) return true;
  if (!/^python[\d.]*$/.test(path.basename(program))) return false;
  const script = args.find((arg) => !arg.startsWith('-'));
  return script !== undefined && path.basename(script) === name;
}

/** @returns {Promise<string[]>} */
export async function foldersOfRunning(name, proc = '/proc') {
  const found = new Set();
  for (const pid of await readdir(proc).catch(() => [])) {
    if (!/^\d+$/.test(pid)) continue;
    try {
      const commandLine = await readFile(path.join(proc, pid, 'cmdline'), 'utf8');
      if (runs(commandLine, name)) found.add(await readlink(path.join(proc, pid, 'cwd')));
    } catch {
      // It has ended, or belongs to somebody else.
    }
  }
  return [...found];
}
