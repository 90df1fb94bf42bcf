// HTTP by hand, for requests that no proper client would send.

import net from 'node:net';

/**
 * Sends `text` as it is and gives all that comes back until the other side ends the connection, or `limit` has passed.
 * @returns {Promise<{ text: string, status: number, headers: Record<string, string>, body: string, ended: boolean }>}
 */
export function sendRaw(port, text, { limit = 5000, host = '127.0.0.1' } = {}) {
  return new Promise((resolve) => {
    let received = '';
    const socket = net.connect({ port, host });
    const finish = (ended) => {
      clearTimeout(timer);
      socket.destroy();
      resolve({ ...parse(received), ended });
    };
    const timer = setTimeout(() => finish(false), limit);
    socket.setEncoding('latin1').on('data', (piece) => {
      received += piece;
    });
    socket.on('error', () => {});
    socket.on('close', () => finish(true));
    socket.write(text, 'latin1');
  });
}

function parse(text) {
  const [head, ...rest] = text.split('\r\n\r\n');
  const [first, ...lines] = head.split('\r\n');
  const headers = Object.fromEntries(
    lines.map((line) => {
      const at = line.indexOf(':');
      return [line.slice(0, at).toLowerCase(), line.slice(at + 1).trim()];
    }),
  );
  return { text, status: Number(first.split(' ')[1]), headers, body: rest.join('\r\n\r\n') };
}

/** A request with proper defaults, of which each may be replaced; `undefined` leaves a header out. */
export function rawRequest(port, { method = 'GET', target = '/', headers = {}, body = '' } = {}) {
  const all = { Host: `127.0.0.1:${port}`, Connection: 'close', ...headers };
  const lines = Object.entries(all)
    .filter(([, value]) => value !== undefined)
    .map(([name, value]) => `${name}: ${value}`);
  return `${method} ${target} HTTP/1.1\r\n${lines.join('\r\n')}\r\n\r\n${body}`;
}
