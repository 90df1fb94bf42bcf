// The short code that links a device to this computer: six digits in active-pair-code.json, good for five minutes. Who
// can read that file is this user; who types its code in stands before this user's screen.

import { createHash, randomInt } from 'node:crypto';
import fs from 'node:fs';

import { pairCodePath } from '../places.js';
import { makeFolderOf, replaceFile } from '../wholeFile.js';

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

/** The code in the file; nothing where there is none, or something else. */
export function readCode(environment = process.env) {
  try {
    const { code, expiresAt, wrongTries } = JSON.parse(fs.readFileSync(pairCodePath(environment), 'utf8'));
    if (!isCode(code) || !Number.isSafeInteger(expiresAt)) return undefined;
    return { code, expiresAt, wrongTries: Number.isSafeInteger(wrongTries) && wrongTries > 0 ? wrongTries : 0 };
  } catch {
    return undefined;
  }
}

/** A name for this very code that doesn't tell it. */
export const identityOf = ({ code, expiresAt }) => createHash('sha256').update(`${code} ${expiresAt}`).digest('hex');

/**
 * Notes in the file how often its code was tried wrongly, for a daemon that is started anew; unless another code has
 * been written since.
 */
export function noteWrongTries(identity, wrongTries, environment = process.env) {
  const file = pairCodePath(environment);
  const present = readCode(environment);
  if (!present || identityOf(present) !== identity) return;
  replaceFile(file, JSON.stringify({ ...present, wrongTries }), { mode: 0o600, temporary: `${file}.tries` });
}

/** Removes the file, unless another code has been written since. */
export function removeCode(identity, environment = process.env) {
  const present = readCode(environment);
  if (present && identityOf(present) === identity) fs.rmSync(pairCodePath(environment), { force: true });
}
