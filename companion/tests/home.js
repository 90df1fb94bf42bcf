// A home of a test's own, short enough for a socket's path, gone when the test ends.

import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

/** @returns {{ home: string, shared: string, environment: NodeJS.ProcessEnv, inShared(name: string): string }} */
export function temporaryHome(context) {
  const home = fs.mkdtempSync(path.join(os.tmpdir(), 'sn-'));
  context.after(() => fs.rmSync(home, { recursive: true, force: true }));
  const shared = path.join(home, '.claude/tts');
  fs.mkdirSync(shared, { recursive: true, mode: 0o700 });
  const environment = { PATH: process.env.PATH, HOME: home };
  return { home, shared, environment, inShared: (name) => path.join(shared, name) };
}

/** Waits until `condition` gives something true, which it returns; fails after `limit` milliseconds. */
export async function until(condition, { limit = 10_000, what = 'condition' } = {}) {
  const deadline = performance.now() + limit;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (performance.now() > deadline) throw new Error(`${what} didn't come true within ${limit} ms`);
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
}
