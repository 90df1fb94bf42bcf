// The service, the daemon and two other programs rewrite one document for SOAK_SECONDS (20 by default), as fast as they
// can. Afterwards, and whenever it is looked at meanwhile, every row, setting and cursor must be there.

import assert from 'node:assert/strict';
import { randomUUID } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { startDaemon } from '../../lib/daemon/daemonControl.js';
import { sendCommand } from '../../lib/serviceSocket.js';
import { updateDocument } from '../../lib/sharedDocument.js';
import { daemonHome, logRecords } from '../daemonProcess.js';
import { until } from '../home.js';
import { startWriter } from '../otherWriter.js';
import { serviceLog, startService } from '../serviceProcess.js';

const seconds = Number(process.env.SOAK_SECONDS || 20);
const attachEvery = Math.max(1000, (seconds * 1000) / 12);
const unknown = { kept: [1, { deep: 'ü\u2028' }], big: 9007199254740991 };

/** One agent's line that moves the cursor and says nothing aloud. */
const line = (session, cwd, number) => `${JSON.stringify({
  type: 'user', uuid: `u-${number}`, sessionId: session, cwd, gitBranch: 'main', timestamp: new Date().toISOString(),
  message: { role: 'user', content: `Question ${number}: ${'why '.repeat(number % 50)}` } })}\n`;

/** One agent's line that changes what the list of sessions tells. */
const reply = (number) => `${JSON.stringify({ type: 'assistant', uuid: `a-${number}`, timestamp: new Date().toISOString(),
  message: { role: 'assistant', content: [{ type: 'text', text: `Reply ${number}` }] } })}\n`;

const isLockTimeout = ({ msg, cause }) => /state-lock.* timeout/.test(`${msg} ${cause?.message ?? ''}`);

class Stage {
  constructor(home) {
    this.home = home;
    this.state = home.inShared('state.json');
    this.sessions = [];
    this.increments = 0;
    this.speed = 1;
    this.looks = 0;
    this.lines = 0;
    this.detached = [];
    this.lists = new Set();
    this.over = false;
  }

  newSession() {
    const session = this.newTranscript(`/work/proj${this.sessions.length}`);
    this.sessions.push(session);
    return session;
  }

  newTranscript(cwd) {
    const id = randomUUID();
    const transcript = path.join(this.home.home, '.claude/projects', cwd.replaceAll('/', '-'), `${id}.jsonl`);
    fs.mkdirSync(path.dirname(transcript), { recursive: true });
    fs.writeFileSync(transcript, line(id, cwd, 0));
    return { id, cwd, transcript, attached: false };
  }

  read() {
    return JSON.parse(fs.readFileSync(this.state, 'utf8'));
  }

  row(id) {
    return this.read().sessions?.find((row) => row.id === id);
  }

  async attach(session) {
    await sendCommand('attach', { id: session.id, cwd: session.cwd, source: 'claude-code', title: 'Soak' },
      { path: this.home.inShared('service.sock') });
    await until(() => this.row(session.id), { limit: 30_000, what: 'the row of an attached session' });
    session.attached = true;
  }

  /** The agents: every attached transcript grows. */
  async grow() {
    while (!this.over) {
      for (const { id, cwd, transcript } of this.sessions) fs.appendFileSync(transcript, line(id, cwd, this.lines += 1));
      await sleep(40);
    }
  }

  /** Agents that nobody listens to: what they say last stands in the list of sessions. */
  async talk() {
    const others = [0, 1, 2].map(() => this.newTranscript('/work/unheard'));
    for (let number = 0; !this.over; number += 1) {
      for (const { transcript } of others) fs.appendFileSync(transcript, reply(number));
      await sleep(100);
    }
  }

  async detach(session) {
    this.sessions.splice(this.sessions.indexOf(session), 1);
    await sendCommand('detach', { id: session.id }, { path: this.home.inShared('service.sock') });
    await until(() => !this.row(session.id), { limit: 30_000, what: 'the end of a detached row' });
    this.detached.push(session.id);
  }

