// A home with a running bridge and, where a test wants one, somebody at the service's socket who notes what comes.

import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';

import { startBridge } from '../lib/bridge/bridge.js';
import { mintCode } from '../lib/bridge/pairCode.js';
import { silentLog } from '../lib/log.js';
import { replaceFile } from '../lib/wholeFile.js';
import { temporaryHome, until } from './home.js';

export const words =
  'I moved the retry loop into its own function, so the tailer no longer blocks while the worker ' +
  'restarts. All forty tests pass, and the two flaky ones now wait for a condition instead of sleeping.';

/** The snapshot as the service writes it. */
export function snapshot(changes = {}) {
  return {
    schema: 2,
    state: 'playing',
    messageId: 'm-1',
    elapsed: 4,
    duration: 11,
    sessionId: 's-1',
    live: { messageIndex: 12, totalMessages: 12 },
    cursor: { kind: 'live', messageIndex: 0, totalKnown: 12, chunkIndex: 1, totalChunks: 5 },
    newLiveCount: 0,
    snippet: words,
    synthesizing: false,
    rev: 1,
    ...changes,
  };
}

export class BridgeHome {
  constructor(context, home) {
    this.context = context;
    Object.assign(this, home);
    this.environment = { ...home.environment };
  }

  /** @param {import('node:test').TestContext} context */
  static async start(context, { clock, log = silentLog, state = {}, port = 0 } = {}) {
    const home = new BridgeHome(context, temporaryHome(context));
    home.environment.SONRA_BRIDGE_PORT = String(port);
    home.write('state.json', { sessions: [], ...state });
    home.clock = clock;
    home.bridge = await startBridge({ environment: home.environment, log, clock });
    context.after(() => home.bridge.close());
    return home;
  }

  get origin() {
    return `http://127.0.0.1:${this.bridge.port}`;
  }

  /** Replaces a shared document, as its writers do. */
  write(name, value) {
    replaceFile(this.inShared(name), typeof value === 'string' ? value : JSON.stringify(value), {
      temporary: this.inShared(`${name}.test`),
    });
  }

  read(name) {
    return JSON.parse(fs.readFileSync(this.inShared(name), 'utf8'));
  }

  /** Somebody at the service's socket. @returns {Promise<object[]>} the commands, as they come */
  async listen() {
    const commands = [];
    const sockets = new Set();
    this.service = net
      .createServer((socket) => {
        let text = '';
        sockets.add(socket);
        socket.on('error', () => {});
        socket.on('data', (bytes) => {
          text += bytes;
        });
        socket.on('close', () => {
          sockets.delete(socket);
          for (const line of text.split('\n').filter(Boolean)) {
            commands.push(JSON.parse(line));
            this.onCommand?.(JSON.parse(line));
          }
        });
      })
      .listen(this.inShared('service.sock'));
    await once(this.service, 'listening');
    this.stopService = () =>
      new Promise((resolve) => {
        for (const socket of sockets) socket.destroy();
        if (this.service.listening) this.service.close(resolve);
        else resolve();
      });
    this.context.after(() => this.stopService());
    return commands;
  }

  /** By the clock of the bridge, which may stand still. */
  mint(options) {
    return mintCode({ environment: this.environment, now: this.clock?.now(), ...options });
  }

  post(path, body, headers = {}) {
    return fetch(this.origin + path, {
      method: 'POST',
      headers: { 'Content-Type': 'application/json', ...headers },
      body: JSON.stringify(body),
    });
  }

  /** @returns {Promise<{ Authorization: string }>} the header of a newly paired device */
  async pair(label = 'Test phone') {
    const { code } = this.mint();
    // Only one is let in each second; where the clock is a test's, that is no time at all.
    this.clock?.step?.(1000);
    const attempt = async () => {
      const answer = await this.post('/api/pair', { code, label });
      return answer.status !== 429 && answer;
    };
    const answer = await until(attempt, { what: 'the turn to pair' });
    if (answer.status !== 200) throw new Error(`pairing failed: ${answer.status} ${await answer.text()}`);
    return { Authorization: `Bearer ${(await answer.json()).token}` };
  }

  command(headers, cmd, args) {
    return this.post('/api/command', { cmd, args }, headers);
  }
}
