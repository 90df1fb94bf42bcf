// The door: an HTTP server at the wanted address and port. When these change it opens the new one and leaves the
// connections of the old one alone, but for those that may no longer be. A port that is taken is asked for again, at
// growing intervals, and the daemon lives on.

import http from 'node:http';

const loopback = '127.0.0.1';
const firstRetry = 1000;
const lastRetry = 60_000;

const serverOptions = {
  connectionsCheckingInterval: 1000,
  headersTimeout: 5000,
  requestTimeout: 10_000,
  keepAliveTimeout: 5000,
  maxHeaderSize: 16 * 1024,
};

function listen(server, host, port) {
  return new Promise((resolve, reject) => {
    server.once('error', reject);
    server.listen({ host, port, backlog: 32 }, () => {
      server.off('error', reject);
      resolve();
    });
  });
}

export class Listener {
  #routes;
  #connections;
  #log;
  #clock;
  #wanted;
  #server;
  #retry;
  #work = Promise.resolve();

  /**
   * @param {{ routes: import('./routes.js').Routes, connections: import('./connections.js').Connections, log,
   *   clock: import('../clock.js').Clock }} options
   */
  constructor({ routes, connections, log, clock }) {
    this.#routes = routes;
    this.#connections = connections;
    this.#log = log;
    this.#clock = clock;
  }

  /** The port in use; nothing while there is none. */
  get port() {
    return this.#server?.address()?.port;
  }

  /** Whether the local network is let in; nothing while nobody is. */
  get lan() {
    const address = this.#server?.address()?.address;
    return address === undefined ? undefined : address !== loopback;
  }

  /**
   * Resolves after the first try, whether it worked or not.
   * @param {{ port: number, lan: boolean }} wanted port 0 is any free one
   */
  apply(wanted) {
    if (this.#wanted?.port === wanted.port && this.#wanted?.lan === wanted.lan) return this.#work;
    const kept = this.#wanted?.port === wanted.port ? this.port : undefined;
    this.#wanted = wanted;
    this.#clock.clearTimeout(this.#retry);
    this.#work = this.#work.then(() => this.#open(wanted, kept ?? wanted.port, firstRetry));
    return this.#work;
  }

  async close() {
    this.#wanted = undefined;
    this.#clock.clearTimeout(this.#retry);
    await this.#work;
    this.#server?.close();
    this.#server = undefined;
    this.#connections.endAll();
  }

  async #open(wanted, port, delay) {
    if (this.#wanted !== wanted) return;
    this.#leave(wanted);
    const server = this.#makeServer();
    try {
      await this.#listen(server, wanted.lan, port);
      server.on('error', (error) => this.#log.warn('bridge server error', { reason: error.message }));
      this.#server = server;
      this.#log.info('bridge listening', { port: this.port, lan: wanted.lan });
    } catch (error) {
      this.#log.warn('bridge cannot listen', { port, lan: wanted.lan, code: error.code, retryMs: delay });
      const again = () => { this.#work = this.#open(wanted, port, Math.min(delay * 2, lastRetry)); };
      if (this.#wanted === wanted) this.#retry = this.#clock.setTimeout(again, delay);
    }
  }

  /** Node.js would answer by itself who expects something, and who can't be understood, without a look at who he is. */
  #makeServer() {
    const server = http.createServer(serverOptions);
    for (const event of ['request', 'checkContinue', 'checkExpectation']) server.on(event, this.#routes.handle);
    server.on('clientError', this.#routes.handleBroken);
    server.on('connection', (socket) => this.#connections.admit(socket));
    return server;
  }

  async #listen(server, lan, port) {
    if (!lan) return listen(server, loopback, port);
    try {
      return await listen(server, '::', port);
    } catch (error) {
      if (error.code !== 'EAFNOSUPPORT' && error.code !== 'EADDRNOTAVAIL') throw error;
      return listen(server, '0.0.0.0', port);
    }
  }

  /** Frees the port. Devices that are served go on; nobody times the rest any more, so it ends. */
  #leave(wanted) {
    this.#server?.close();
    this.#server = undefined;
    this.#connections.endUnassigned();
    if (!wanted.lan) this.#connections.endRemote();
  }
}
