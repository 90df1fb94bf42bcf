import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import test from 'node:test';

import { askDaemon } from '../lib/daemon/channel.js';
import { daemonStatus, startDaemon, stopDaemon } from '../lib/daemon/daemonControl.js';
import { packageVersion } from '../lib/version.js';
import { ctl, daemonHome, isAlive, logRecords, pidFile } from './daemonProcess.js';
import { temporaryHome, until } from './home.js';

const mainScript = new URL('../lib/daemon/main.js', import.meta.url).pathname;

/** The fields of /proc/<pid>/stat behind the name: state, parent, group, session, terminal. */
function processFields(pid) {
  const stat = fs.readFileSync(`/proc/${pid}/stat`, 'latin1');
  return stat.slice(stat.lastIndexOf(')') + 2).split(' ').map(Number);
}

/** Descriptors and their files; those that the process closes meanwhile are left out. */
function openFiles(pid) {
  return fs.readdirSync(`/proc/${pid}/fd`).flatMap((fd) => {
    try {
      return [[fd, fs.readlinkSync(`/proc/${pid}/fd/${fd}`)]];
    } catch {
      return [];
    }
  });
}

/** Every process of the daemon in this home. */
function daemonsOf(home) {
  return fs.readdirSync('/proc').filter((name) => /^\d+$/.test(name)).filter((pid) => {
    try {
      return fs.readFileSync(`/proc/${pid}/cmdline`, 'utf8').includes(mainScript) &&
        fs.readFileSync(`/proc/${pid}/environ`, 'utf8').split('\0').includes(`HOME=${home.home}`);
    } catch {
      return false;
    }
  });
}

test('standby leaves a daemon that has nothing of whoever started it', async (t) => {
  const home = daemonHome(t);
  const extra = fs.openSync(home.inShared('of-the-terminal'), 'w');
  t.after(() => fs.closeSync(extra));
  // A descriptor of a high number is one that Node.js itself doesn't look for.
  const stdio = ['ignore', 'pipe', 'pipe', ...Array(37).fill('ignore'), extra];
  const { code, stderr } = await ctl(home, ['standby'],
    { cwd: home.home, stdio, environment: { SECRET_KEY: 'x', NODE_OPTIONS: '--no-deprecation', XDG_DATA_HOME: '/data' } });
  assert.deepEqual({ code, stderr }, { code: 0, stderr: '' });

  const pid = pidFile(home);
  const [, , group, session, terminal] = processFields(pid);
  assert.deepEqual({ group, session, terminal }, { group: pid, session: pid, terminal: 0 });
  assert.equal(fs.readlinkSync(`/proc/${pid}/cwd`), '/');
  assert.match(fs.readFileSync(`/proc/${pid}/status`, 'utf8'), /^Umask:\s+0077$/m);
  const open = openFiles(pid);
  assert.deepEqual(open.slice(0, 2).map(([, file]) => file), ['/dev/null', '/dev/null']);
  assert.deepEqual(open.filter(([, file]) => file.includes('of-the-terminal')), []);
  const names = fs.readFileSync(`/proc/${pid}/environ`, 'utf8').split('\0').filter(Boolean).map((line) => line.split('=')[0]);
  assert.deepEqual(names.sort(), ['HOME', 'PATH', 'SONRA_BRIDGE_PORT', 'XDG_DATA_HOME']);
  assert.equal(fs.statSync(home.inShared('daemon.sock')).mode & 0o777, 0o600);
  assert.equal(fs.statSync(home.inShared('daemon.log')).mode & 0o777, 0o600);
});

