// "tts off": has the service detach sessions. Where no service runs, taking the rows out of state.json is a detach as
// well.

import { socketPath, statePath } from '../places.js';
import { waitFor } from '../serviceControl.js';
import { commandLine, sendLines } from '../serviceSocket.js';
import { SharedDocument, updateDocument } from '../sharedDocument.js';
import { CommandFailure, notFound, usageError } from '../words/failure.js';
import { changeDocument } from './documents.js';
import { attachedFrom, named, sessionJson, sessionLines, withId } from './sessions.js';

const detachLimit = 5_000;

const attached = (environment) => attachedFrom(SharedDocument.read(statePath(environment)).list('sessions'));

function ambiguous(message, sessions, environment) {
  return notFound(message, {
    hint: ['Choose one with --session, or --all:', ...sessionLines(sessions, { environment })].join('\n'),
    details: { candidates: sessions.map(sessionJson) },
  });
}

export function judge({ options: { session, all } }) {
  if (session !== undefined && all) throw usageError('--session and --all exclude each other.');
}

function choose(sessions, { session: id, all }, environment) {
  if (all) return sessions;
  const found = id === undefined ? sessions : withId(sessions, id);
  if (id !== undefined && !found.length) throw notFound(`No session whose id begins with "${id}" is attached.`);
  if (found.length > 1) throw ambiguous(`${found.length} sessions are attached.`, found, environment);
  return found;
}

async function detach(ids, { environment, output }) {
  try {
    await sendLines(ids.map((id) => commandLine('detach', { id })), { path: socketPath(environment) });
  } catch (error) {
    if (error.name !== 'ServiceNotRunning') throw error;
    const path = statePath(environment);
    await changeDocument(path, output, (options) => updateDocument(path, (document) => {
      document.set('sessions', document.list('sessions').filter((row) => !ids.includes(row?.id || row?.sessionId)));
    }, options));
  }
  const gone = () => !attached(environment).some(({ id }) => ids.includes(id));
  if (await waitFor(gone, detachLimit)) return;
  throw new CommandFailure(`The service didn't detach it within ${detachLimit / 1000} seconds.`);
}

/** "tts off" */
export async function off(context) {
  const { environment, output, options } = context;
  const present = attached(environment);
  const sessions = choose(present, options, environment);
  if (sessions.length) await detach(sessions.map(({ id }) => id), context);
  output.say(...(sessions.length ? sessions.map((session) => `Detached: ${named(session, environment, present)}.`)
    : ['Nothing was attached.']));
  output.result({ detached: sessions.map(sessionJson) });
}
