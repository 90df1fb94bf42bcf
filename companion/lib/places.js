// Where things lie: the one place that knows names of folders and files. Every function reads the environment when it
// is called, so that a test, or a daemon that was given another home, sees its own.

import { homedir } from 'node:os';
import path from 'node:path';

/** The user's home: HOME where it is set, else what the system's user table says. */
export function homeDirectory(environment = process.env) {
  return environment.HOME || homedir();
}

/** The folder that the service and its companions share. */
export function sharedDirectory(environment = process.env) {
  return path.join(homeDirectory(environment), '.claude/tts');
}

const inShared = (name) => (environment = process.env) => path.join(sharedDirectory(environment), name);

export const statePath = inShared('state.json');
export const nowPlayingPath = inShared('now-playing.json');
export const profilePath = inShared('profile.json');
export const socketPath = inShared('service.sock');
export const serviceLockPath = inShared('sonra.lock');
export const pairCodePath = inShared('active-pair-code.json');
export const tokensPath = inShared('bridge-tokens.json');
export const daemonPidPath = inShared('daemon.pid');
export const daemonSocketPath = inShared('daemon.sock');
export const daemonLockPath = inShared('daemon.lock');
export const daemonLogPath = inShared('daemon.log');

/** The service's own log; its rotated copies end in .1, .2 and so on. */
export function serviceLogPath(environment = process.env) {
  return path.join(homeDirectory(environment), 'Library/Logs/Sonra/sonra.ndjson');
}

/** One line with the path of ctl.js, for the service, which doesn't know where this was installed. */
export function ctlPointerPath(environment = process.env) {
  return path.join(homeDirectory(environment), 'Library/Application Support/Sonra/ctl-path.txt');
}

/** Only absolute paths count in these variables, as the base directory specification has it. */
function baseDirectory(value, fallback, environment) {
  return value && path.isAbsolute(value) ? value : path.join(homeDirectory(environment), fallback);
}

export function configDirectory(environment = process.env) {
  return baseDirectory(environment.XDG_CONFIG_HOME, '.config', environment);
}

export function dataDirectory(environment = process.env) {
  return baseDirectory(environment.XDG_DATA_HOME, '.local/share', environment);
}

/** The entry that starts the program when its user logs in. */
export function autostartPath(environment = process.env) {
  return path.join(configDirectory(environment), 'autostart/dev.trelnivorn.sonra.desktop');
}
