// A detached process keeps nothing of the one that started it.

import fs from 'node:fs';

const closeOnExec = 0o2000000;

function isInherited(fd) {
  try {
    const flags = fs.readFileSync(`/proc/self/fdinfo/${fd}`, 'utf8').match(/^flags:\s+([0-7]+)$/m)?.[1];
    return flags !== undefined && (Number.parseInt(flags, 8) & closeOnExec) === 0;
  } catch {
    // The descriptor with which the folder was read.
    return false;
  }
}

/**
 * Closes descriptors that came with the process, beyond the three standard ones. Node.js opens each of its own so that
 * it ends at an exec, and marks only the lowest inherited ones: a terminal's or a lock's may have any number.
 */
export function closeInherited() {
  for (const name of fs.readdirSync('/proc/self/fd')) {
    const fd = Number(name);
    if (fd > 2 && isInherited(fd)) fs.closeSync(fd);
  }
}
