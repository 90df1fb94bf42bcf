// Answers as the provider's documented interface does, on the loopback; each request is kept.

import { once } from 'node:events';
import http from 'node:http';

/** A candidate whose sound is `pcm`. */
export function soundAnswer(pcm, rate = 24_000) {
  const inlineData = { mimeType: `audio/L16;codec=pcm;rate=${rate}`, data: pcm.toString('base64') };
  return { json: { candidates: [{ content: { parts: [{ inlineData }], role: 'model' }, finishReason: 'STOP' }] } };
}

export function textAnswer(...texts) {
  return { json: { candidates: [{ content: { parts: texts.map((text) => ({ text })) }, finishReason: 'STOP' }] } };
}

export function errorAnswer(status, message, headers = {}) {
  return { status, headers, json: { error: { code: status, message, status: 'SOME_STATUS' } } };
}

async function bodyOf(request) {
  const chunks = [];
  for await (const chunk of request) chunks.push(chunk);
  return Buffer.concat(chunks).toString();
}

/**
 * @param {(request: { url: string, headers: object, body: any }, index: number) => { status?: number, headers?: object,
 *   json?: any, raw?: string, isCut?: boolean } | undefined} answer nothing means that no answer ever comes
 */
export async function geminiServer(context, answer) {
  const requests = [];
  const server = http.createServer(async (request, response) => {
    const text = await bodyOf(request);
    const seen = { method: request.method, url: request.url, headers: request.headers, body: text ? JSON.parse(text) : undefined };
    requests.push(seen);
    const given = answer(seen, requests.length - 1);
    if (!given) return;
    response.writeHead(given.status ?? 200, { 'content-type': 'application/json', ...given.headers });
    if (given.isCut) {
      response.write('{"candidates"');
      response.socket.destroySoon();
      return;
    }
    response.end(given.raw ?? JSON.stringify(given.json));
  });
  server.listen(0, '127.0.0.1');
  await once(server, 'listening');
  context.after(() => {
    server.closeAllConnections();
    server.close();
  });
  return { base: `http://127.0.0.1:${server.address().port}`, requests };
}
