// What the service says in its log: the only place where it tells what became of a command, and why.

import { serviceLogPath } from '../places.js';
import { tailOf } from '../tail.js';

const tailBytes = 64 * 1024;
const warn = 40;

function recordFrom(line) {
  try {
    return JSON.parse(line);
  } catch {
    return undefined;
  }
}

/** The records that aren't older than `since`, the newest last; none where there is no log. */
function recordsSince(environment, since) {
  let lines;
  try {
    lines = tailOf(serviceLogPath(environment), tailBytes).text.split('\n');
  } catch {
    return [];
  }
  return lines.map(recordFrom).filter((record) => Date.parse(record?.time) >= since);
}

/**
 * The newest warning on an attach of this session; nothing where there is none or no log.
 * @returns {string | undefined}
 */
export function attachWarning(environment, id, since) {
  // It tells of an id as much as it is known by.
  const isOfIt = ({ input }) => typeof input?.id !== 'string' || id.startsWith(input.id);
  const isOne = (record) => record.level >= warn && /^attach: /.test(record.msg) && isOfIt(record);
  return recordsSince(environment, since).filter(isOne).at(-1)?.msg;
}

/**
 * True if the service says that it is done with the command that was sent with this name, whatever came of it; a warning
 * stands before that. It says so only where it tells all that it does, which it needn't.
 */
export function isCarriedOut(environment, requestId, since) {
  return recordsSince(environment, since).some((record) => record.msg === 'ipc dispatched' && record.requestId === requestId);
}
