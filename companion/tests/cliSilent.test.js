// The command line beside a service that runs and doesn't answer: the process that listens is stopped.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import test from 'node:test';

import { readState, tts, writeState } from './commandLine.js';
import { temporaryHome } from './home.js';

async function stoppedService(t, home) {
  const program = "require('net').createServer(() => {}).listen(process.argv[1], () => console.log('listening'))";
  const child = spawn(process.execPath, ['-e', program, home.inShared('service.sock')], { stdio: ['ignore', 'pipe', 'inherit'] });
  t.after(() => child.kill('SIGKILL'));
  await once(child.stdout, 'data');
  child.kill('SIGSTOP');
}

test('a service that does not answer is neither told to be gone nor gone round', async (t) => {
  const home = temporaryHome(t);
  const sessions = [{ id: 'aaaa', cwd: '/srv/a' }];
  writeState(home, { sessions });
  fs.writeFileSync(home.inShared('now-playing.json'), '{"state":"playing","elapsed":1,"duration":2}');
  await stoppedService(t, home);
  const serviceParts = { program: async () => { throw new Error('started once more'); } };
  const neighbours = { serviceParts, stopDaemon: async () => { throw new Error('ended without the service'); } };
  const words = [['pause'], ['off'], ['on'], ['start'], ['quit'], ['pause', '--start']];
  const ended = await Promise.all(words.map((argv) => tts(home, [...argv, '--json'], { neighbours })));
  ended.forEach(({ exit, stdout, stderr }, i) => {
    assert.deepEqual([exit, stderr], [69, "tts: The Sonra service doesn't answer.\n"], words[i].join(' '));
    assert.equal(JSON.parse(stdout).error, 'serviceSilent');
  });
  assert.deepEqual(readState(home), { sessions });
  const [mute, status, report] = await Promise.all([['mute'], ['status'], ['status', '--json']].map((argv) => tts(home, argv)));
  assert.deepEqual([mute.exit, mute.stderr], [0, "The Sonra service doesn't answer; this is kept for when it does.\n"]);
  assert.deepEqual([status.exit, status.stderr], [69, "The Sonra service doesn't answer.\n"]);
  assert.match(status.stdout, /^Service {3}not answering\n/);
  assert.deepEqual(JSON.parse(report.stdout).service, { running: true, responding: false });
});
