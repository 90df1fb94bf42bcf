// "tts status": one look at what runs, what is attached, and the settings.

import { nowPlayingPath, socketPath, statePath } from '../places.js';
import { serviceState } from '../serviceSocket.js';
import { SharedDocument } from '../sharedDocument.js';
import { settingsOf } from '../stateDefaults.js';
import { readDocument } from './documents.js';
import { exitCodes } from '../words/failure.js';
import { columns, plain, shortened } from '../words/output.js';
import { attachedFrom, isFresh, sessionJson, sessionLines, sessionsFrom } from './sessions.js';

/** A dead service leaves its last snapshot behind; it tells nothing. */
function playbackOf(environment, running) {
  const document = SharedDocument.read(running ? nowPlayingPath(environment) : '');
  const known = ['idle', 'playing', 'paused'].includes(document.get('state'));
  return {
    state: known ? document.get('state') : 'idle',
    sessionId: document.get('sessionId') ?? '',
    messageId: document.get('messageId') ?? '',
    elapsed: document.get('elapsed') ?? 0,
    duration: document.get('duration') ?? 0,
    synthesizing: document.get('synthesizing') === true,
  };
}

function daemonFacts({ alive, responding = alive, pid, bridgePort }) {
  return { running: alive, responding, ...(pid ? { pid } : {}), ...(bridgePort ? { bridgePort } : {}) };
}

async function gather({ environment, neighbours, output }) {
  const document = readDocument(statePath(environment), output);
  const speakError = document.get('lastSpeakError');
  const [state, daemon] = await Promise.all([
    serviceState({ path: socketPath(environment) }),
    // One that can't be asked is told as such; it mustn't cost the report.
    neighbours.daemonStatus(environment).catch(() => ({ alive: true, responding: false })),
  ]);
  return {
    service: { running: state !== 'absent', responding: state === 'running' },
    daemon: daemonFacts(daemon),
    settings: settingsOf(document),
    playback: {
      ...playbackOf(environment, state !== 'absent'),
      ...(typeof speakError === 'string' && speakError ? { lastSpeakError: speakError } : {}),
    },
    sessions: attachedFrom(document.list('sessions')),
    discovered: sessionsFrom(document.list('discoveredSessions')),
  };
}

function lifeLine({ running, responding = running, bridgePort }) {
  if (!running) return 'not running';
  if (!responding) return 'not answering';
  return bridgePort ? `running, bridge on port ${bridgePort}` : 'running';
}

function voiceLine({ voice, speed, volume, muted, captions }) {
  const sound = `volume ${volume}%${muted ? ', muted' : ''}`;
  return `${plain(voice)}, speed ${speed}x, ${sound}, captions ${captions ? 'on' : 'off'}`;
}

function playbackLine({ state, elapsed, duration, synthesizing }, { paused }) {
  const more = synthesizing ? ', preparing speech' : '';
  if (state === 'idle') return `${paused ? 'idle, paused' : 'idle'}${more}`;
  return `${state}, ${Math.round(elapsed)} of ${Math.round(duration)} s${more}`;
}

function print(report, { environment, output, options }, now) {
  const { service, daemon, settings, playback, sessions, discovered } = report;
  const all = [...sessions, ...discovered];
  const ids = new Set(sessions.map(({ id }) => id));
  const others = discovered.filter(({ id }) => !ids.has(id));
  const shown = options.all ? others : others.filter((session) => isFresh(session, now));
  const heading = (text) => output.style('bold', text);
  output.say(...columns([
    ['Service', lifeLine(service)],
    ['Daemon', lifeLine(daemon)],
    ['Voice', voiceLine(settings)],
    ['Speaking', playbackLine(playback, settings)],
    ...(playback.lastSpeakError ? [['Failed', shortened(playback.lastSpeakError, 200)]] : []),
  ], ''));
  output.say(heading(sessions.length ? 'Attached' : 'Nothing is attached'), ...sessionLines(sessions, { environment, others: all }));
  if (shown.length) output.say(heading(options.all ? 'Found' : 'In use'), ...sessionLines(shown, { now, environment, others: all }));
  const hidden = others.length - shown.length;
  if (!hidden) return;
  output.say(output.style('dim', `${hidden} older ${hidden === 1 ? 'session' : 'sessions'}: tts status --all`));
}

/** "tts status" */
export async function status(context) {
  const now = Date.now();
  const report = await gather(context);
  print(report, context, now);
  const { sessions, discovered, ...rest } = report;
  const ids = new Set(sessions.map(({ id }) => id));
  context.output.result({
    ...rest,
    sessions: sessions.map(sessionJson),
    discovered: discovered.map((session) =>
      ({ ...sessionJson(session), mtimeMs: session.mtimeMs, attached: ids.has(session.id) })),
  });
  if (report.service.responding) return exitCodes.ok;
  context.output.note(report.service.running ? "The Sonra service doesn't answer."
    : 'The Sonra service is not running. "tts start" starts it.');
  return exitCodes.unavailable;
}
