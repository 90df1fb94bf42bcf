// "tts on": finds the session that is meant and has the service attach it. The socket answers nothing, so the row that
// the service writes into state.json is the proof.

import fs from 'node:fs';

import { agents } from '../agents.js';
import { socketPath, statePath } from '../places.js';
import { waitFor } from '../serviceControl.js';
import { sendCommand, sendLines } from '../serviceSocket.js';
import { SharedDocument } from '../sharedDocument.js';
import { CommandFailure, notFound, usageError } from '../words/failure.js';
import { plain } from '../words/output.js';
import { ago, isFresh, isInside, named, sessionJson, sessionLines, sessionsFrom, withId } from './sessions.js';

const attachLimit = 2_000;
const shownCandidates = 8;

function sourceFrom(word) {
  if (word === undefined) return undefined;
  const source = word === 'claude' ? 'claude-code' : word;
  if (!agents.has(source)) throw usageError(`There is no agent "${word}"; there are ${[...agents.keys()].join(', ')}.`);
  return source;
}

/** What the options ask for, as a list of conditions and the words for it. */
function wishFrom({ source, session, here }, cwd) {
  if (session && here) throw usageError('--session and --here exclude each other.');
  return { source: sourceFrom(source), id: session, folder: here ? cwd : undefined };
}

/** The folder behind links: the current one is told without them. */
function resolved(folder) {
  try {
    return fs.realpathSync(folder);
  } catch {
    return folder;
  }
}

function matching(sessions, { source, id, folder }) {
  let found = sessions;
  if (source) found = found.filter((session) => session.source === source);
  if (folder) found = found.filter(({ cwd }) => isInside(folder, cwd) || isInside(folder, resolved(cwd)));
  if (id) found = withId(found, id);
  return found;
}

/** Without a wish for a certain one only a session that is in use is meant. */
function chosen(sessions, wish, now) {
  const found = matching(sessions, wish);
  return wish.id || wish.folder ? found : found.filter((session) => isFresh(session, now));
}

/** The daemon's rows while it keeps them; else, or if they don't hold what is meant, a look at the disk. */
async function candidates(context, wish, now) {
  const { environment, neighbours } = context;
  const listed = sessionsFrom(SharedDocument.read(statePath(environment)).list('discoveredSessions'));
  if ((await neighbours.daemonStatus(environment)).alive && chosen(listed, wish, now).length) return listed;
  return sessionsFrom(await neighbours.findSessions(environment));
}

function nothing(sessions, wish, now, environment) {
  const agent = wish.source ? ` of ${agents.get(wish.source)}` : '';
  const message = wish.id ? `There is no session${agent} whose id begins with "${wish.id}".`
    : wish.folder ? `No session${agent} was found for this folder or one above it.`
      : `No session${agent} was written to in the last 15 minutes.`;
  const others = wish.id || wish.folder ? sessions : matching(sessions, { source: wish.source });
  return listing(message, others, now, environment);
}

function listing(message, sessions, now, environment) {
  const shown = sessions.slice(0, shownCandidates);
  const hint = shown.length
    ? ['Choose one with --session:', ...sessionLines(shown, { now, environment, others: sessions })].join('\n') : undefined;
  return notFound(message, { hint, details: { candidates: shown.map(sessionJson) } });
}

async function choose(context, wish, now) {
  const { environment, output } = context;
  const sessions = await candidates(context, wish, now);
  const found = chosen(sessions, wish, now);
  if (!found.length) throw nothing(sessions, wish, now, environment);
  if (wish.id && found.length > 1) {
    throw listing(`${found.length} sessions have an id that begins with "${wish.id}".`, found, now, environment);
  }
  if (!wish.id && found.length > 1) {
    const others = found.slice(1).filter((session) => isFresh(session, now));
    if (others.length) {
      output.note(`Chose the newest; also in use:`, ...sessionLines(others, { now, environment, others: sessions }));
    }
  }
  return { session: found[0], sessions };
}

const isAttached = (environment, id) =>
  SharedDocument.read(statePath(environment)).list('sessions').some((row) => row?.id === id);

/** The service's own last words on an attach since `since`, if it refused. */
async function refusal(environment, since) {
  const { lastWarning } = await import('./serviceWords.js');
  const words = lastWarning(environment, /^attach: /, since);
  return words ? ` It says: ${words}.` : '';
}

/** A session of OpenCode's lies in a database, and is named behind the last "#". */
function fileOf({ source, transcript }) {
  const at = source === 'opencode' ? transcript.lastIndexOf('#') : -1;
  return at < 0 ? transcript : transcript.slice(0, at);
}

function attachArguments({ id, cwd, transcript, source, branch, title }) {
  return { id, cwd, transcript, source, branch, title };
}

/** "tts on" */
export async function on(context) {
  const { environment, output, options, cwd } = context;
  const now = Date.now();
  const wish = wishFrom(options, cwd);
  // Said before anything is looked for: without the service no choice helps.
  const path = socketPath(environment);
  await sendLines([], { path });
  const { session, sessions } = await choose(context, wish, now);
  const file = fileOf(session);
  if (file && !fs.existsSync(file)) throw new CommandFailure(`Its transcript is gone: ${plain(file)}`);
  const name = named(session, environment, sessions);
  const again = isAttached(environment, session.id);
  await sendCommand('attach', { ...attachArguments(session), ...(again ? { resume: true } : {}) }, { path });
  if (!await waitFor(() => isAttached(environment, session.id), attachLimit)) {
    const said = await refusal(environment, now);
    throw new CommandFailure(`The service didn't attach ${name} within 2 seconds.${said}`);
  }
  const age = isFresh(session, now) ? '' : `, last written to ${ago(now - session.mtimeMs)}`;
  output.say(`${again ? 'Already attached' : 'Attached'}: ${name}${age}.`);
  output.result({ attached: sessionJson(session), already: again });
}
