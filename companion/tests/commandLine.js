// Runs the command line in this process, in a test's own home, and gives what it wrote and how it ended.

import fs from 'node:fs';

import { run } from '../lib/cli/main.js';

class Sink {
  text = '';
  write(text) { this.text += text; }
}

/** Neighbours that do nothing, for a test to replace in part. */
export const quietNeighbours = {
  findSessions: async () => [],
  daemonStatus: async () => ({ alive: false }),
  startDaemon: async () => { throw new Error('no daemon is started here'); },
  stopDaemon: async () => ({ stopped: false }),
  mintCode: async () => { throw new Error('no code is minted here'); },
  autostart: async () => { throw new Error('nothing is installed here'); },
};

/**
 * @param {{ environment: NodeJS.ProcessEnv }} home
 * @param {string[]} argv
 */
export async function tts(home, argv, { neighbours = {}, ...around } = {}) {
  const stdout = new Sink();
  const stderr = new Sink();
  const exit = await run(argv, {
    environment: home.environment, stdout, stderr, cwd: home.home, isTerminal: false,
    neighbours: { ...quietNeighbours, ...neighbours }, ...around,
  });
  return { exit, stdout: stdout.text, stderr: stderr.text };
}

export function writeState(home, state) {
  fs.writeFileSync(home.inShared('state.json'), JSON.stringify(state));
}

export function readState(home) {
  try {
    return JSON.parse(fs.readFileSync(home.inShared('state.json'), 'utf8'));
  } catch {
    return {};
  }
}
