// Starting and ending the daemon.

import { startDaemon, stopDaemon } from '../daemon/daemonControl.js';

export async function standby({ environment }) {
  const { pid, started } = await startDaemon({ environment });
  return { text: `The daemon ${started ? 'was started' : 'runs already'} (process ${pid}).`, facts: { pid, started } };
}

export async function stop({ environment }) {
  const { stopped } = await stopDaemon({ environment });
  return { text: stopped ? 'The daemon was ended.' : 'No daemon ran.', facts: { stopped } };
}
