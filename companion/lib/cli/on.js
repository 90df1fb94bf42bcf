// "tts on": finds the session that is meant and has the service attach it. The socket answers nothing: the proof is the
// row that the service writes into state.json, or, where there is one already, what it says in its log.

import { randomUUID } from 'node:crypto';
import fs from 'node:fs';

import { agents } from '../agents.js';
import { socketPath, statePath } from '../places.js';
import { waitFor } from '../serviceControl.js';
import { sendCommand, sendLines } from '../serviceSocket.js';
import { SharedDocument } from '../sharedDocument.js';
import { CommandFailure, notFound, usageError } from '../words/failure.js';
import { plain } from '../words/output.js';
import { ago, isFresh, isInside, named, sessionJson, sessionLines, sessionsFrom, withId } from './sessions.js';

const attachLimit = 5_000;
/** What may never be said isn't waited for as long. */
const wordsLimit = 2_000;
const shownCandidates = 8;

function sourceFrom(word) {
  if (word === undefined) return undefined;
  const source = word === 'claude' ? 'claude-code' : word;
  if (!agents.has(source)) throw usageError(`There is no agent "${word}"; there are ${[...agents.keys()].join(', ')}.`);
  return source;
}

export function judge({ options: { source, session, here } }) {
  if (session && here) throw usageError('--session and --here exclude each other.');
  sourceFrom(source);
}

/** What the options ask for, as a list of conditions and the words for it. */
function wishFrom({ source, session, here }, cwd) {
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

/**
 * The daemon's rows while it keeps them; if they don't hold what is meant, a look at the disk; and for a certain session,
 * which may be old, a look at all that there is, which can take a second where there are thousands.
 */
async function candidates({ environment, neighbours }, wish, now) {
  const listed = sessionsFrom(SharedDocument.read(statePath(environment)).list('discoveredSessions'));
  if ((await neighbours.daemonStatus(environment)).alive && chosen(listed, wish, now).length) return listed;
  const found = sessionsFrom(await neighbours.findSessions(environment));
  if (chosen(found, wish, now).length || !(wish.id || wish.folder)) return found;
  return sessionsFrom(await neighbours.findSessions(environment, { isBounded: false, session: wish.id }));
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

/**
 * Has the service attach it, or give it its voice again where it is attached.
 * @returns {Promise<boolean>} whether that is proven; fails where the opposite is
 */
async function attach(session, again, name, environment) {
  const { attachWarning, isCarriedOut } = await import('./serviceWords.js');
  const since = Date.now();
  const requestId = randomUUID();
  await sendCommand('attach', { ...attachArguments(session), ...(again ? { resume: true, requestId } : {}) },
    { path: socketPath(environment) });
  const hasRow = () => isAttached(environment, session.id);
  const warning = () => attachWarning(environment, session.id, since);
  const isProven = await waitFor(() => (again ? isCarriedOut(environment, requestId, since) : hasRow())
    || warning() !== undefined, again ? wordsLimit : attachLimit);
  const words = again || !hasRow() ? warning() : undefined;
  if (words !== undefined) throw new CommandFailure(`${name} isn't attached. The service says: ${words}.`);
  if (again && !hasRow()) throw new CommandFailure(`${name} was detached meanwhile.`);
  if (!isProven) {
    if (again) return false;
    throw new CommandFailure(`The service didn't attach ${name} within ${attachLimit / 1000} seconds.`);
  }
  return true;
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
  await sendLines([], { path: socketPath(environment) });
  const { session, sessions } = await choose(context, wish, now);
  const file = fileOf(session);
  if (file && !fs.existsSync(file)) throw new CommandFailure(`Its transcript is gone: ${plain(file)}`);
  const name = named(session, environment, sessions);
  const again = isAttached(environment, session.id);
  const confirmed = await attach(session, again, name, environment);
  const age = isFresh(session, now) ? '' : `, last written to ${ago(now - session.mtimeMs)}`;
  output.say(`${again ? 'Already attached' : 'Attached'}: ${name}${age}.`);
  if (!confirmed) output.note("That is what its list says; the service hasn't confirmed it.");
  output.result({ attached: sessionJson(session), already: again, confirmed });
}
