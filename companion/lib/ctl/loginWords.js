// Starting at login, or no longer.

import { installAutostart, uninstallAutostart } from '../autostart.js';

export async function install({ environment }) {
  const { path, program } = installAutostart({ environment });
  return { text: `${program} starts at login from now on (${path}).`, facts: { installed: true, path, program } };
}

export async function uninstall({ environment }) {
  const removed = uninstallAutostart({ environment });
  const text = removed ? 'Sonra no longer starts at login.' : 'Sonra didn\'t start at login.';
  return { text, facts: { installed: false, removed } };
}
