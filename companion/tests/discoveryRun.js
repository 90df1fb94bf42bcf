// The search for sessions as the daemon runs it, at a test's own pace.

import fs from 'node:fs';

import { Discovery } from '../lib/discovery/discovery.js';
import { now } from './agents.js';
import { until } from './home.js';

/** A clock that stands until it is moved, and one timer. */
class HandClock {
  time = now;
  timer;

  now() { return this.time; }

  setTimeout(callback, delay) {
    this.timer = { callback, at: this.time + delay };
    return this.timer;
  }

  clearTimeout(timer) {
    if (this.timer === timer) this.timer = undefined;
  }

  /** How long the timer still has to run. */
  get wait() {
    return this.timer && this.timer.at - this.time;
  }

  /** Moves to the timer's moment and lets it ring; resolves when the next one is set. */
  async ring() {
    const { callback, at } = this.timer;
    this.timer = undefined;
    this.time = Math.max(this.time, at);
    callback();
    await until(() => this.timer, { what: 'the next timer' });
  }
}

export function recordingLog() {
  const lines = [];
  const log = { lines, child: () => log };
  for (const level of ['debug', 'info', 'warn', 'error']) {
    log[level] = (message, ...rest) => lines.push([level, message, ...rest]);
  }
  return log;
}

export function begin(t, home, options = {}) {
  const clock = new HandClock();
  const log = recordingLog();
  const surroundings = { environment: home.environment, clock, log, runningFolders: async () => [] };
  const discovery = new Discovery({ ...surroundings, ...options });
  t.after(() => discovery.stop());
  discovery.start();
  return { clock, log, discovery };
}

export const state = (home) => JSON.parse(fs.readFileSync(home.inShared('state.json'), 'utf8'));
export const listed = (home) => state(home).discoveredSessions;
export const stamp = (home) => {
  const { ino, mtimeMs, size } = fs.statSync(home.inShared('state.json'));
  return `${ino} ${mtimeMs} ${size}`;
};

/** Changes something, and waits until the system has told of it, which shows in the timer. */
export async function change(clock, action) {
  // At rest, so that the next look may come at once.
  while (clock.wait <= 4000) await clock.ring();
  action();
  await until(() => clock.wait <= 100, { what: 'a hurried look' });
}