test('of many that start at once one becomes the daemon, and all succeed', async (t) => {
  const home = daemonHome(t);
  const results = await Promise.all(Array.from({ length: 6 }, () => ctl(home, ['standby', '--json'])));
  assert.deepEqual(results.map(({ code, stderr }) => code + stderr), Array(6).fill('0'));
  const answers = results.map(({ stdout }) => JSON.parse(stdout));
  assert.deepEqual(new Set(answers.map(({ pid }) => pid)), new Set([pidFile(home)]));
  assert.equal(answers.filter(({ started }) => started).length, 1);
  assert.deepEqual(logRecords(home).map(({ msg }) => msg).filter((msg) => msg.startsWith('daemon ')), ['daemon up']);
  assert.equal(fs.existsSync(home.inShared('daemon.lock')), false);
  await stopDaemon(home);
  // It says goodbye a moment longer than it is there; none of the others is left that would become one now.
  await until(() => daemonsOf(home).length === 0, { what: 'the end of all' });
  assert.deepEqual(await daemonStatus(home), { alive: false });
  assert.equal(fs.existsSync(home.inShared('daemon.sock')), false);
});

/** A listener at the daemon's place that answers `stop` with another process's id than its own, as if it had just come. */
const successor = `
  const fs = require('node:fs');
  const [socket, file] = process.argv.slice(1);
  require('node:net').createServer((client) => client.on('data', (text) => {
    const isStop = JSON.parse(text).ask === 'stop';
    client.end(JSON.stringify({ pid: isStop ? 999999999 : process.pid, stopping: isStop }));
  })).listen(socket, () => fs.writeFileSync(file, String(process.pid)));`;

test('one that came in the place of the daemon that was told to end is left alone', async (t) => {
  const home = temporaryHome(t);
  const child = spawn(process.execPath, ['-e', successor, home.inShared('daemon.sock'), home.inShared('daemon.pid')]);
  t.after(() => child.kill('SIGKILL'));
  await until(() => fs.existsSync(home.inShared('daemon.pid')) && pidFile(home) === child.pid);
  assert.deepEqual(await stopDaemon({ ...home, limit: 300 }), { stopped: true });
  assert.deepEqual([isAlive(child.pid), (await daemonStatus(home)).pid], [true, child.pid]);
});

test('a daemon that is told to end before it is there does not come', async (t) => {
  const home = daemonHome(t);
  // It can't take its place for as long as another holds the lock: nobody is there to be told.
  fs.writeFileSync(home.inShared('daemon.lock'), String(process.pid));
  const starting = startDaemon(home);
  await until(() => daemonsOf(home).length === 1);
  assert.deepEqual(await stopDaemon(home), { stopped: false });
  fs.rmSync(home.inShared('daemon.lock'));
  await assert.rejects(starting, { name: 'DaemonToldToEnd' });
  await until(() => daemonsOf(home).length === 0);
  assert.deepEqual([await daemonStatus(home), fs.existsSync(home.inShared('daemon.sock'))], [{ alive: false }, false]);
  // The wish was for that one only.
  assert.equal((await startDaemon(home)).started, true);
});

test('one whose start was ended behind it finds the wish by itself', async (t) => {
  const home = daemonHome(t);
  fs.writeFileSync(home.inShared('daemon.end'), 'newer');
  const child = spawn(process.execPath, [mainScript, 'older'], { env: home.environment, stdio: 'ignore' });
  await until(() => child.exitCode !== null);
  assert.equal(child.exitCode, 0);
  assert.deepEqual(fs.readdirSync(home.shared).sort(), ['daemon.end', 'daemon.log']);
  assert.deepEqual(logRecords(home).map(({ msg }) => msg), ['daemon ends']);
});

/**
 * A start whose daemon isn't up for as long as `hold` lies there, as on a machine that is busy. Its time goes by hand.
 */
async function slowStart(t) {
  const home = daemonHome(t);
  const hold = home.inShared('daemon.lock');
  fs.writeFileSync(hold, String(process.pid));
  const clock = { time: 0, looks: 0, now() { this.looks += 1; return this.time; } };
  const starting = startDaemon({ ...home, now: () => clock.now() });
  const settled = {};
  starting.then(() => { settled.how = 'up'; }, () => { settled.how = 'failed'; });
  const pid = Number(await until(() => daemonsOf(home)[0]));
  return { home, hold, clock, settled, starting, pid };
}

