import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import * as autostart from '../lib/autostart.js';
import { ctlScript, ctlOfService, nodeWithoutPath, programOnPath, sonraProgram } from '../lib/programs.js';
import { temporaryHome, until } from './home.js';

function writeProgram(file, text = '#!/bin/sh\n') {
  fs.mkdirSync(path.dirname(file), { recursive: true });
  fs.writeFileSync(file, text, { mode: 0o755 });
  return file;
}

/** A home with a service's executable at a path that is hard to quote; started, it writes down what it was given. */
function stage(t, name = 'opt/50% "off" $HOME `x` \\ dir/bin/sonra') {
  const home = temporaryHome(t);
  const program = writeProgram(path.join(home.home, name),
    `#!/bin/sh\nprintf '%s|%s|%s' "$0" "$#" "$PATH" >"$OUT"\n`);
  home.environment.SONRA_PROGRAM = program;
  const entry = path.join(home.home, '.config/autostart/dev.trelnivorn.sonra.desktop');
  return { ...home, program, entry };
}

/** Starts an entry as a desktop does, and gives what the program wrote. */
async function startEntry({ home, entry }) {
  execFileSync('gio', ['launch', entry], { env: { PATH: '/usr/bin:/bin', HOME: home, OUT: `${home}/out` }, timeout: 10_000 });
  return until(() => fs.existsSync(`${home}/out`) && fs.readFileSync(`${home}/out`, 'utf8'));
}

/** A validator's complaints. */
function complaints(entry) {
  const { status, stdout, stderr } = spawnSync('desktop-file-validate', [entry], { encoding: 'utf8' });
  return `${status}${stdout}${stderr}`;
}

const noNode = () => undefined;

test('the entry starts the service, wherever it lies', async (t) => {
  const home = stage(t);
  const { environment, program, entry } = home;
  assert.equal(autostart.isAutostartInstalled({ environment }), false);
  assert.deepEqual(autostart.installAutostart({ environment }), { path: entry, program });
  assert.equal(autostart.isAutostartInstalled({ environment }), true);
  assert.equal(autostart.isAutostartEnabled({ environment }), true);
  assert.equal(complaints(entry), '0');
  assert.equal(await startEntry(home), `${program}|0|/usr/bin:/bin`);
});

test('where Node.js would not be found at login the service is told of it', async (t) => {
  const home = stage(t);
  const { environment, program, entry } = home;
  autostart.installAutostart({ environment, findNode: noNode });
  assert.equal(complaints(entry), '0');
  assert.equal(await startEntry(home), `${program}|0|/usr/bin:/bin:${path.dirname(process.execPath)}`);
});

test('a Node.js in a folder with a blank is found, and one that has gone keeps nothing from starting', async (t) => {
  const home = stage(t);
  const node = path.join(home.home, 'my tools/node');
  fs.mkdirSync(path.dirname(node));
  fs.symlinkSync('/bin/true', node);
  const { execPath } = process;
  t.after(() => { process.execPath = execPath; });
  process.execPath = node;
  autostart.installAutostart({ environment: home.environment, findNode: noNode });
  process.execPath = execPath;
  assert.equal(complaints(home.entry), '0');
  fs.rmSync(path.dirname(node), { recursive: true });
  assert.equal(await startEntry(home), `${home.program}|0|/usr/bin:/bin:${path.dirname(node)}`);
});

test('a plain path stands as it is', () => {
  const text = autostart.autostartEntry('/usr/bin/sonra', { findNode: () => '/usr/bin/node' });
  assert.match(text, /^Exec=\/usr\/bin\/sonra$/m);
  assert.match(text, /^TryExec=\/usr\/bin\/sonra$/m);
});

test('words are quoted as the desktop entry rules have it', () => {
  assert.equal(autostart.execWord('a b'), '"a b"');
  assert.equal(autostart.execWord('100%'), '"100%%"');
  assert.equal(autostart.execWord('$a`b"c\\'), '"\\\\$a\\\\`b\\\\"c\\\\\\\\"');
  assert.equal(autostart.stringValue('a\\b\nc'), 'a\\\\b\\nc');
});

test('the service is pointed to this control tool, unless it finds it by itself', (t) => {
  const { home, environment } = stage(t, 'prefix/bin/sonra');
  const pointer = path.join(home, 'Library/Application Support/Sonra/ctl-path.txt');
  const beside = path.join(home, 'prefix/share/sonra/cli/ctl.js');
  fs.mkdirSync(path.dirname(beside), { recursive: true });
  fs.symlinkSync(ctlScript, beside);
  autostart.installAutostart({ environment });
  assert.equal(fs.existsSync(pointer), false);
  fs.writeFileSync(path.join(home, '.claude/tts/ctl.js'), '');
  autostart.installAutostart({ environment });
  assert.equal(fs.readFileSync(pointer, 'utf8'), `${ctlScript}\n`);
  assert.equal(ctlOfService(environment.SONRA_PROGRAM, environment), ctlScript);
});

test('uninstall removes the entry, may be said again, and leaves the service its pointer', (t) => {
  const { home, environment, entry } = stage(t);
  autostart.installAutostart({ environment });
  assert.equal(autostart.uninstallAutostart({ environment }), true);
  assert.equal(fs.existsSync(entry), false);
  assert.equal(autostart.uninstallAutostart({ environment }), false);
  assert.equal(fs.existsSync(path.join(home, 'Library/Application Support/Sonra/ctl-path.txt')), true);
});

