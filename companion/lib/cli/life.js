// Starting and ending the two long-lived programs, and starting them at login.

import { socketPath } from '../places.js';
import { ensureDaemon, startService, waitFor } from '../serviceControl.js';
import { sendCommand, serviceState } from '../serviceSocket.js';
import { CommandFailure } from '../words/failure.js';

const quitLimit = 5_000;

/** "tts start" */
export async function start({ environment, output, neighbours }) {
  const parts = neighbours.serviceParts;
  const how = await startService({ environment, parts });
  output.say(how === 'started' ? 'Started.' : 'It is running already.');
  const daemon = await ensureDaemon({ environment, parts });
  if (!daemon) {
    output.note("The daemon doesn't run, so sessions aren't found by themselves; see ~/.claude/tts/daemon.log.");
  }
  output.result({ service: how, daemon });
}

/** "tts quit" */
export async function quit({ environment, output, neighbours }) {
  const path = socketPath(environment);
  const running = await serviceState({ path }) !== 'absent';
  if (running) {
    await sendCommand('quit', {}, { path });
    const gone = await waitFor(async () => await serviceState({ path }) === 'absent', quitLimit);
    if (!gone) throw new CommandFailure("The service didn't end within 5 seconds.");
  }
  const { stopped } = await neighbours.stopDaemon(environment);
  output.say(running || stopped ? 'Ended.' : 'It was not running.');
  output.result({ wasRunning: running });
}

/** "tts install" */
export async function install({ environment, output, neighbours }) {
  const autostart = await neighbours.autostart();
  await autostart.installAutostart({ environment });
  output.say('Sonra starts at login.');
  output.result({ startsAtLogin: true });
}

/** "tts uninstall" */
export async function uninstall({ environment, output, neighbours }) {
  const autostart = await neighbours.autostart();
  await autostart.uninstallAutostart({ environment });
  output.say("Sonra doesn't start at login any more.");
  output.result({ startsAtLogin: false });
}