test('a daemon that is slow to come up, as at login, is waited for', async (t) => {
  const { hold, clock, settled, starting, pid } = await slowStart(t);
  Object.assign(clock, { time: 19_000, looks: 0 });
  await until(() => clock.looks > 2);
  assert.deepEqual([settled, isAlive(pid)], [{}, true]);
  fs.rmSync(hold);
  assert.deepEqual(await starting, { pid, started: true });
});

test('one that does not come up at all is withdrawn', async (t) => {
  const { home, clock, starting } = await slowStart(t);
  clock.time = 21_000;
  await assert.rejects(starting, { name: 'DaemonError', message: /did not come up within 20 s/ });
  await until(() => daemonsOf(home).length === 0);
});

test('one that is slow to come up is withdrawn by whoever stops it', async (t) => {
  const { home, clock, starting } = await slowStart(t);
  Object.assign(clock, { time: 19_000, looks: 0 });
  await until(() => clock.looks > 2);
  assert.deepEqual(await stopDaemon(home), { stopped: false });
  await assert.rejects(starting, { name: 'DaemonToldToEnd' });
  await until(() => daemonsOf(home).length === 0);
});

test('a daemon that is not up in time does not come later', async (t) => {
  const home = daemonHome(t);
  await assert.rejects(startDaemon({ ...home, limit: 15 }), { name: 'DaemonError' });
  await until(() => daemonsOf(home).length === 0);
});

test('a daemon that comes up sweeps what killed ones have left', async (t) => {
  const home = daemonHome(t);
  const left = home.inShared('state.json.lock.999999999');
  fs.writeFileSync(left, '');
  fs.utimesSync(left, 1, 1);
  await startDaemon(home);
  await until(() => !fs.existsSync(left));
});

test('a second daemon ends at once and leaves the first alone', async (t) => {
  const home = daemonHome(t);
  const { pid } = await startDaemon(home);
  const second = spawn(process.execPath, [mainScript], { env: home.environment, stdio: 'ignore' });
  assert.deepEqual(await once(second, 'exit'), [0, null]);
  assert.equal((await daemonStatus(home)).pid, pid);
  assert.equal(pidFile(home), pid);
});

test('one that is told to end before it is the daemon leaves no lock and says nothing', async (t) => {
  const home = temporaryHome(t);
  // It asks who is there for as long as nobody answers, and holds the lock meanwhile.
  const silent = net.createServer(() => {}).listen(home.inShared('daemon.sock'));
  t.after(() => silent.close());
  await once(silent, 'listening');
  const asked = once(silent, 'connection');
  const child = spawn(process.execPath, [mainScript], { env: home.environment, stdio: 'ignore' });
  const [connection] = await asked;
  t.after(() => connection.destroy());
  connection.on('error', () => {});
  assert.equal(fs.readFileSync(home.inShared('daemon.lock'), 'utf8'), String(child.pid));
  child.kill('SIGTERM');
  assert.deepEqual(await once(child, 'exit'), [0, null]);
  assert.deepEqual(fs.readdirSync(home.shared).filter((name) => /lock|log/.test(name)), []);
});

test('a daemon of another version is replaced, and one of the same is not', async (t) => {
  const home = daemonHome(t);
  const old = `${home.home}/old`;
  fs.cpSync(new URL('..', import.meta.url).pathname, old, { recursive: true });
  fs.writeFileSync(`${old}/package.json`, '{"type":"module","version":"0.0.1"}');
  const { startDaemon: startOld } = await import(`${old}/lib/daemon/daemonControl.js`);
  const before = await startOld(home);
  assert.equal((await daemonStatus(home)).version, '0.0.1');
  const results = await Promise.all([startDaemon(home), startDaemon(home), startDaemon(home)]);
  assert.equal(results.filter(({ started }) => started).length, 1);
  assert.equal(new Set(results.map(({ pid }) => pid)).size, 1);
  await until(() => !isAlive(before.pid));
  const { pid, version } = await daemonStatus(home);
  assert.deepEqual([pid, version], [results[0].pid, packageVersion()]);
  assert.deepEqual(await startDaemon(home), { pid, started: false });
});

