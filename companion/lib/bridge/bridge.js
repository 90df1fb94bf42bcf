// The phone bridge: an HTTP server in the daemon that lets paired devices see what is spoken and steer it. It puts its
// parts together and follows the shared folder; it never ends the daemon, whatever fails.

import path from 'node:path';

import { systemClock } from '../clock.js';
import { FolderWatch } from '../folderWatch.js';
import { nowPlayingPath, sharedDirectory, socketPath, statePath, tokensPath } from '../places.js';
import { makeFolderOf } from '../wholeFile.js';
import { Connections } from './connections.js';
import { Feed } from './feed.js';
import { Listener } from './listener.js';
import { buildPage } from './page.js';
import { Pairing } from './pairing.js';
import { Routes } from './routes.js';
import { BridgeSettings } from './settings.js';
import { Streams } from './streams.js';
import { TokenStore } from './tokens.js';

/** How often the folder is looked at even if the kernel is silent. */
const lookInterval = 15_000;

class Bridge {
  #environment;
  #log;
  #clock;
  #settings;
  #listener;
  #tokens;
  #feed;
  #streams;
  #watch;
  #look;

  constructor({ environment, log, clock }) {
    this.#environment = environment;
    this.#log = log;
    this.#clock = clock;
    this.#settings = new BridgeSettings(environment);
    const connections = new Connections({ clock });
    this.#feed = new Feed({ environment, clock });
    this.#streams = new Streams({ feed: this.#feed, clock, seen: (device) => void this.#tokens.touch(device) });
    this.#tokens = new TokenStore({ environment, log, clock, onRemoved: (device) => {
      this.#streams.endOf(device);
      connections.endOf(device);
    } });
    const pairing = new Pairing({ environment, log, clock, tokens: this.#tokens });
    const routes = new Routes({
      environment, log, clock, page: buildPage(), pairing, tokens: this.#tokens, feed: this.#feed,
      streams: this.#streams, connections,
    });
    this.#listener = new Listener({ routes, connections, log, clock });
    this.#watch = new FolderWatch(sharedDirectory(environment), undefined, (name) => this.#changed(name), clock);
  }

  get port() {
    return this.#listener.port;
  }

  get lan() {
    return this.#listener.lan;
  }

  async start() {
    this.#tokens.refresh();
    this.#lookAround();
    await this.#listener.apply(this.#settings.read());
  }

  async close() {
    this.#clock.clearTimeout(this.#look);
    this.#watch.stop();
    this.#streams.close();
    this.#feed.close();
    await this.#listener.close();
  }

  #lookAround() {
    this.#makeFolder();
    this.#watch.check();
    this.#changed('');
    this.#look = this.#clock.setTimeout(() => this.#lookAround(), lookInterval);
  }

  /** Where it can't be made it is looked for, until somebody else makes it. */
  #makeFolder() {
    try {
      makeFolderOf(statePath(this.#environment));
    } catch (error) {
      this.#log.debug('bridge could not make the shared folder', { reason: error.message });
    }
  }

  /** @param {string} name of a file in the shared folder; empty: any of them */
  #changed(name) {
    try {
      this.#follow((file) => name === '' || name === path.basename(file(this.#environment)));
    } catch (error) {
      this.#log.error('bridge could not look at the shared folder', error);
    }
  }

  /** @param {(file: (environment: NodeJS.ProcessEnv) => string) => boolean} isAbout */
  #follow(isAbout) {
    if (isAbout(tokensPath)) this.#tokens.refresh();
    if (isAbout(statePath)) void this.#listener.apply(this.#settings.read());
    if (isAbout(socketPath)) this.#feed.poke({ service: true });
    else if (isAbout(nowPlayingPath) || isAbout(statePath)) this.#feed.poke();
  }
}

/**
 * Resolves when the bridge listens, or has failed to for the first time: it goes on trying.
 * @param {{ environment?: NodeJS.ProcessEnv, log, clock?: import('../clock.js').Clock }} options
 * @returns {Promise<{ readonly port: number | undefined, readonly lan: boolean | undefined, close(): Promise<void> }>}
 *   `port`, and `lan`, which is true where the local network reaches it, are undefined while the bridge doesn't listen
 */
export async function startBridge({ environment = process.env, log, clock = systemClock }) {
  const bridge = new Bridge({ environment, log, clock });
  await bridge.start();
  return bridge;
}

export { lanAddresses } from './addresses.js';
