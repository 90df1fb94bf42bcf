// The devices that are paired, as the service counts them in bridge-tokens.json. Read without the lock, as every reader
// does. A file that can't be read says nothing about who is paired, which is another thing than nobody.

import { tokensPath } from './places.js';
import { SharedDocument } from './sharedDocument.js';
import { readIfPresent } from './wholeFile.js';

const isDevice = (row) =>
  typeof row?.label === 'string' && typeof row.token === 'string' && typeof row.createdAt === 'number';

/** Every row, whatever it holds; none where there is no file or an empty one. Throws where there is one that can't be read. */
export function tokenRows(environment) {
  const text = readIfPresent(tokensPath(environment)) ?? '';
  return text.trim() === '' ? [] : SharedDocument.parse(text).list('tokens');
}

/**
 * @returns {{ label: string, token: string, createdAt: number }[] | undefined} in the order in which they were paired;
 *   nothing where that isn't known
 */
export function pairedDevices(environment = process.env) {
  try {
    return tokenRows(environment).filter(isDevice);
  } catch {
    return undefined;
  }
}