test('a daemon of another version that was started by way of a link is replaced', async (t) => {
  const home = daemonHome(t);
  const old = `${home.home}/old`;
  fs.cpSync(new URL('..', import.meta.url).pathname, old, { recursive: true });
  fs.writeFileSync(`${old}/package.json`, '{"type":"module","version":"0.0.1"}');
  const link = `${home.home}/link`;
  fs.symlinkSync(home.home, link);
  const { startDaemon: startOld } = await import(`${old}/lib/daemon/daemonControl.js`);
  const before = await startOld({ environment: { ...home.environment, HOME: link } });
  const { started } = await startDaemon(home);
  assert.equal(started, true);
  await until(() => !isAlive(before.pid));
});

test('what Node.js says goes to a file of its own, which begins anew when it has grown', async (t) => {
  const home = daemonHome(t);
  const file = home.inShared('daemon.stderr.log');
  fs.writeFileSync(file, 'x'.repeat(1024 * 1024 + 1));
  const { pid } = await startDaemon(home);
  assert.equal(fs.readlinkSync(`/proc/${pid}/fd/2`), file);
  assert.equal(fs.statSync(file).size, 0);
  await stopDaemon(home);
  fs.writeFileSync(file, 'why it ended');
  await startDaemon(home);
  assert.equal(fs.readFileSync(file, 'utf8'), 'why it ended');
});

test('a killed daemon leaves nothing that keeps the next from starting', async (t) => {
  const home = daemonHome(t);
  const { pid } = await startDaemon(home);
  process.kill(pid, 'SIGKILL');
  await until(async () => !(await daemonStatus(home)).alive);
  // Its number is that of a live process meanwhile.
  fs.writeFileSync(home.inShared('daemon.pid'), `${process.pid}\n`);
  assert.deepEqual(await stopDaemon(home), { stopped: false });
  const next = await startDaemon(home);
  assert.equal(next.started, true);
  assert.equal(pidFile(home), next.pid);
});

test('stop-daemon ends it, takes its files away, and may be said again', async (t) => {
  const home = daemonHome(t);
  const { pid } = await startDaemon(home);
  assert.deepEqual(await ctl(home, ['stop-daemon']), { code: 0, stdout: 'The daemon was ended.\n', stderr: '' });
  await until(() => !isAlive(pid));
  assert.deepEqual(fs.readdirSync(home.shared).filter((name) => /^daemon\.(pid|sock|lock)/.test(name)), []);
  assert.deepEqual(await ctl(home, ['stop-daemon']), { code: 0, stdout: 'No daemon ran.\n', stderr: '' });
});

test('a daemon that hangs is ended by its process, and is not started beside', async (t) => {
  const home = daemonHome(t);
  const { pid } = await startDaemon(home);
  process.kill(pid, 'SIGSTOP');
  t.after(() => isAlive(pid) && process.kill(pid, 'SIGKILL'));
  const status = await daemonStatus({ ...home, limit: 100 });
  assert.deepEqual([status.alive, status.responding, status.pid], [true, false, pid]);
  await assert.rejects(startDaemon(home), { name: 'DaemonError', message: /does not answer/ });
  assert.deepEqual(await stopDaemon({ ...home, limit: 100 }), { stopped: true });
  await until(() => !isAlive(pid));
});

test('the daemon ends on the signals by which it is told to', async (t) => {
  for (const signal of ['SIGTERM', 'SIGINT']) {
    const home = daemonHome(t);
    const { pid } = await startDaemon(home);
    process.kill(pid, 'SIGHUP');
    process.kill(pid, signal);
    await until(() => !isAlive(pid));
    assert.equal(logRecords(home).find(({ msg }) => msg === 'daemon ends').input.reason, signal);
    assert.equal(fs.existsSync(home.inShared('daemon.sock')), false);
  }
});

