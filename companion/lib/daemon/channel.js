// The daemon's own socket, `daemon.sock`: one question a connection, one JSON line each way. The socket is also what
// makes the daemon the only one: the kernel stops answering for it the moment its process dies, however that happens,
// and neither a process id that is used again nor a file left behind can pretend to be it.

import fs from 'node:fs';
import net from 'node:net';

import { daemonSocketPath } from '../places.js';

const longestQuestion = 4096;
const answerLimit = 5000;

/** Somebody listens and says nothing. */
export class DaemonSilent extends Error {
  constructor() {
    super('The daemon does not answer.');
    this.name = 'DaemonSilent';
  }
}

/** What a connection fails with whose other end was there: its queue was full, or it ended meanwhile. */
const taken = new Set(['EAGAIN', 'ECONNRESET', 'EPIPE']);
const nobody = new Set(['ENOENT', 'ENOTDIR', 'ECONNREFUSED', 'ENOTSOCK']);

/**
 * Asks the daemon. Nothing where none listens, which is certain; fails with DaemonSilent where the question was taken
 * and no answer came within `limit` milliseconds: one that is busy, that hangs, or that died just now.
 * @param {'status' | 'stop'} question
 * @returns {Promise<object | undefined>}
 */
export function askDaemon(question, { environment = process.env, limit = 1000 } = {}) {
  return new Promise((resolve, reject) => {
    const socket = net.connect({ path: daemonSocketPath(environment) });
    let answer = '';
    socket.setEncoding('utf8');
    socket.setTimeout(limit, () => socket.destroy(new DaemonSilent()));
    socket.on('connect', () => socket.write(`${JSON.stringify({ ask: question })}\n`));
    socket.on('data', (text) => { answer += text; });
    socket.on('error', (error) => {
      if (nobody.has(error.code)) resolve(undefined);
      else reject(error instanceof DaemonSilent || !taken.has(error.code) ? error : new DaemonSilent());
    });
    socket.on('close', () => {
      const parsed = parse(answer);
      if (parsed) resolve(parsed);
      else reject(new DaemonSilent());
    });
  });
}

function parse(line) {
  try {
    const value = JSON.parse(line);
    return value !== null && typeof value === 'object' && !Array.isArray(value) ? value : undefined;
  } catch {
    return undefined;
  }
}

function serve(socket, answer) {
  let line = '';
  socket.setEncoding('utf8');
  socket.setTimeout(answerLimit, () => socket.destroy());
  socket.on('error', () => socket.destroy());
  socket.on('data', (text) => {
    line += text;
    if (line.length > longestQuestion) socket.destroy();
    else if (line.includes('\n')) socket.end(`${JSON.stringify(answer(parse(line.slice(0, line.indexOf('\n')))?.ask))}\n`);
  });
}

/**
 * Listens. Fails with EADDRINUSE where the file exists.
 * @param {string} path
 * @param {(question: unknown) => object} answer
 * @returns {Promise<net.Server>}
 */
export function listen(path, answer) {
  return new Promise((resolve, reject) => {
    const server = net.createServer((socket) => serve(socket, answer));
    server.on('error', reject);
    server.listen(path, () => {
      fs.chmodSync(path, 0o600);
      resolve(server);
    });
  });
}
