// Where the bridge listens, as state.json has it: `bridgePort`, and `bridgeLan` for devices of the local network.

import { statePath } from '../places.js';
import { SharedDocument } from '../sharedDocument.js';
import { readIfPresent } from '../wholeFile.js';

export const defaultPort = 7842;

const isPort = (value) => Number.isInteger(value) && value > 0 && value < 65536;

/** SONRA_BRIDGE_PORT wins; 0 there is any free port. */
function wantedPort(environment, stored) {
  const text = environment.SONRA_BRIDGE_PORT ?? '';
  if (text === '0' || (/^\d+$/.test(text) && isPort(Number(text)))) return Number(text);
  return isPort(stored) ? stored : defaultPort;
}

/** The settings in the document, whose defaults hold where there is none; nothing while it can't be read. */
function storedSettings(environment) {
  try {
    const text = readIfPresent(statePath(environment));
    const state = text === undefined ? new SharedDocument() : SharedDocument.parse(text);
    return { port: state.get('bridgePort'), lan: state.get('bridgeLan') === true };
  } catch {
    return undefined;
  }
}

/**
 * Follows the settings. Somebody who writes the document in place lets it be unreadable for a moment, and that must not
 * move the bridge: what held before holds on.
 */
export class BridgeSettings {
  #environment;
  #stored = { port: undefined, lan: false };

  constructor(environment = process.env) {
    this.#environment = environment;
  }

  /** @returns {{ port: number, lan: boolean }} */
  read() {
    this.#stored = storedSettings(this.#environment) ?? this.#stored;
    return { port: wantedPort(this.#environment, this.#stored.port), lan: this.#stored.lan };
  }
}
