// Starting at login, or no longer.

import { installAutostart, launchAgent, uninstallAutostart } from '../autostart.js';

export async function install({ environment }) {
  const { path, program } = installAutostart({ environment });
  return { text: `${program} starts at login from now on (${path}).`, facts: { installed: true, path, program } };
}

export async function uninstall({ environment }) {
  const removed = uninstallAutostart({ environment });
  const text = removed ? 'Sonra no longer starts at login.' : 'Sonra didn\'t start at login.';
  // It isn't ours to remove, and without an entry it is what the menu goes by.
  const agent = launchAgent({ environment });
  if (!agent) return { text, facts: { installed: false, removed } };
  const what = removed ? 'The entry was removed' : 'There is no entry';
  return {
    text: `${what}, but ${agent} remains, which counts as start at login; remove it to turn that off.`,
    facts: { installed: true, removed, launchAgent: agent },
  };
}
