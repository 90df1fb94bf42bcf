// Measures what finding sessions costs: node bench/discovery.mjs [seconds at rest, 60]
//
// Two thousand transcripts of 200 KB lie on the disk, 60 of them younger than a day. Printed, as one JSON object, are the
// first look, in a process of its own, and of the daemon with all its parts the memory, the processor time at rest, and
// how long a new session takes to stand in the list, from rest and while another one is being written.

import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { monitorEventLoopDelay } from 'node:perf_hooks';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

import { startDaemon, stopDaemon } from '../companion/lib/daemon/daemonControl.js';
import { Discovery } from '../companion/lib/discovery/discovery.js';

const transcripts = 2000;
const ticksPerSecond = 100;
const day = 24 * 3600;

const line = (value) => `${JSON.stringify(value)}\n`;

/** A conversation of about 200 KB. */
function conversation() {
  const text = (i) => `Reply ${i}. ${'Some words of it. '.repeat(100)}`;
  const turn = (i) => line({ type: 'assistant', uuid: `a${i}`, cwd: '/work/app', gitBranch: 'main', isSidechain: false,
    message: { role: 'assistant', content: [{ type: 'text', text: text(i) }] } });
  const first = line({ type: 'user', uuid: 'u', cwd: '/work/app', message: { role: 'user',
    content: 'Please build it' } });
  return first + Array.from({ length: 100 }, (_, i) => turn(i)).join('');
}

function layOut(home) {
  const text = conversation();
  for (let i = 0; i < transcripts; i += 1) {
    const folder = path.join(home, `.claude/projects/-work-p${i % 50}`);
    fs.mkdirSync(folder, { recursive: true });
    const file = path.join(folder, `s${i}.jsonl`);
    fs.writeFileSync(file, text);
    const age = i < 60 ? i * 600 : day + (i % 13) * day;
    fs.utimesSync(file, Date.now() / 1000 - age, Date.now() / 1000 - age);
  }
}

/** The process whose first look is measured. */
async function lookOnce() {
  const delay = monitorEventLoopDelay({ resolution: 1 });
  delay.enable();
  const begin = performance.now();
  let discovery;
  const rows = await new Promise((resolve) => {
    discovery = new Discovery({ writeRows: async (found) => resolve(found.length) });
    discovery.start();
  });
  const ms = Math.round(performance.now() - begin);
  const cpu = process.cpuUsage();
  const watched = discovery.watched;
  await discovery.stop();
  const cpuMs = Math.round((cpu.user + cpu.system) / 1000);
  console.log(JSON.stringify({
    firstLookMs: ms, rows, firstLookCpuMs: (cpu.user + cpu.system) / 1000, longestPauseMs: delay.max / 1e6, watched }));
}

function cpuTicks(pid) {
  const fields = fs.readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  return Number(fields[11]) + Number(fields[12]);
}

function memory(pid) {
  const text = fs.readFileSync(`/proc/${pid}/smaps_rollup`, 'utf8');
  const of = (name) => Number(new RegExp(`^${name}:\\s+(\\d+) kB`, 'm').exec(text)[1]) / 1024;
  return { pssMb: of('Pss'), rssMb: of('Rss') };
}

/** Milliseconds from a session's first line to its row. */
async function timeToRow(home, name) {
  const state = path.join(home, '.claude/tts/state.json');
  const begin = performance.now();
  fs.writeFileSync(path.join(home, `.claude/projects/-work-p7/${name}.jsonl`),
    line({ type: 'user', cwd: '/work/app', message: { content: 'New' } }));
  while (!fs.readFileSync(state, 'utf8').includes(name)) {
    if (performance.now() - begin > 60_000) throw new Error('never listed');
    await sleep(5);
  }
  return Math.round(performance.now() - begin);
}

async function restCost(pid, seconds) {
  const before = cpuTicks(pid);
  await sleep(seconds * 1000);
  const used = (cpuTicks(pid) - before) / ticksPerSecond;
  return (100 * used) / seconds;
}

async function whileWritten(home, pid) {
  const live = path.join(home, '.claude/projects/-work-p3/s3.jsonl');
  const writing = setInterval(() => fs.appendFileSync(live, line({ type: 'progress', at: Date.now() })), 100);
  const before = cpuTicks(pid);
  const begin = performance.now();
  const times = [];
  for (let i = 0; i < 5; i += 1) {
    await sleep(3000 + 300 * i);
    times.push(await timeToRow(home, `busy${i}`));
  }
  clearInterval(writing);
  const used = (cpuTicks(pid) - before) / ticksPerSecond;
  return { busyMs: times, busyPercent: (100_000 * used) / (performance.now() - begin) };
}

async function fromRest(home) {
  const times = [];
  for (let i = 0; i < 4; i += 1) {
    await sleep(5000);
    times.push(await timeToRow(home, `quiet${i}`));
  }
  return times;
}

async function measure(home, seconds) {
  layOut(home);
  const environment = { PATH: process.env.PATH, HOME: home, SONRA_BRIDGE_PORT: '0' };
  const self = fileURLToPath(import.meta.url);
  const look = execFileSync(process.execPath, [fileURLToPath(import.meta.url), '--look'], { env: environment });
  const { pid } = await startDaemon({ environment });
  try {
    // Until it has come to rest.
    await sleep(45_000);
    const restPercent = await restCost(pid, seconds);
    const fromRestMs = await fromRest(home);
    return { ...JSON.parse(look), restPercent, fromRestMs, ...(await whileWritten(home, pid)), ...memory(pid) };
  } finally {
    await stopDaemon({ environment });
  }
}

if (process.argv[2] === '--look') {
  await lookOnce();
} else {
  const home = fs.mkdtempSync(path.join(os.tmpdir(), 'sn-'));
  try {
    console.log(JSON.stringify(await measure(home, Number(process.argv[2] ?? 60))));
  } finally {
    fs.rmSync(home, { recursive: true, force: true });
  }
}
