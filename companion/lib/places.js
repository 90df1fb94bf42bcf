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
/** Another text in it whenever the daemon was told to end. */
export const daemonEndPath = inShared('daemon.end');
export const daemonLogPath = inShared('daemon.log');
/** What the daemon's Node.js says when it can't go on. */
export const daemonErrorsPath = inShared('daemon.stderr.log');

/** The service's own log; its rotated copies end in .1, .2 and so on. */
export function serviceLogPath(environment = process.env) {
  return path.join(homeDirectory(environment), 'Library/Logs/Sonra/sonra.ndjson');
}

/** One line with the path of ctl.js, for the service, which doesn't know where this was installed. */
export function ctlPointerPath(environment = process.env) {
  return path.join(homeDirectory(environment), 'Library/Application Support/Sonra/ctl-path.txt');
}

/** Only absolute paths count in these variables; a relative one would mean another folder in each program. */
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

/** A folder that an agent lets its user move. What isn't absolute depends on where the agent was started: not counted. */
function movable(value, fallback, environment) {
  const moved = value?.startsWith('~/') ? path.join(homeDirectory(environment), value.slice(2)) : value;
  return moved && path.isAbsolute(moved) ? moved : path.join(homeDirectory(environment), fallback);
}

/** Claude Code: a folder for each project, in it a file for each session. */
export function claudeProjectsDirectory(environment = process.env) {
  return path.join(movable(environment.CLAUDE_CONFIG_DIR, '.claude', environment), 'projects');
}

/** Codex: folders for year, month and day. */
export function codexSessionsDirectory(environment = process.env) {
  return path.join(movable(environment.CODEX_HOME, '.codex', environment), 'sessions');
}

/** Gemini CLI: "projects.json", and "tmp" with a folder for each project. */
export function geminiDirectory(environment = process.env) {
  return path.join(movable(environment.GEMINI_CLI_HOME, '', environment), '.gemini');
}

/** OpenCode: "storage", and since early 2026 a database. */
export function openCodeDirectory(environment = process.env) {
  return path.join(dataDirectory(environment), 'opencode');
}

/** Cline as an editor's extension: a folder for each task, for each editor that is known to run it. */
export function clineTaskDirectories(environment = process.env) {
  const inEditor = 'User/globalStorage/saoudrizwan.claude-dev/tasks';
  const editors = ['Code', 'Code - Insiders', 'VSCodium', 'Cursor', 'Windsurf'];
  return [
    ...editors.map((editor) => path.join(configDirectory(environment), editor, inEditor)),
    path.join(homeDirectory(environment), '.vscode-server/data', inEditor),
  ];
}

/** Cline's newer store: a folder for each session. */
export function clineSessionsDirectory(environment = process.env) {
  return path.join(movable(environment.CLINE_DATA_DIR, '.cline/data', environment), 'sessions');
}

/** Pi: a folder for each project. */
export function piSessionsDirectory(environment = process.env) {
  return path.join(movable(environment.PI_CODING_AGENT_DIR, '.pi/agent', environment), 'sessions');
}
