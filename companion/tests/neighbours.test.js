import assert from 'node:assert/strict';
import { once } from 'node:events';
import net from 'node:net';
import test from 'node:test';

import { neighbours } from '../lib/cli/neighbours.js';
import { daemonSocketPath } from '../lib/places.js';
import { temporaryHome } from './home.js';

/** Something at the daemon's socket. */
async function daemonThat(t, home, answer) {
  const server = net.createServer(answer).listen(daemonSocketPath(home.environment));
  await once(server, 'listening');
  t.after(() => server.close());
}

test('no daemon, one that answers and one that breaks off are told apart', async (t) => {
  const none = temporaryHome(t);
  assert.deepEqual(await neighbours.daemonStatus(none.environment), { alive: false });
  const answers = temporaryHome(t);
  await daemonThat(t, answers, (socket) => socket.end('{"pid":7,"bridgePort":7842}\n'));
  assert.deepEqual(await neighbours.daemonStatus(answers.environment), { pid: 7, bridgePort: 7842, alive: true, responding: true });
  const silent = temporaryHome(t);
  await daemonThat(t, silent, (socket) => socket.destroy());
  assert.deepEqual(await neighbours.daemonStatus(silent.environment), { alive: true, responding: false });
});
