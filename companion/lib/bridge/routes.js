// What there is to ask for: a fixed table, so that no path of a request ever becomes a path of a file.

import { ServiceNotRunning } from '../serviceSocket.js';
import { BadCommand, runCommand } from './commands.js';
import { senderOf } from './connections.js';
import { bearerOf, reasonToRefuse } from './guard.js';
import { answer, answerBroken, answerError, answerJson, HttpError, isUnmet, readJson, securityHeaders } from './http.js';
import { RateLimit } from './rateLimit.js';
import { Turns } from './turns.js';

const urlLimit = 2048;

const refusal = {
  tooSoon: () => new HttpError(429, 'too-soon', 'One try a second. Wait a moment.', { 'Retry-After': '1' }),
  malformed: () => new HttpError(400, 'bad-code', 'A code has six digits.'),
  refused: () => new HttpError(403, 'wrong-code', 'That code is wrong, or its time is up.'),
};

const notPaired = () => new HttpError(401, 'not-paired', 'This device is not paired.', { 'WWW-Authenticate': 'Bearer' });

/** A device that is told it isn't paired forgets its token, so that must be known and not supposed. */
const unknown = () =>
  new HttpError(503, 'devices-unreadable', 'Your computer cannot read which devices are paired.', { 'Retry-After': '2' });

/** What a request that can't be understood is told, by Node.js's name for what is wrong with it. */
const broken = {
  HPE_HEADER_OVERFLOW: () => new HttpError(431, 'too-large', 'The headers are too large.'),
  HPE_CHUNK_EXTENSIONS_OVERFLOW: () => new HttpError(413, 'too-large', 'The request is too large.'),
  ERR_HTTP_REQUEST_TIMEOUT: () => new HttpError(408, 'too-slow', 'The request took too long.'),
};
const malformed = () => new HttpError(400, 'bad-request', 'This is no proper request.');

const tooMany = () => new HttpError(429, 'too-many', 'Too many requests. Wait a moment.', { 'Retry-After': '2' });

export class Routes {
  #parts;
  #table;
  #perAddress;
  #perDevice;
  #perGuesser;
  #turns = new Turns();

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

  /** A request that can't be understood, so that there is no other answer; the connection ends. */
  handleBroken = (error, socket) => {
    // An answer that has begun mustn't go on with another one.
    if (!socket.writable || this.#parts.connections.isAnswering(socket)) {
      socket.destroy();
      return;
    }
    const mayAsk = this.#perAddress.take(senderOf(socket));
    answerBroken(socket, mayAsk ? (broken[error.code] ?? malformed)() : tooMany());
  };

  async #route(request, response) {
    // First of all: who is paired shares no limit with the strangers behind his address.
    const device = this.#parts.tokens.deviceOf(bearerOf(request));
    const mayAsk = device ? this.#perDevice.take(device) : this.#perAddress.take(senderOf(request.socket));
    if (!mayAsk) throw tooMany();
    if (request.url.length > urlLimit) throw new HttpError(414, 'too-long', 'The address is too long.');
    // The page's address may carry what a home screen or a messenger hangs on; the rest is exact.
    const path = request.url.startsWith('/?') ? '/' : request.url;
    const refused = reasonToRefuse(request, { isPage: path === '/' });
    if (refused) throw new HttpError(403, 'not-from-here', refused);
    if (isUnmet(request)) throw new HttpError(417, 'unmet', 'That cannot be expected here.');
    const route = this.#table.get(path);
    if (!route) throw new HttpError(404, 'not-found', 'There is nothing here.');
    const handler = route.methods[request.method === 'HEAD' ? 'GET' : request.method];
    if (!handler) return this.#otherMethod(request, response, route);
    if (route.forDevices) this.#letIn(request, device);
    return handler.call(this, request, response, device);
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

  /** Notes that `device` is there. Who guesses is soon told to wait, who shares his address is not. */
  #letIn(request, device) {
    if (!device) {
      if (!this.#perGuesser.take(senderOf(request.socket))) throw tooMany();
      throw this.#parts.tokens.isReadable ? notPaired() : unknown();
    }
    this.#parts.connections.assign(request.socket, device);
    void this.#parts.tokens.touch(device);
  }

  #page(request, response) {
    const { html, policy } = this.#parts.page;
    answer(request, response, 200, html, {
      'Content-Type': 'text/html; charset=utf-8',
      'Content-Security-Policy': policy,
    });
  }

  async #pair(request, response) {
    const body = await readJson(request, response);
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

  async #command(request, response, device) {
    const body = readJson(request, response);
    // It is looked at when its turn comes.
    body.catch(() => {});
    const insist = () => this.#insist(request.socket, device);
    const options = { environment: this.#parts.environment, insist };
    const cmd = await this.#turns.take(device, async () => runCommand(await body, options));
    this.#parts.log.debug('bridge passed a command', { cmd });
    answerJson(request, response, 200, { ok: true });
  }

  /** What had to wait isn't done for one who was removed meanwhile, nor for one who has given it up. */
  #insist(socket, device) {
    const { tokens } = this.#parts;
    if (!tokens.has(device)) throw tokens.isReadable ? notPaired() : unknown();
    if (socket.destroyed) throw new Error('the sender went away');
  }

  async #unpair(request, response, device) {
    // This connection isn't the device's until it asks again, so it lives to carry the answer.
    this.#parts.connections.assign(request.socket, undefined);
    await this.#parts.tokens.remove(device);
    answerJson(request, response, 200, { ok: true });
  }

  #fail(request, response, error) {
    if (error instanceof ServiceNotRunning) this.#parts.feed.poke({ service: true });
    if (response.headersSent || response.destroyed || request.socket.destroyed) {
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