test('a daemon whose folder was taken away ends, and leaves its successor alone', async (t) => {
  const home = daemonHome(t);
  const { pid } = await startDaemon(home);
  fs.renameSync(home.shared, `${home.shared}-away`);
  const next = await startDaemon(home);
  assert.notEqual(next.pid, pid);
  await until(() => !isAlive(pid));
  const { alive, pid: present } = await daemonStatus(home);
  assert.deepEqual([alive, present, pidFile(home)], [true, next.pid, next.pid]);
});

test('a daemon.pid that was taken away is written again', async (t) => {
  const home = daemonHome(t);
  const { pid } = await startDaemon(home);
  fs.rmSync(home.inShared('daemon.pid'));
  await until(() => fs.existsSync(home.inShared('daemon.pid')));
  assert.equal(pidFile(home), pid);
});

test('a daemon that cannot start is reported with the place of its log', async (t) => {
  const home = daemonHome(t);
  // Nobody can listen at a path this long.
  const environment = { ...home.environment, HOME: `${home.home}/${'long/'.repeat(30)}` };
  const { code, stderr } = await ctl(home, ['standby'], { environment });
  assert.equal(code, 1);
  assert.match(stderr, /^ctl\.js: [^\n]+\n$/);
});

test('what is no question gets a report, and what has no end is cut off', async (t) => {
  const home = daemonHome(t);
  await startDaemon(home);
  const socket = net.connect(home.inShared('daemon.sock'));
  socket.on('error', () => {});
  socket.write('x'.repeat(100_000));
  // Sooner than for one who merely says nothing.
  await until(() => socket.closed, { limit: 3000 });
  assert.equal((await askDaemon('what?', { ...home, limit: 10_000 })).pid, pidFile(home));
});

test('where the folder cannot be made the daemon says why', async (t) => {
  const home = daemonHome(t);
  fs.rmSync(home.shared, { recursive: true });
  fs.writeFileSync(home.shared, '');
  const { code, stderr } = await ctl(home, ['standby']);
  assert.equal(code, 1);
  assert.match(stderr, /^ctl\.js: [^\n]+\n$/);
});

test('standby may be started by a process that goes at once', async (t) => {
  const home = daemonHome(t);
  const shell = spawn('/bin/sh', ['-c', '"$0" "$1" standby >/dev/null 2>&1 &', process.execPath,
    new URL('../ctl.js', import.meta.url).pathname], { env: home.environment, stdio: 'ignore' });
  await once(shell, 'exit');
  await until(async () => (await daemonStatus(home)).alive);
});

test('one who holds a connection and says nothing does not keep the daemon', async (t) => {
  const home = daemonHome(t);
  const { pid } = await startDaemon(home);
  const socket = net.connect(home.inShared('daemon.sock'));
  socket.on('error', () => {});
  t.after(() => socket.destroy());
  await once(socket, 'connect');
  assert.deepEqual(await stopDaemon(home), { stopped: true });
  await until(() => !isAlive(pid), { limit: 3000 });
});

test('an error that nobody caught is written down and borne; a row of them ends the daemon with 1', async (t) => {
  const home = daemonHome(t);
  const preload = `${home.home}/preload.mjs`;
  fs.writeFileSync(preload, `let count = 0;
    process.on('SIGUSR2', () => {
      count += 1;
      if (count % 2 === 0) Promise.reject(new Error('rejected')); else throw new Error('thrown');
    });`);
  const child = spawn(process.execPath, ['--import', preload, mainScript], { env: home.environment, stdio: 'ignore' });
  const exit = once(child, 'exit');
  const errors = () => logRecords(home).filter(({ msg }) => msg === 'unhandled error');
  await until(async () => (await daemonStatus(home)).alive);
  for (let count = 1; count <= 10; count += 1) {
    child.kill('SIGUSR2');
    await until(() => errors().length === count);
  }
  assert.equal((await daemonStatus(home)).pid, child.pid);
  assert.deepEqual(errors().slice(0, 2).map(({ cause }) => cause.message), ['thrown', 'rejected']);
  assert.match(errors()[0].stack, /preload\.mjs/);
  child.kill('SIGUSR2');
  assert.deepEqual(await exit, [1, null]);
});
