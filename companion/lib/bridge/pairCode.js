// The short code that links a device to this computer: six digits in active-pair-code.json, good for five minutes. Who
// can read that file is this user; who types its code in stands before this user's screen.

import { createHash, randomInt } from 'node:crypto';
import fs from 'node:fs';

import { pairCodePath } from '../places.js';
import { makeFolderOf, readIfPresent, replaceFile } from '../wholeFile.js';

export const codeLifetime = 300_000;

/**
 * Writes a new code, in the place of the present one. Throws what the file system says.
 * @param {{ environment?: NodeJS.ProcessEnv, now?: number, random?: () => number }} [options] `random`: 0 to 999999
 * @returns {{ code: string, expiresAt: number }} `expiresAt` in milliseconds since 1970
 */
export function mintCode({ environment = process.env, now = Date.now(), random = () => randomInt(1_000_000) } = {}) {
  const active = { code: String(random()).padStart(6, '0'), expiresAt: Math.trunc(now) + codeLifetime };
  const file = pairCodePath(environment);
  makeFolderOf(file);
  replaceFile(file, JSON.stringify(active), { mode: 0o600 });
  return active;
}

/** True for what a code can look like. */
export const isCode = (value) => typeof value === 'string' && /^[0-9]{6}$/.test(value);

function readCodeAt(file) {
  try {
    const { code, expiresAt } = JSON.parse(fs.readFileSync(file, 'utf8'));
    return isCode(code) && Number.isSafeInteger(expiresAt) ? { code, expiresAt } : undefined;
  } catch {
    return undefined;
  }
}

/** The code in the file; nothing where there is none, or something else. */
export const readCode = (environment = process.env) => readCodeAt(pairCodePath(environment));

/** A name for this very code that doesn't tell it. */
export const identityOf = ({ code, expiresAt }) => createHash('sha256').update(`${code} ${expiresAt}`).digest('hex');

/**
 * How often a code was tried wrongly, for a daemon that is started anew. It has a file of its own: the code's file may be
 * replaced by a new code at any moment, which must not be undone.
 */
const triesPath = (environment) => `${pairCodePath(environment)}.tries`;

/** Throws what the file system says. */
export function noteWrongTries(identity, wrongTries, environment = process.env) {
  replaceFile(triesPath(environment), JSON.stringify({ identity, wrongTries }), { mode: 0o600 });
}

/** How often that code was tried wrongly, as far as it is known. */
export function wrongTriesOf(identity, environment = process.env) {
  try {
    const noted = JSON.parse(readIfPresent(triesPath(environment)) ?? '{}');
    const isCount = Number.isSafeInteger(noted.wrongTries) && noted.wrongTries > 0;
    return noted.identity === identity && isCount ? noted.wrongTries : 0;
  } catch {
    return 0;
  }
}

/** Removes the file, unless another code has been written since. Throws what the file system says. */
export function removeCode(identity, environment = process.env) {
  const isIt = (code) => code !== undefined && identityOf(code) === identity;
  if (!isIt(readCode(environment))) return;
  const file = pairCodePath(environment);
  const aside = `${file}.${process.pid}`;
  try {
    // Judged again where nobody replaces it: a new code may have come in this very moment.
    fs.renameSync(file, aside);
    if (!isIt(readCodeAt(aside))) putBack(aside, file);
  } catch (error) {
    if (error.code !== 'ENOENT') throw error;
  } finally {
    fs.rmSync(aside, { force: true });
  }
}

/** Unless there is a newer one by now. */
function putBack(aside, file) {
  try {
    fs.linkSync(aside, file);
  } catch (error) {
    // A file system without hard links.
    if (error.code !== 'EEXIST') fs.renameSync(aside, file);
  }
}
