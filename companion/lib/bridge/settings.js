// Where the bridge listens, as state.json has it: `bridgePort`, and `bridgeLan` for devices of the local network.

import { statePath } from '../places.js';
import { SharedDocument } from '../sharedDocument.js';

export const defaultPort = 7842;

const isPort = (value) => Number.isInteger(value) && value > 0 && value < 65536;

/** SONRA_BRIDGE_PORT wins; 0 there is any free port. */
function wantedPort(environment, stored) {
  const text = environment.SONRA_BRIDGE_PORT ?? '';
  if (text === '0' || (/^\d+$/.test(text) && isPort(Number(text)))) return Number(text);
  return isPort(stored) ? stored : defaultPort;
}

/** @returns {{ port: number, lan: boolean }} */
export function bridgeSettings(environment = process.env) {
  const state = SharedDocument.read(statePath(environment));
  return { port: wantedPort(environment, state.get('bridgePort')), lan: state.get('bridgeLan') === true };
}
