// What there is to ask for: a fixed table, so that no path of a request ever becomes a path of a file.

import { ServiceNotRunning } from '../serviceSocket.js';
import { BadCommand, runCommand } from './commands.js';
import { senderOf } from './connections.js';
import { bearerOf, reasonToRefuse } from './guard.js';
import { answer, answerError, answerJson, HttpError, readJson, securityHeaders } from './http.js';
import { RateLimit } from './rateLimit.js';

const urlLimit = 2048;

const refusal = {
  tooSoon: () => new HttpError(429, 'too-soon', 'One try a second. Wait a moment.', { 'Retry-After': '1' }),
  malformed: () => new HttpError(400, 'bad-code', 'A code has six digits.'),
  refused: () => new HttpError(403, 'wrong-code', 'That code is wrong, or its time is up.'),
};

const tooMany = () => new HttpError(429, 'too-many', 'Too many requests. Wait a moment.', { 'Retry-After': '2' });

export class Routes {
  #parts;
  #table;
  #perAddress;
  #perDevice;
  #perGuesser;

  /**
   * @param {{ environment, log, clock, page: { html: string, policy: string }, pairing, tokens, feed, streams,
   *   connections }} parts
   */
  constructor(parts) {
    this.#parts = parts;
    const { clock } = parts;
    this.#perAddress = new RateLimit({ perSecond: 30, burst: 90, clock });
    this.#perDevice = new RateLimit({ perSecond: 15, burst: 45, clock });
    this.#perGuesser = new RateLimit({ perSecond: 1, burst: 10, clock });
    this.#table = new Map([
      ['/', { methods: { GET: this.#page } }],
      ['/api/pair', { methods: { POST: this.#pair } }],
      ['/api/now-playing', { methods: { GET: this.#nowPlaying }, forDevices: true }],
      ['/api/command', { methods: { POST: this.#command }, forDevices: true }],
      ['/api/unpair', { methods: { POST: this.#unpair }, forDevices: true }],
    ]);
  }

  /** @type {import('node:http').RequestListener} */
  handle = async (request, response) => {
    response.on('error', () => response.destroy());
    this.#parts.connections.begin(request.socket, response);
    if (request.socket.destroyed) return;
    try {
      await this.#route(request, response);
    } catch (error) {
      this.#fail(request, response, error);
    }
  };

  async #route(request, response) {
    if (!this.#perAddress.take(senderOf(request.socket))) throw tooMany();
    if (request.url.length > urlLimit) throw new HttpError(414, 'too-long', 'The address is too long.');
    // The page's address may carry what a home screen or a messenger hangs on; the rest is exact.
    const path = request.url.startsWith('/?') ? '/' : request.url;
    const refused = reasonToRefuse(request, { isPage: path === '/' });
    if (refused) throw new HttpError(403, 'not-from-here', refused);
    const route = this.#table.get(path);
    if (!route) throw new HttpError(404, 'not-found', 'There is nothing here.');
    const handler = route.methods[request.method === 'HEAD' ? 'GET' : request.method];
    if (!handler) return this.#otherMethod(request, response, route);
    return handler.call(this, request, response, route.forDevices ? this.#deviceOf(request) : undefined);
  }

  #otherMethod(request, response, route) {
    const methods = Object.keys(route.methods).flatMap((name) => (name === 'GET' ? ['GET', 'HEAD'] : [name]));
    const allow = [...methods, 'OPTIONS'].join(', ');
    if (request.method === 'OPTIONS') {
      response.writeHead(204, securityHeaders({ Allow: allow }));
      response.end();
      return;
    }
    throw new HttpError(405, 'bad-method', 'That cannot be done here.', { Allow: allow });
  }

  /** The device whose token the request carries. Who guesses is soon told to wait, who shares his address is not. */
  #deviceOf(request) {
    const device = this.#parts.tokens.deviceOf(bearerOf(request));
    if (!device) {
      if (!this.#perGuesser.take(senderOf(request.socket))) throw tooMany();
      throw new HttpError(401, 'not-paired', 'This device is not paired.', { 'WWW-Authenticate': 'Bearer' });
    }
    if (!this.#perDevice.take(device)) throw tooMany();
    this.#parts.connections.assign(request.socket, device);
    void this.#parts.tokens.touch(device);
    return device;
  }

  #page(request, response) {
    const { html, policy } = this.#parts.page;
    answer(request, response, 200, html, {
      'Content-Type': 'text/html; charset=utf-8',
      'Content-Security-Policy': policy,
    });
  }

  async #pair(request, response) {
    const body = await readJson(request);
    const result = await this.#parts.pairing.attempt(body?.code, body?.label);
    if (result.outcome !== 'paired') throw refusal[result.outcome]();
    answerJson(request, response, 200, { token: result.token, label: result.label });
  }

  #nowPlaying(request, response, device) {
    if (!this.#parts.streams.hasRoom(device)) throw tooMany();
    if (request.method === 'HEAD') {
      answer(request, response, 200, '', { 'Content-Type': 'text/event-stream; charset=utf-8' });
      return;
    }
    this.#parts.connections.untime(request.socket, response);
    this.#parts.streams.open(device, response, securityHeaders());
  }

  async #command(request, response) {
    const cmd = await runCommand(await readJson(request), this.#parts.environment);
    this.#parts.log.debug('bridge passed a command', { cmd });
    answerJson(request, response, 200, { ok: true });
  }

  async #unpair(request, response, device) {
    // This connection isn't the device's any more, so it lives to carry the answer.
    this.#parts.connections.assign(request.socket, undefined);
    await this.#parts.tokens.remove(device);
    answerJson(request, response, 200, { ok: true });
  }

  #fail(request, response, error) {
    if (error instanceof ServiceNotRunning) this.#parts.feed.poke({ service: true });
    if (response.headersSent || response.destroyed) {
      response.destroy();
      return;
    }
    answerError(request, response, this.#toHttp(error));
  }

  #toHttp(error) {
    if (error instanceof HttpError) return error;
    if (error instanceof BadCommand) return new HttpError(400, 'bad-command', error.message);
    if (error instanceof ServiceNotRunning) return new HttpError(503, 'service-not-running', error.message);
    this.#parts.log.error('bridge request failed', error);
    return new HttpError(500, 'failed', 'That did not work. The log on the computer says why.');
  }
}