test('an entry that the desktop switched off is there and not heeded, until it is installed anew', (t) => {
  const { environment, entry } = stage(t);
  for (const line of ['Hidden=true', 'X-GNOME-Autostart-enabled=false']) {
    autostart.installAutostart({ environment });
    fs.writeFileSync(entry, `${fs.readFileSync(entry, 'utf8').replace('X-GNOME-Autostart-enabled=true\n', '')}${line}\n`);
    assert.equal(autostart.isAutostartInstalled({ environment }), true);
    assert.equal(autostart.isAutostartEnabled({ environment }), false);
  }
  autostart.installAutostart({ environment });
  assert.equal(autostart.isAutostartEnabled({ environment }), true);
});

const folder = Symbol('a folder');
const noFolder = Symbol('a file in the place of the folders above it');

// The same cases as those of the service's own check.
const entries = [
  [undefined, false, false],
  [undefined, true, true],
  ['[Desktop Entry]\nExec=sonra\nX-GNOME-Autostart-enabled=true\n', false, true],
  ['[Desktop Entry]\nExec=sonra\nHidden=true', false, false],
  ['[Desktop Entry]\nExec=sonra\nHidden=true', true, false],
  ['[Desktop Entry]\nExec=sonra\nX-GNOME-Autostart-enabled=false', false, false],
  ['[Desktop Entry]\nExec=sonra\n Hidden = true ', false, false],
  ['[Desktop Entry]\n# Hidden=true\nHidden=false\n', false, true],
  ['', true, true],
  [folder, false, false],
  [folder, true, true],
  [noFolder, false, false],
  [noFolder, true, true],
];

function writeEntry(home, entry, text) {
  if (text === noFolder) return fs.writeFileSync(path.join(home, '.config'), '');
  fs.mkdirSync(path.dirname(entry), { recursive: true });
  if (text === folder) return fs.mkdirSync(entry);
  return text === undefined ? undefined : fs.writeFileSync(entry, text);
}

for (const [text, hasAgent, expected] of entries) {
  const name = `the entry ${text?.description ?? JSON.stringify(text)} ${hasAgent ? 'with' : 'without'} a launch agent is ${expected ? 'on' : 'off'}`;
  test(name, (t) => {
    const { home, environment, entry } = stage(t);
    fs.mkdirSync(path.join(home, 'Library/LaunchAgents'), { recursive: true });
    writeEntry(home, entry, text);
    if (hasAgent) fs.writeFileSync(path.join(home, 'Library/LaunchAgents/dev.trelnivorn.sonra.plist'), '');
    assert.equal(autostart.isAutostartEnabled({ environment }), expected);
    const hasEntry = typeof text === 'string';
    assert.equal(autostart.isAutostartInstalled({ environment }), hasEntry || hasAgent);
    if (text !== folder) assert.equal(autostart.uninstallAutostart({ environment }), hasEntry);
  });
}

test('the launch agent that other tools look for counts as in the menu', (t) => {
  const { home, environment } = stage(t);
  fs.mkdirSync(path.join(home, 'Library/LaunchAgents'), { recursive: true });
  fs.writeFileSync(path.join(home, 'Library/LaunchAgents/dev.trelnivorn.sonra.plist'), '');
  assert.equal(autostart.isAutostartInstalled({ environment }), true);
});

test('without a program there is nothing to start at login', (t) => {
  const { home, environment, entry } = stage(t);
  for (const program of [path.join(home, 'none'), home, 'sonra']) {
    assert.throws(() => autostart.installAutostart({ environment: { ...environment, SONRA_PROGRAM: program } }),
      { name: 'NoProgram', message: `${program} is no program that can be started.` });
  }
  assert.equal(fs.existsSync(entry), false);
});

test('the entry lies where the configuration does', (t) => {
  const { home, environment } = stage(t);
  const { path: entry } = autostart.installAutostart({ environment: { ...environment, XDG_CONFIG_HOME: `${home}/conf` } });
  assert.equal(entry, `${home}/conf/autostart/dev.trelnivorn.sonra.desktop`);
});

test('a program on PATH is an executable file in an absolute folder', (t) => {
  const { home } = temporaryHome(t);
  const program = writeProgram(path.join(home, 'c/tool'));
  fs.mkdirSync(path.join(home, 'a/tool'), { recursive: true });
  fs.mkdirSync(path.join(home, 'b'));
  fs.writeFileSync(path.join(home, 'b/tool'), '', { mode: 0o644 });
  const PATH = [path.relative('', path.join(home, 'c')), '', ...['a', 'b', 'c'].map((name) => path.join(home, name))].join(':');
  assert.equal(programOnPath('tool', { PATH }), program);
  assert.equal(programOnPath('tool', {}), undefined);
  assert.equal(sonraProgram({ SONRA_PROGRAM: '/x/sonra', PATH }), '/x/sonra');
});

test('the Node.js of nvm is found by its default alias', (t) => {
  const { home, environment } = temporaryHome(t);
  const node = writeProgram(path.join(home, '.nvm/versions/node/v20.11.0/bin/node'));
  fs.mkdirSync(path.join(home, '.nvm/alias/lts'), { recursive: true });
  const named = (alias) => {
    fs.writeFileSync(path.join(home, '.nvm/alias/default'), `${alias}\n`);
    return nodeWithoutPath(environment, []);
  };
  fs.writeFileSync(path.join(home, '.nvm/alias/lts/iron'), 'v20.11.0\n');
  assert.deepEqual([named('20.11.0'), named('v20.11.0'), named('lts/iron')], [node, node, node]);
  assert.deepEqual([named('lts/none'), named('18.0.0'), named('')], [undefined, undefined, undefined]);
  assert.equal(nodeWithoutPath(environment, ['/none', process.execPath]), process.execPath);
});
