// Answers and bodies: the headers that every answer carries, and a body that is read to a limit.

import { STATUS_CODES } from 'node:http';

export const bodyLimit = 64 * 1024;

const security = {
  'Cache-Control': 'no-store',
  'Content-Security-Policy': "default-src 'none'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'",
  'Cross-Origin-Resource-Policy': 'same-origin',
  'Permissions-Policy': 'camera=(), geolocation=(), microphone=()',
  'Referrer-Policy': 'no-referrer',
  'X-Content-Type-Options': 'nosniff',
  'X-Frame-Options': 'DENY',
};

/** An answer other than the one that was hoped for. */
export class HttpError extends Error {
  /** @param {number} status @param {string} code for programs @param {string} message for people */
  constructor(status, code, message, headers = {}) {
    super(message);
    this.name = 'HttpError';
    this.status = status;
    this.code = code;
    this.headers = headers;
  }
}

export const securityHeaders = (more = {}) => ({ ...security, ...more });

/** The same for a sender whose request can't be understood, and who gets no other one answered. */
export function answerBroken(socket, error) {
  const body = JSON.stringify({ error: error.code, message: error.message });
  const headers = securityHeaders({
    ...error.headers, 'Content-Type': 'application/json', 'Content-Length': body.length, Connection: 'close',
  });
  const lines = Object.entries(headers).map(([name, value]) => `${name}: ${value}\r\n`);
  socket.write(`HTTP/1.1 ${error.status} ${STATUS_CODES[error.status]}\r\n${lines.join('')}\r\n${body}`);
  socket.destroySoon();
}

const hasBody = ({ headers }) => Number(headers['content-length']) > 0 || headers['transfer-encoding'] !== undefined;

/** Ends `response` with `body`; a HEAD is told its length alone, which Node.js sees to. */
export function answer(request, response, status, body, headers = {}) {
  const bytes = Buffer.from(body);
  // What is left of a request that was refused isn't read, so the connection can't serve another.
  const closing = request.complete || !hasBody(request) ? {} : { Connection: 'close' };
  response.writeHead(status, securityHeaders({ ...headers, ...closing, 'Content-Length': bytes.length }));
  response.end(bytes);
}

export function answerJson(request, response, status, value, headers = {}) {
  answer(request, response, status, JSON.stringify(value), { ...headers, 'Content-Type': 'application/json' });
}

export function answerError(request, response, error) {
  answerJson(request, response, error.status, { error: error.code, message: error.message }, error.headers);
}

/** Whether the sender waits for a word before it sends the body. Before HTTP/1.1 nobody knew that word. */
const waitsForWord = ({ httpVersion, headers }) => httpVersion === '1.1' && /(^|\W)100-continue($|\W)/i.test(headers.expect);

/** True for a wish that nobody here can fulfil. */
export function isUnmet(request) {
  return request.httpVersion === '1.1' && request.headers.expect !== undefined && !waitsForWord(request);
}

function readBody(request, response) {
  return new Promise((resolve, reject) => {
    const tooLarge = () => reject(new HttpError(413, 'too-large', 'The request is too large.'));
    if (Number(request.headers['content-length']) > bodyLimit) return tooLarge();
    if (waitsForWord(request)) response.writeContinue();
    const pieces = [];
    let size = 0;
    const take = (piece) => {
      size += piece.length;
      pieces.push(piece);
      if (size <= bodyLimit) return;
      request.off('data', take).pause();
      tooLarge();
    };
    request.on('data', take);
    request.once('end', () => resolve(Buffer.concat(pieces)));
    request.once('error', reject);
    request.once('close', () => reject(new Error('the sender went away')));
    return undefined;
  });
}

/** The JSON value that the request carries. A form of another page can't send this type. */
export async function readJson(request, response) {
  if (!/^application\/json *(;|$)/i.test(request.headers['content-type'] ?? '')) {
    throw new HttpError(415, 'not-json', 'The request must be application/json.');
  }
  const body = await readBody(request, response);
  try {
    return JSON.parse(new TextDecoder('utf-8', { fatal: true }).decode(body));
  } catch {
    throw new HttpError(400, 'bad-json', 'The request is not JSON.');
  }
}
