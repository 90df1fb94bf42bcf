// The devices that are paired, as the service counts them in bridge-tokens.json. Read without the lock, as every reader
// does; a file that can't be read holds none.

import { tokensPath } from './places.js';
import { SharedDocument } from './sharedDocument.js';

const isDevice = (row) =>
  typeof row?.label === 'string' && typeof row.token === 'string' && typeof row.createdAt === 'number';

/** @returns {{ label: string, token: string, createdAt: number }[]} in the order in which they were paired */
export function pairedDevices(environment = process.env) {
  return SharedDocument.read(tokensPath(environment)).list('tokens').filter(isDevice);
}
