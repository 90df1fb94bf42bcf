// What runs and what is known, in one look.

import { isAutostartEnabled, isAutostartInstalled } from '../autostart.js';
import { daemonStatus } from '../daemon/daemonControl.js';
import { pairedDevices } from '../pairedDevices.js';
import { serviceLockPath, socketPath, statePath } from '../places.js';
import { isServiceRunning } from '../serviceSocket.js';
import { SharedDocument } from '../sharedDocument.js';
import { readIfPresent } from '../wholeFile.js';

function servicePid(environment) {
  try {
    const pid = Number(readIfPresent(serviceLockPath(environment))?.trim());
    return Number.isInteger(pid) && pid > 0 ? pid : undefined;
  } catch {
    return undefined;
  }
}

async function gather(environment) {
  const [daemon, running] = await Promise.all([
    daemonStatus({ environment }), isServiceRunning({ path: socketPath(environment) })]);
  const state = SharedDocument.read(statePath(environment));
  return {
    daemon,
    service: { running, ...(running ? { pid: servicePid(environment) } : {}) },
    sessions: { attached: state.list('sessions').length, discovered: state.list('discoveredSessions').length },
    bridge: { port: daemon.bridgePort ?? null, pairedDevices: pairedDevices(environment)?.length ?? null },
    autostart: { installed: isAutostartInstalled({ environment }), enabled: isAutostartEnabled({ environment }) },
  };
}

/** 3725 is "1 h 2 min". */
export function duration(seconds) {
  if (seconds < 60) return `${seconds} s`;
  const minutes = Math.floor(seconds / 60);
  return minutes < 60 ? `${minutes} min` : `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

function daemonText({ alive, responding, stopping, pid, uptimeSeconds, memory }) {
  if (!alive) return 'not running';
  if (!responding) return `does not answer${pid ? ` (process ${pid})` : ''}`;
  const size = memory.rss ? `, ${Math.round(memory.rss / 1024 / 1024)} MB` : '';
  return `${stopping ? 'ending' : 'running'} (process ${pid}, ${duration(uptimeSeconds)}${size})`;
}

const counted = (count, one, more) => `${count} ${count === 1 ? one : more}`;

const devicesText = (count) =>
  (count === null ? 'paired devices unknown' : counted(count, 'paired device', 'paired devices'));

function loginText({ installed, enabled }) {
  if (!installed) return 'off';
  return enabled ? 'on' : 'turned off in the desktop\'s settings';
}

export async function status({ environment }) {
  const facts = await gather(environment);
  const { daemon, service, sessions, bridge, autostart } = facts;
  const failed = Object.entries(daemon.parts ?? {}).filter(([, state]) => state === 'failed').map(([name]) => name);
  const rows = [
    ['daemon', daemonText(daemon) + (failed.length ? `; failed: ${failed.join(', ')}, see daemon.log` : '')],
    ['service', service.running ? `running (process ${service.pid ?? 'unknown'})` : 'not running'],
    ['sessions', `${sessions.attached} attached, ${sessions.discovered} discovered`],
    ['bridge', `${bridge.port === null ? 'not running' : `port ${bridge.port}`}, ` +
      devicesText(bridge.pairedDevices)],
    ['start at login', loginText(autostart)],
  ];
  return { text: rows.map(([name, value]) => `${`${name}:`.padEnd(16)}${value}`).join('\n'), facts };
}
