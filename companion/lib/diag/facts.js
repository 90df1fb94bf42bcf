// Versions and facts of this computer for the bundle. What can't be told is left out; each program that is asked has a
// limit, and all are asked at once.

import { execFile } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';

import { isAutostartEnabled } from '../autostart.js';
import { daemonStatus } from '../daemon/daemonControl.js';
import { socketPath } from '../places.js';
import { sonraProgram } from '../programs.js';
import { serviceState } from '../serviceSocket.js';
import { packageVersion } from '../version.js';

const askLimit = 3_000;
const portalFolders = ['/usr/share/xdg-desktop-portal/portals', '/usr/local/share/xdg-desktop-portal/portals'];

/** Variables whose values say how the programs are set up, and nothing about their user. */
const tellingVariables = ['TTS_LOG_LEVEL', 'TTS_LOG_VERBOSE', 'TTS_DISABLE_CTL', 'SONRA_ENV', 'QT_QPA_PLATFORM',
  'QT_SCALE_FACTOR', 'GTK_THEME', 'LANG', 'LC_ALL', 'XDG_SESSION_TYPE', 'XDG_CURRENT_DESKTOP', 'XDG_SESSION_DESKTOP',
  'DESKTOP_SESSION', 'container', 'FLATPAK_ID', 'SNAP_NAME'];

/** The first line that fits, of what a program prints. */
function ask(environment, program, args, pattern = /\S.*/) {
  return new Promise((resolve) => {
    if (!program) return resolve(undefined);
    const env = { ...environment, LC_ALL: 'C' };
    const options = { env, timeout: askLimit, killSignal: 'SIGKILL', maxBuffer: 1 << 20 };
    const child = execFile(program, args, options, (error, stdout) => {
      const found = pattern.exec(stdout ?? '');
      resolve(found ? (found[1] ?? found[0]).trim() : undefined);
    });
    child.stdin?.end();
    return undefined;
  });
}

function distribution() {
  try {
    return /^PRETTY_NAME="?([^"\n]*)/m.exec(fs.readFileSync('/etc/os-release', 'utf8'))?.[1];
  } catch {
    return undefined;
  }
}

function portals() {
  return portalFolders.flatMap((folder) => {
    try {
      return fs.readdirSync(folder).filter((name) => name.endsWith('.portal')).map((name) => name.slice(0, -7));
    } catch {
      return [];
    }
  });
}

export async function collectVersions(environment) {
  const [sonra, espeak, uv, python] = await Promise.all([
    ask(environment, sonraProgram(environment), ['--version']),
    ask(environment, 'espeak-ng', ['--version']),
    ask(environment, 'uv', ['--version']),
    ask(environment, 'python3', ['--version']),
  ]);
  return { sonra, companion: packageVersion(), node: process.version, espeak, uv, python };
}

const present = (environment, name) => Boolean(environment[name]);

export async function collectPlatform(environment) {
  const [soundServer, portalProcess] = await Promise.all([
    ask(environment, 'pactl', ['info'], /^Server Name: (.*)$/m),
    ask(environment, 'busctl', ['--user', 'status', 'org.freedesktop.portal.Desktop'], /^Comm=(.*)$/m),
  ]);
  return {
    distribution: distribution(),
    kernel: `${os.type()} ${os.release()}`,
    architecture: os.arch(),
    processors: os.cpus().length,
    processor: os.cpus()[0]?.model,
    memoryMegabytes: Math.round(os.totalmem() / 1024 ** 2),
    uptimeHours: Math.round(os.uptime() / 3600),
    display: { x11: present(environment, 'DISPLAY'), wayland: present(environment, 'WAYLAND_DISPLAY') },
    sessionBus: present(environment, 'DBUS_SESSION_BUS_ADDRESS'),
    soundServer: soundServer ?? 'none reached',
    portals: portals(),
    portalRunning: portalProcess !== undefined,
    variables: Object.fromEntries(tellingVariables.filter((name) => environment[name] !== undefined)
      .map((name) => [name, environment[name]])),
  };
}

/** What runs. A daemon that can't be asked is a finding, not a failure. */
export async function collectRunning(environment) {
  const daemon = await daemonStatus({ environment }).catch((error) => ({ problem: error.message }));
  const state = await serviceState({ path: socketPath(environment) });
  return {
    service: state !== 'absent',
    serviceAnswers: state === 'running',
    daemon,
    startsAtLogin: isAutostartEnabled({ environment }),
  };
}
