// What /proc tells of a process of the same user. Every function gives nothing where the process has gone.

import fs from 'node:fs';

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

/** The kernel's numbers of all sockets bound to `path`, the listening one and those that it has accepted. */
function socketsAt(path) {
  const lines = (read('/proc/net/unix') ?? '').split('\n').filter((line) => line.endsWith(` ${path}`));
  return new Set(lines.map((line) => `socket:[${line.trim().split(/\s+/)[6]}]`));
}

/** True if the process holds the socket at `path`, which no other can that was merely given the same id later. */
export function holdsSocket(pid, path) {
  const sockets = socketsAt(path);
  try {
    const folder = `/proc/${pid}/fd`;
    return fs.readdirSync(folder).some((fd) => sockets.has(fs.readlinkSync(`${folder}/${fd}`)));
  } catch {
    return false;
  }
}
