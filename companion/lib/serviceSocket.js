// The service's socket: one JSON object a line, one way. What a command does shows in the shared documents, so all that
// a sender can know is whether the service took the line.

import net from 'node:net';

import { socketPath } from './places.js';

const connectLimit = 1000;
/** In how many parts of its time a silence is noticed. */
const looks = 4;

export class ServiceNotRunning extends Error {
  constructor(cause) {
    super('The Sonra service is not running.', { cause });
    this.name = 'ServiceNotRunning';
  }
}

/** Somebody listens, but takes nothing: the service hangs, or is stopped. What was sent may still be done one day. */
export class ServiceSilent extends ServiceNotRunning {
  constructor(cause) {
    super(cause);
    this.message = "The Sonra service doesn't answer.";
    this.name = 'ServiceSilent';
  }
}

/** The line for one command; its arguments stand beside its name. */
export function commandLine(cmd, args = {}) {
  return `${JSON.stringify({ ...args, proto: 1, cmd })}\n`;
}

/**
 * Calls `onSilence` once nothing has gone on for `limit` milliseconds. While this process itself is held up they hardly
 * pass: an answer that has come meanwhile is not missed.
 */
function limitSilence(socket, limit, onSilence) {
  let silent = 0;
  let written = socket.bytesWritten;
  socket.setTimeout(limit / looks);
  socket.on('timeout', () => {
    silent = socket.bytesWritten === written ? silent + 1 : 1;
    written = socket.bytesWritten;
    if (silent < looks) socket.setTimeout(limit / looks);
    else onSilence();
  });
}

/**
 * Hands `lines` to the service and resolves when it has taken them all. Fails with ServiceNotRunning where nobody
 * listens, and with ServiceSilent where nobody takes them within `limit` milliseconds.
 */
export function sendLines(lines, { path = socketPath(), limit = connectLimit } = {}) {
  return new Promise((resolve, reject) => {
    const socket = net.connect({ path });
    const finish = (error) => {
      socket.destroy();
      if (error) reject(error);
      else resolve();
    };
    limitSilence(socket, limit, () => finish(new ServiceSilent(new Error(`no answer within ${limit} ms`))));
    // The queue of those who wait to be let in is full.
    socket.on('error', (error) => finish(error.code === 'EAGAIN' ? new ServiceSilent(error) : new ServiceNotRunning(error)));
    // The service never writes; what it reads to the end it has taken.
    socket.on('connect', () => socket.end(lines.join('')));
    socket.on('finish', () => socket.resume());
    socket.on('close', () => finish());
  });
}

export function sendCommand(cmd, args, options) {
  return sendLines([commandLine(cmd, args)], options);
}

/** @returns {Promise<'running' | 'silent' | 'absent'>} */
export async function serviceState(options) {
  try {
    await sendLines([], options);
    return 'running';
  } catch (error) {
    return error instanceof ServiceSilent ? 'silent' : 'absent';
  }
}

/** True if the service takes commands. */
export async function isServiceRunning(options) {
  return await serviceState(options) === 'running';
}
