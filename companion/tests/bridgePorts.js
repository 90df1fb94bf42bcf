// Ports that stay free for a while: outside of the range from which the system gives one to every socket that asks for
// any, so that none of the many connections of other tests gets them in between.

import { once } from 'node:events';
import net from 'node:net';

const lowest = 10_000;
const highest = 32_000;

async function isFree(port) {
  const probe = net.createServer().listen(port, '127.0.0.1');
  const isTaken = await Promise.race([
    once(probe, 'listening').then(() => false),
    new Promise((resolve) => { probe.once('error', () => resolve(true)); }),
  ]);
  if (isTaken) return false;
  await once(probe.close(), 'close');
  return true;
}

export async function quietPort() {
  for (;;) {
    const port = lowest + Math.floor(Math.random() * (highest - lowest));
    if (await isFree(port)) return port;
  }
}
