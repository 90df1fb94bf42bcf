// What a device is shown: the service's snapshot, the settings that go with it, and whose words they are. Read from the
// shared documents without a lock, as every reader of theirs does; what is missing or odd has its default.

import fs from 'node:fs';
import path from 'node:path';

import { nowPlayingPath, statePath } from '../places.js';
import { SharedDocument } from '../sharedDocument.js';
import { settingsOf } from '../stateDefaults.js';

/** A snapshot is written about once a second while something plays; one that is older says nothing of its age. */
const freshFor = 2000;

const isObject = (value) => value !== null && typeof value === 'object' && !Array.isArray(value);
const textOf = (value) => (typeof value === 'string' ? value : '');
const countOf = (value) => (Number.isSafeInteger(value) && value > 0 ? value : 0);
const secondsOf = (value) => (Number.isFinite(value) && value > 0 ? value : 0);
const oneOf = (value, choices) => (choices.includes(value) ? value : choices[0]);

function readSnapshot(file) {
  try {
    const snapshot = JSON.parse(fs.readFileSync(file, 'utf8'));
    return isObject(snapshot) ? { snapshot, writtenAt: fs.statSync(file).mtimeMs } : { snapshot: {} };
  } catch {
    return { snapshot: {} };
  }
}

function nowPlayingOf(snapshot) {
  const cursor = isObject(snapshot.cursor) ? snapshot.cursor : {};
  const live = isObject(snapshot.live) ? snapshot.live : {};
  return {
    state: oneOf(snapshot.state, ['idle', 'playing', 'paused']),
    messageId: textOf(snapshot.messageId),
    elapsed: secondsOf(snapshot.elapsed),
    duration: secondsOf(snapshot.duration),
    snippet: textOf(snapshot.snippet),
    synthesizing: snapshot.synthesizing === true,
    newLiveCount: countOf(snapshot.newLiveCount),
    totalMessages: countOf(live.totalMessages),
    cursor: {
      kind: oneOf(cursor.kind, ['idle', 'live', 'history']),
      messageIndex: countOf(cursor.messageIndex),
      totalKnown: countOf(cursor.totalKnown),
      chunkIndex: countOf(cursor.chunkIndex),
      totalChunks: countOf(cursor.totalChunks),
    },
  };
}

/** The session that is heard, else the one that gives the desktop's captions their colours. */
function sessionOf(state, id) {
  const attached = state.list('sessions').filter(isObject);
  const row = attached.find((each) => each.id === id) ?? attached[0] ?? state.list('discoveredSessions').find(isObject);
  if (!row) return { source: 'claude-code', project: '', branch: '', title: '' };
  return {
    source: textOf(row.source) || 'claude-code',
    project: path.basename(textOf(row.cwd)),
    branch: textOf(row.branch),
    title: textOf(row.title),
  };
}

/** The commands beyond the transport that this service has said it knows, under `remoteCommands` in its state. */
function acceptsOf(state) {
  return { inject: state.list('remoteCommands').includes('inject') };
}

/**
 * @param {{ environment?: NodeJS.ProcessEnv, service: boolean }} options `service`: somebody listens at its socket
 * @returns {{ shown: object, writtenAt: number | undefined }} `writtenAt`: when the snapshot was, in milliseconds
 */
export function readPicture({ environment = process.env, service }) {
  const state = SharedDocument.read(statePath(environment));
  const { snapshot, writtenAt } = readSnapshot(nowPlayingPath(environment));
  const { paused, muted, volume, speed } = settingsOf(state);
  const shown = {
    service,
    nowPlaying: nowPlayingOf(snapshot),
    settings: { paused, muted, volume, speed },
    session: sessionOf(state, textOf(snapshot.sessionId)),
    accepts: acceptsOf(state),
  };
  return { shown, writtenAt };
}

/** What goes out: with the age of what moves by itself, so that the device goes on from where it is by now. */
export function toEvent({ shown, writtenAt }, now) {
  const age = writtenAt === undefined ? 0 : now - writtenAt;
  return { ...shown, age: shown.nowPlaying.state === 'playing' && age > 0 && age <= freshFor ? Math.round(age) : 0 };
}
