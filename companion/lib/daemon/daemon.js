// The daemon's parts and their life: the search for sessions, the bridge to the phone, the watch for the service. They
// are loaded when the daemon starts and know nothing of each other; one that fails leaves the others alone and is tried
// again, with growing patience.

import { systemClock } from '../clock.js';

const firstRetry = 5000;
const longestRetry = 5 * 60 * 1000;

/**
 * @typedef {{ environment: NodeJS.ProcessEnv, log: import('../log.js').Log, clock: import('../clock.js').Clock }} Surroundings
 * @typedef {(surroundings: Surroundings) => Promise<{ stop(): unknown, port?: number, lan?: boolean }>} Part starts and gives its end
 */

/** @type {{ [name: string]: Part }} */
export const ownParts = {
  async discovery(surroundings) {
    const { Discovery } = await import('../discovery/discovery.js');
    const discovery = new Discovery(surroundings);
    await discovery.start();
    return { stop: () => discovery.stop() };
  },
  async bridge(surroundings) {
    const { startBridge } = await import('../bridge/bridge.js');
    const bridge = await startBridge(surroundings);
    return { stop: () => bridge.close(), get port() { return bridge.port; }, get lan() { return bridge.lan; } };
  },
  async serviceWatch(surroundings) {
    const { ServiceWatch } = await import('./serviceWatch.js');
    const watch = new ServiceWatch(surroundings);
    watch.start();
    return { stop: () => watch.stop() };
  },
};

export class Daemon {
  #surroundings;
  #log;
  #clock;
  #parts;
  #stopping = false;

  /** @param {Partial<Surroundings> & { parts?: { [name: string]: Part } }} options */
  constructor({ environment = process.env, log, clock = systemClock, parts = ownParts }) {
    this.#surroundings = { environment, log, clock };
    this.#log = log.child({ class: 'Daemon' });
    this.#clock = clock;
    this.#parts = Object.entries(parts).map(([name, begin]) => ({ name, begin, state: 'starting', delay: firstRetry }));
  }

  /** Resolves when each part has started or failed to. */
  async start() {
    await Promise.all(this.#parts.map((part) => this.#begin(part)));
  }

  /** Resolves when all parts have ended. */
  async stop() {
    this.#stopping = true;
    await Promise.all(this.#parts.map((part) => this.#end(part)));
  }

  /** What the daemon says of itself. */
  report() {
    const { port, lan } = this.#parts.find(({ name }) => name === 'bridge')?.running ?? {};
    return {
      stopping: this.#stopping,
      bridgePort: port,
      ...(lan === undefined ? {} : { bridgeLan: lan }),
      parts: Object.fromEntries(this.#parts.map(({ name, state }) => [name, state])),
    };
  }

  async #begin(part) {
    part.starting = this.#tryToBegin(part);
    await part.starting;
  }

  async #tryToBegin(part) {
    try {
      part.running = await part.begin(this.#surroundings);
      part.state = 'running';
      this.#log.info('part started', { input: { part: part.name } });
    } catch (error) {
      part.state = 'failed';
      this.#log.error('part failed to start', error, { input: { part: part.name, retryMs: part.delay } });
      this.#beginLater(part);
    }
  }

  #beginLater(part) {
    part.retry = this.#clock.setTimeout(() => this.#begin(part), part.delay);
    part.delay = Math.min(part.delay * 2, longestRetry);
  }

  async #end(part) {
    this.#clock.clearTimeout(part.retry);
    await part.starting;
    // It may have failed only now.
    this.#clock.clearTimeout(part.retry);
    try {
      await part.running?.stop();
    } catch (error) {
      this.#log.error('part failed to end', error, { input: { part: part.name } });
    }
  }
}
