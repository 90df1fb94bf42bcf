// A real daemon in a test's home, driven by the control tool as a person drives it, ended when the test ends.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import { text } from 'node:stream/consumers';
import { fileURLToPath } from 'node:url';

import { stopDaemon } from '../lib/daemon/daemonControl.js';
import { temporaryHome } from './home.js';

export const ctlScript = fileURLToPath(new URL('../ctl.js', import.meta.url));

/** A home whose daemon, if one is started, ends before the home goes. */
export function daemonHome(t) {
  let home;
  // Hooks run in the order of their making.
  t.after(() => stopDaemon({ environment: home.environment }));
  home = temporaryHome(t);
  // No test of the daemon needs the bridge at the port that a real one may have.
  home.environment.SONRA_BRIDGE_PORT = '0';
  return home;
}

/** Runs the control tool to its end. */
export async function ctl(home, args, { environment = {}, ...options } = {}) {
  const child = spawn(process.execPath, [ctlScript, ...args],
    { stdio: ['ignore', 'pipe', 'pipe'], ...options, env: { ...home.environment, ...environment } });
  const [stdout, stderr, [code]] = await Promise.all([text(child.stdout), text(child.stderr), once(child, 'exit')]);
  return { code, stdout, stderr };
}

export function pidFile(home) {
  return Number(fs.readFileSync(home.inShared('daemon.pid'), 'utf8'));
}

export function isAlive(pid) {
  try {
    process.kill(pid, 0);
    // One that nobody has collected yet.
    return !/^State:\s+Z/m.test(fs.readFileSync(`/proc/${pid}/status`, 'utf8'));
  } catch {
    // Perhaps between the two.
    return false;
  }
}

/** The daemon's log as records; lines that aren't are left out. */
export function logRecords(home) {
  const lines = fs.readFileSync(home.inShared('daemon.log'), 'utf8').split('\n');
  return lines.filter((line) => line.startsWith('{')).map((line) => JSON.parse(line));
}
