// Start at login: an entry in the user's autostart folder. It starts the service, and the service starts the daemon, so
// one entry is enough for both.

import fs from 'node:fs';
import path from 'node:path';

import { autostartPath, ctlPointerPath, homeDirectory } from './places.js';
import { ctlOfService, ctlScript, isExecutableFile, nodeProgram, nodeWithoutPath, sonraProgram } from './programs.js';
import { makeFolderOf, readIfPresent, replaceFile } from './wholeFile.js';

export class NoProgram extends Error {
  constructor(program) {
    super(program ? `${program} is no program that can be started.`
      : 'The program "sonra" was not found beside this one or on PATH; SONRA_PROGRAM can name it.');
    this.name = 'NoProgram';
  }
}

/** A value of the type string in a desktop file. */
export function stringValue(text) {
  return text.replaceAll('\\', '\\\\').replaceAll('\n', '\\n').replaceAll('\t', '\\t').replaceAll('\r', '\\r');
}

/** One word of the Exec key: quoted for the command line, its percent signs no field codes, and then a string value. */
export function execWord(word) {
  const quoted = /^[\w./+:@,-]+$/.test(word) ? word : `"${word.replace(/["`$\\]/g, '\\$&')}"`;
  return stringValue(quoted.replaceAll('%', '%%'));
}

/**
 * The words that start the service. Where it wouldn't find a Node.js without a shell's PATH, the folder of the one that
 * runs this becomes the last of its PATH, which is where the service looks last: should that Node.js go, the service
 * starts all the same and takes what it finds then.
 */
function startCommand(program, environment, findNode) {
  const node = nodeProgram();
  if (!findNode(environment) && path.basename(node) === 'node' && !node.includes(':')) {
    return ['/bin/sh', '-c', 'PATH="$PATH:$1" exec "$0"', program, path.dirname(node)];
  }
  // GLib looks for the first word before it has undone the doubling of its percent signs.
  return program.includes('%') ? ['/usr/bin/env', program] : [program];
}

/** The entry's text. */
export function autostartEntry(program, { environment = process.env, findNode = nodeWithoutPath } = {}) {
  return [
    '[Desktop Entry]',
    'Type=Application',
    'Name=Sonra',
    'Comment=Hear the replies of AI coding agents as they are written',
    `Exec=${startCommand(program, environment, findNode).map(execWord).join(' ')}`,
    `TryExec=${stringValue(program)}`,
    'Icon=dev.trelnivorn.sonra',
    'Terminal=false',
    'StartupNotify=false',
    'X-GNOME-Autostart-enabled=true',
    '',
  ].join('\n');
}

/** Tells the service where ctl.js is, if it would find none or another. */
function leavePointer(program, environment) {
  const found = ctlOfService(program, environment);
  if (found && fs.realpathSync(found) === fs.realpathSync(ctlScript)) return;
  const pointer = ctlPointerPath(environment);
  makeFolderOf(pointer);
  replaceFile(pointer, `${ctlScript}\n`);
}

/**
 * Writes the entry, over one that the user has switched off as well. Throws NoProgram, or what the file system says.
 * @returns {{ path: string, program: string }}
 */
export function installAutostart({ environment = process.env, findNode } = {}) {
  const program = sonraProgram(environment);
  if (!program || !path.isAbsolute(program) || !isExecutableFile(program)) throw new NoProgram(program);
  leavePointer(program, environment);
  const entry = autostartPath(environment);
  makeFolderOf(entry);
  replaceFile(entry, autostartEntry(program, { environment, findNode }), { mode: 0o644 });
  return { path: entry, program };
}

/**
 * Removes the entry; true if there was one. The pointer to ctl.js stays: without it a service that was started by hand
 * could no longer start the daemon, nor install the entry again.
 */
export function uninstallAutostart({ environment = process.env } = {}) {
  const entry = autostartPath(environment);
  try {
    fs.unlinkSync(entry);
    return true;
  } catch (error) {
    // A file in the place of a folder above it.
    if (error.code === 'ENOENT' || error.code === 'ENOTDIR') return false;
    throw error;
  }
}

/** The entry's text; one that can't be read is none, to a desktop as well. */
function presentEntry(environment) {
  try {
    return readIfPresent(autostartPath(environment));
  } catch {
    return undefined;
  }
}

/** The launch agent that other tools look for, where there is one. */
export function launchAgent({ environment = process.env } = {}) {
  const agent = path.join(homeDirectory(environment), 'Library/LaunchAgents/dev.trelnivorn.sonra.plist');
  return fs.existsSync(agent) ? agent : undefined;
}

/** An entry is there, whether it is heeded or not, or the launch agent. */
export function isAutostartInstalled({ environment = process.env } = {}) {
  return presentEntry(environment) !== undefined || launchAgent({ environment }) !== undefined;
}

/** As the service's menu sees it: desktops leave an entry that they switch off where it is, with one of these keys. */
export function isAutostartEnabled({ environment = process.env } = {}) {
  const text = presentEntry(environment);
  if (text === undefined) return isAutostartInstalled({ environment });
  return !/^\s*(Hidden\s*=\s*true|X-GNOME-Autostart-enabled\s*=\s*false)\s*$/m.test(text);
}
