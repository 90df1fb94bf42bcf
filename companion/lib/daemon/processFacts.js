// What /proc tells of a process of the same user. Every function gives nothing where the process has gone.

import fs from 'node:fs';
import path from 'node:path';

function read(file) {
  try {
    return fs.readFileSync(file, 'utf8');
  } catch {
    return undefined;
  }
}

function kilobytes(text, name) {
  const found = text?.match(new RegExp(`^${name}:\\s+(\\d+) kB$`, 'm'));
  return found ? Number(found[1]) * 1024 : undefined;
}

/** Resident memory in bytes, and the process's share of it. */
export function memoryOf(pid) {
  const summary = read(`/proc/${pid}/smaps_rollup`);
  return { rss: kilobytes(read(`/proc/${pid}/status`), 'VmRSS'), pss: kilobytes(summary, 'Pss') };
}

/** The file's path without links in its folders. */
function resolved(file) {
  try {
    return path.join(fs.realpathSync(path.dirname(file)), path.basename(file));
  } catch {
    return file;
  }
}

/**
 * The kernel's numbers of all sockets bound to `file`, the listening one and those that it has accepted. The kernel
 * knows the path as it was given by whoever bound it.
 */
function socketsAt(file) {
  const own = resolved(file);
  const name = path.basename(file);
  const lines = (read('/proc/net/unix') ?? '').split('\n').filter((line) => line.endsWith(`/${name}`));
  const bound = lines.map((line) => /^\S+ \S+ \S+ \S+ \S+ \S+ +(\d+) (.*)$/.exec(line)).filter(Boolean);
  return new Set(bound.filter(([, , at]) => resolved(at) === own).map(([, number]) => `socket:[${number}]`));
}

/** True if the process holds the socket at `file`, which no other can that was merely given the same id later. */
export function holdsSocket(pid, file) {
  const sockets = socketsAt(file);
  try {
    const folder = `/proc/${pid}/fd`;
    return fs.readdirSync(folder).some((fd) => sockets.has(fs.readlinkSync(`${folder}/${fd}`)));
  } catch {
    return false;
  }
}
