// The sessions that can be chosen, those that are attached, and how both are shown.

import path from 'node:path';

import { agentName } from '../agents.js';
import { homeDirectory } from '../places.js';
import { columns, plain, shortened } from '../words/output.js';

/** As the service judges it when it attaches a lone session by itself. */
export const freshFor = 15 * 60 * 1000;

/**
 * @typedef {{ id: string, cwd: string, source: string, transcript: string, branch: string, title: string,
 *   mtimeMs: number }} Session
 */

const text = (value) => (typeof value === 'string' ? value : '');

/** @returns {Session | undefined} nothing for a row without an id */
function sessionFrom(row) {
  const id = text(row?.sessionId) || text(row?.id);
  if (!id) return undefined;
  return {
    id,
    cwd: text(row.cwd),
    source: text(row.source) || 'claude-code',
    transcript: text(row.transcript),
    branch: text(row.branch),
    title: text(row.title),
    mtimeMs: typeof row.mtimeMs === 'number' ? row.mtimeMs : 0,
  };
}

/** Rows of either list of state.json, the newest first; of rows with one id the first stands. */
export function sessionsFrom(rows) {
  const byId = new Map();
  for (const session of rows.map(sessionFrom)) {
    if (session && !byId.has(session.id)) byId.set(session.id, session);
  }
  return [...byId.values()].sort((a, b) => b.mtimeMs - a.mtimeMs);
}

/** Rows of those that are attached: the service knows them by `id`, whatever else a row holds. */
export function attachedFrom(rows) {
  return sessionsFrom(rows.map((row) => (text(row?.id) ? { ...row, sessionId: row.id } : row)));
}

/** Those with this id; else those whose id begins with it. */
export function withId(sessions, id) {
  const exact = sessions.filter((session) => session.id === id);
  return exact.length ? exact : sessions.filter((session) => session.id.startsWith(id));
}

/** True if `folder` is `cwd` or lies below it. */
export function isInside(folder, cwd) {
  if (!path.isAbsolute(cwd)) return false;
  const way = path.relative(cwd, folder);
  return way === '' || (way !== '..' && !way.startsWith('../'));
}

export const isFresh = (session, now) => now - session.mtimeMs <= freshFor;

/** A path with "~" for the home. */
export function tilde(folder, environment) {
  const home = homeDirectory(environment);
  if (folder === home) return '~';
  return folder.startsWith(`${home}/`) ? `~${folder.slice(home.length)}` : folder;
}

/**
 * An id such as a UUID is known by its beginning, as long as it has to be to differ from the `others`; those of other
 * shapes are shown whole.
 */
export function shortId(id, others = []) {
  if (!/^[0-9a-f]{8}-[0-9a-f]{4}-/.test(id)) return plain(id);
  const rivals = others.filter((other) => other.id !== id);
  let length = 8;
  while (length < id.length && rivals.some((other) => other.id.startsWith(id.slice(0, length)))) length += 1;
  return id.slice(0, length);
}

export function ago(milliseconds) {
  const minutes = Math.floor(Math.max(0, milliseconds) / 60_000);
  if (minutes < 1) return 'now';
  if (minutes < 60) return `${minutes} min ago`;
  if (minutes < 48 * 60) return `${Math.floor(minutes / 60)} h ago`;
  return `${Math.floor(minutes / 1440)} days ago`;
}

/** "Claude Code in ~/proj (0b6f7f1d)"; its id is told from those of the `others`. */
export function named(session, environment, others) {
  const where = session.cwd ? ` in ${shortened(tilde(session.cwd, environment), 60)}` : '';
  return `${agentName(plain(session.source))}${where} (${shortId(session.id, others)})`;
}

/**
 * @param {{ now?: number, environment: NodeJS.ProcessEnv, others?: Session[] }} options without `now` no age is shown;
 *   ids are told from those of the `others`
 */
export function sessionLines(sessions, { now, environment, others = sessions }) {
  return columns(sessions.map((session) => [
    shortId(session.id, others),
    ...(now === undefined ? [] : [ago(now - session.mtimeMs)]),
    agentName(plain(session.source)),
    shortened(tilde(session.cwd, environment), 40),
    shortened(session.branch, 20),
    shortened(session.title, 50),
  ]));
}

/** What of a session stands in JSON. */
export function sessionJson({ id, source, cwd, transcript, branch, title }) {
  return { id, source, cwd, transcript, branch, title };
}
