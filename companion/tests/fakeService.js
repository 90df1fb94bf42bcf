// A service for tests of programs that speak to its socket: it writes down what it is told, and does to the shared
// document what the real one does for an attach and a detach. What it was told it has been told when the sender is done.

import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';

import { serviceLogPath } from '../lib/places.js';
import { updateDocument } from '../lib/sharedDocument.js';

/** Appends a line to its log, as the real one does. */
export function serviceSays(home, record) {
  const log = serviceLogPath(home.environment);
  fs.mkdirSync(path.dirname(log), { recursive: true });
  fs.appendFileSync(log, `${JSON.stringify({ level: 30, time: new Date().toISOString(), ...record })}\n`);
}

/** @param {'obeys' | 'ignores'} manner whether attach and detach show in the document, and what was done in the log */
export async function fakeService(context, home, manner = 'obeys') {
  const lines = [];
  const change = (alter) => updateDocument(home.inShared('state.json'), (document) =>
    document.set('sessions', alter(document.list('sessions'))));
  const obey = async ({ cmd, id, cwd, source, transcript }) => {
    if (cmd === 'attach') {
      await change((rows) => (rows.some((row) => row.id === id) ? rows : [...rows, { id, cwd, source, transcript }]));
    } else if (cmd === 'detach') await change((rows) => rows.filter((row) => row.id !== id));
  };
  const take = async (text) => {
    for (const line of text.split('\n').filter(Boolean)) {
      lines.push(JSON.parse(line));
      if (manner === 'ignores') continue;
      await obey(lines.at(-1));
      const { cmd, requestId } = lines.at(-1);
      if (requestId) serviceSays(home, { msg: 'ipc dispatched', method: cmd, requestId });
    }
  };
  const sockets = new Set();
  const server = net.createServer((socket) => {
    sockets.add(socket);
    let text = '';
    socket.on('data', (bytes) => { text += bytes; });
    socket.on('end', () => take(text));
    socket.on('error', () => {});
    socket.on('close', () => sockets.delete(socket));
  }).listen(home.inShared('service.sock'));
  await once(server, 'listening');
  context.after(() => {
    for (const socket of sockets) socket.destroy();
    server.close();
  });
  return { lines, server };
}
