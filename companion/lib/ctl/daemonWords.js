// Starting and ending the daemon.

import { DaemonToldToEnd, startDaemon, stopDaemon } from '../daemon/daemonControl.js';

export async function standby({ environment }) {
  let pid;
  let started;
  try {
    ({ pid, started } = await startDaemon({ environment }));
  } catch (error) {
    // The last wish was heeded, which is no failure.
    if (error instanceof DaemonToldToEnd) return { text: error.message, facts: { started: false, toldToEnd: true } };
    throw error;
  }
  return { text: `The daemon ${started ? 'was started' : 'runs already'} (process ${pid}).`, facts: { pid, started } };
}

export async function stop({ environment }) {
  const { stopped } = await stopDaemon({ environment });
  return { text: stopped ? 'The daemon was ended.' : 'No daemon ran.', facts: { stopped } };
}
