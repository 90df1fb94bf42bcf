// What the service said in its log: the only place where it tells why it didn't do something.

import { tailOf } from '../diag/logs.js';
import { serviceLogPath } from '../places.js';

const tailBytes = 64 * 1024;
const warn = 40;

function recordFrom(line) {
  try {
    return JSON.parse(line);
  } catch {
    return undefined;
  }
}

/**
 * The newest warning that `pattern` fits and that isn't older than `since`; nothing where there is none or no log.
 * @returns {string | undefined}
 */
export function lastWarning(environment, pattern, since) {
  let lines;
  try {
    lines = tailOf(serviceLogPath(environment), tailBytes).text.split('\n');
  } catch {
    return undefined;
  }
  const records = lines.map(recordFrom).filter((record) => record?.level >= warn && pattern.test(record.msg)
    && Date.parse(record.time) >= since);
  return records.at(-1)?.msg;
}