  /** A person, who attaches one session after the other, and every third for a moment only. */
  async attachMore() {
    for (let number = 1; !this.over; number += 1) {
      const session = this.newSession();
      await this.attach(session);
      if (number % 3 === 0) await this.detach(session);
      await sleep(attachEvery);
    }
  }

  /** A third program with a setting and a counter of its own. */
  async toggle() {
    while (!this.over) {
      const speed = this.speed === 1 ? 1.75 : 1;
      await updateDocument(this.state, (document) => {
        document.set('speed', speed);
        document.set('soakCounter', (document.get('soakCounter') ?? 0) + 1);
      });
      this.speed = speed;
      this.increments += 1;
      await sleep(5);
    }
  }

  /** What is read at any moment is whole, and has all that was there before. */
  async look() {
    while (!this.over) {
      const gone = [...this.detached];
      const least = this.increments;
      const attached = this.sessions.filter((session) => session.attached);
      const state = this.read();
      const known = attached.filter((session) => this.sessions.includes(session)).map(({ id }) => id);
      const present = new Set(state.sessions.map(({ id }) => id));
      assert.deepEqual(known.filter((id) => !present.has(id)), [], 'rows that were lost');
      assert.deepEqual(gone.filter((id) => present.has(id)), [], 'rows that came back');
      this.lists.add(JSON.stringify(state.discoveredSessions));
      assert.ok(state.soakCounter >= least, 'a counter that went back');
      assert.deepEqual(state.theirs, unknown);
      this.looks += 1;
      await sleep(20);
    }
  }
}

test(`four writers lose nothing in ${seconds} s`, { timeout: (seconds + 120) * 1000 }, async (t) => {
  const home = daemonHome(t);
  const stage = new Stage(home);
  await updateDocument(stage.state, (document) => document.set('theirs', unknown));
  await updateDocument(stage.state, (document) => document.set('soakCounter', 0));
  const service = await startService(t, home);
  await startDaemon(home);
  await stage.attach(stage.newSession());

  const other = startWriter(t, stage.state, 'otherCounter', [1.25, 1.5]);
  const end = sleep(seconds * 1000).then(() => { stage.over = true; });
  const work = [stage.grow(), stage.talk(), stage.attachMore(), stage.toggle(), stage.look()];
  await Promise.all([end, ...work]).finally(() => { stage.over = true; });
  const otherCount = await other.stop();

  for (const { id, transcript } of stage.sessions) {
    const size = fs.statSync(transcript).size;
    await until(() => stage.row(id)?.offset === size, { limit: 30_000, what: `the cursor ${size} of ${id}` });
  }
  const newest = new Set(stage.sessions.slice(-40).map(({ id }) => id));
  await until(() => stage.read().discoveredSessions?.filter(({ sessionId }) => newest.has(sessionId)).length === newest.size,
    { limit: 40_000, what: 'the discovered sessions' });
  const state = stage.read();
  assert.deepEqual(state.sessions.map(({ id }) => id), stage.sessions.map(({ id }) => id));
  assert.equal(state.soakCounter, stage.increments);
  assert.equal(state.otherCounter, otherCount);
  assert.ok([stage.speed, 1.25, 1.5].includes(state.speed), `speed ${state.speed}`);
  assert.ok(stage.lists.size >= seconds / 5, `the daemon wrote ${stage.lists.size} lists`);
  assert.deepEqual(state.theirs, unknown);
  assert.deepEqual(fs.readdirSync(home.shared).filter((name) => /unreadable/.test(name)), []);
  // Who can't have the lock in time says so and tries again: what counts is that nothing was lost, which is seen above.
  const waits = [...serviceLog(home), ...logRecords(home)].filter(isLockTimeout);
  assert.deepEqual(logRecords(home).filter((record) => record.level >= 40 && record.class !== 'Daemon' && !isLockTimeout(record)), []);
  // Before its home goes.
  await service.end();
  t.diagnostic(`${stage.increments} updates by the third writer, ${stage.sessions.length} rows, ` +
    `${stage.lines} lines, ${otherCount} by the fourth, ${stage.detached.length} detached, ${stage.lists.size} lists, ${stage.looks} looks, ${waits.length} locks not had in time, ${state.discoveredSessions.length} discovered`);
});
