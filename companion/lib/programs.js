// Where the programs lie that this one starts or is started by. A program that starts at login has no shell's PATH, so
// the service's own ways of finding Node.js and ctl.js are known here too. All of this only looks at files.

import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { ctlPointerPath, homeDirectory } from './places.js';

/** The folder of ctl.js: `<prefix>/share/sonra/cli`, or the checkout's `companion`. */
export const companionDirectory = fileURLToPath(new URL('..', import.meta.url)).replace(/\/$/, '');

export const ctlScript = path.join(companionDirectory, 'ctl.js');

export function isExecutableFile(file) {
  try {
    fs.accessSync(file, fs.constants.X_OK);
    return fs.statSync(file).isFile();
  } catch {
    return false;
  }
}

/** The first program of this name on PATH. A relative entry would depend on where this was started, so none counts. */
export function programOnPath(name, environment = process.env) {
  const folders = (environment.PATH ?? '').split(':').filter((folder) => path.isAbsolute(folder));
  return folders.map((folder) => path.join(folder, name)).find(isExecutableFile);
}

/** The service's executable: what SONRA_PROGRAM says, the one installed with this companion, the one on PATH. */
export function sonraProgram(environment = process.env) {
  if (environment.SONRA_PROGRAM) return environment.SONRA_PROGRAM;
  const beside = [path.join(companionDirectory, '../../../bin/sonra'), path.join(companionDirectory, '../build/bin/sonra')];
  return beside.find(isExecutableFile) ?? programOnPath('sonra', environment);
}

/** The Node.js that runs this. */
export function nodeProgram() {
  return process.execPath;
}

function readTrimmed(file) {
  try {
    return fs.readFileSync(file, 'utf8').trim();
  } catch {
    return '';
  }
}

function nvmDefaultNode(environment) {
  const nvm = path.join(homeDirectory(environment), '.nvm');
  const alias = readTrimmed(path.join(nvm, 'alias/default'));
  const version = alias.startsWith('lts/') ? readTrimmed(path.join(nvm, 'alias', alias)) : alias;
  if (!version) return undefined;
  const node = path.join(nvm, 'versions/node', version.startsWith('v') ? version : `v${version}`, 'bin/node');
  return isExecutableFile(node) ? node : undefined;
}

const usualNodes = ['/opt/homebrew/bin/node', '/usr/local/bin/node', '/usr/bin/node'];

/** The Node.js that the service finds without a PATH. */
export function nodeWithoutPath(environment = process.env, installed = usualNodes) {
  return installed.find(isExecutableFile) ?? nvmDefaultNode(environment);
}

/** The ctl.js that the service at `program` finds. */
export function ctlOfService(program, environment = process.env) {
  const home = homeDirectory(environment);
  const prefix = path.dirname(path.dirname(fs.realpathSync(program)));
  const pointed = readTrimmed(ctlPointerPath(environment));
  return [
    ...(pointed ? [pointed] : []),
    path.join(prefix, '../../ctl.js'),
    path.join(home, '.claude/plugins/repo/ctl.js'),
    path.join(home, '.claude/tts/ctl.js'),
    path.join(prefix, 'Contents/Resources/cli/ctl.js'),
    path.join(prefix, 'share/sonra/cli/ctl.js'),
  ].find((file) => fs.existsSync(file));
}
