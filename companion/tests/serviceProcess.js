// The built service in a test's home, without sound, windows or a bus, ended by its process when the test ends.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';

import { sonraProgram } from '../lib/programs.js';
import { isServiceRunning } from '../lib/serviceSocket.js';
import { until } from './home.js';

/** Starts it and resolves when it takes commands. */
export async function startService(t, home) {
  const program = sonraProgram();
  assert.ok(program, 'This test needs the built service; SONRA_PROGRAM can name it.');
  // It must not start a daemon by itself: the test does.
  const environment = { ...home.environment, QT_QPA_PLATFORM: 'offscreen', TTS_DISABLE_CTL: '1', XDG_RUNTIME_DIR: home.home,
    PULSE_SERVER: `unix:${home.home}/none`, DBUS_SESSION_BUS_ADDRESS: `unix:path=${home.home}/none` };
  const child = spawn(program, [], { env: environment, stdio: 'ignore' });
  const exit = once(child, 'exit');
  const end = async (signal = 'SIGTERM') => {
    child.kill(signal);
    const deadline = setTimeout(() => child.kill('SIGKILL'), 10_000);
    await exit;
    clearTimeout(deadline);
  };
  t.after(() => end());
  await until(() => isServiceRunning({ path: home.inShared('service.sock') }), { limit: 30_000, what: 'the service' });
  return { pid: child.pid, end };
}

export function serviceLog(home) {
  const lines = fs.readFileSync(path.join(home.home, 'Library/Logs/Sonra/sonra.ndjson'), 'utf8').split('\n');
  return lines.filter(Boolean).map((line) => JSON.parse(line));
}
