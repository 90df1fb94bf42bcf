// The devices that are paired: bridge-tokens.json, shared with the service, which shows its rows and removes them. The
// file is the truth: it is looked at whenever somebody shows a token, so a row removed there is refused from then on.

import { createHash, randomBytes } from 'node:crypto';
import fs from 'node:fs';

import { tokenRows } from '../pairedDevices.js';
import { tokensPath } from '../places.js';
import { updateDocument } from '../sharedDocument.js';
import { lockTimeout } from './limits.js';

const seenInterval = 60_000;
const labelLength = 64;
const defaultLabel = 'Phone';

const digestOf = (token) => createHash('sha256').update(token).digest('hex');

/** 256 random bits as base64url; a row with anything less is nobody's key. */
const isToken = (value) => typeof value === 'string' && /^[A-Za-z0-9_-]{43}$/.test(value);

/** What changes with the file; nothing where there is none. Throws when it can't be looked at. */
function stampOf(file) {
  const stat = fs.statSync(file, { throwIfNoEntry: false });
  return stat && `${stat.dev} ${stat.ino} ${stat.size} ${stat.mtimeMs} ${stat.ctimeMs}`;
}

/** Keeps a document that nobody can read from being begun anew. */
function refuseAnew() {
  throw new Error('the file of paired devices cannot be read');
}

/** A device's name as it may be shown: one line, nothing that turns or hides what stands beside it. */
export function cleanLabel(label) {
  if (typeof label !== 'string') return defaultLabel;
  const visible = label.replace(/\p{White_Space}+/gu, ' ').replace(/[\p{C}\p{Zl}\p{Zp}]/gu, '').trim();
  return [...visible].slice(0, labelLength).join('').trim() || defaultLabel;
}

/**
 * Owned by the bridge, on the event loop. While the file can't be read nobody is let in, but nobody is told that he isn't
 * paired either, and streams that are open go on.
 */
export class TokenStore {
  #environment;
  #log;
  #clock;
  #onRemoved;
  #stamp;
  /** Digest of a token to what is known of its device. A map of digests is as good as a constant-time compare. */
  #devices = new Map();
  #seen = new Map();
  #isReadable = true;

  /** @param {{ environment: NodeJS.ProcessEnv, log, clock, onRemoved: (device: string) => void }} options */
  constructor({ environment, log, clock, onRemoved }) {
    this.#environment = environment;
    this.#log = log;
    this.#clock = clock;
    this.#onRemoved = onRemoved;
  }

  /** Whether the last look at the file told who is paired. */
  get isReadable() {
    return this.#isReadable;
  }

  /** Looks at the file again if it has changed, and tells of the devices that are gone. */
  refresh() {
    const wasReadable = this.#isReadable;
    try {
      this.#look();
      this.#isReadable = true;
    } catch (error) {
      this.#isReadable = false;
      if (wasReadable) this.#log.warn('bridge cannot read who is paired', { reason: error.message });
    }
  }

  #look() {
    const stamp = stampOf(this.#path);
    if (stamp === this.#stamp) return;
    const rows = tokenRows(this.#environment).filter((row) => isToken(row?.token));
    // Only now: a file that couldn't be read must be read again, changed or not.
    this.#stamp = stamp;
    const before = this.#devices;
    this.#devices = new Map(rows.map((row) => [digestOf(row.token), cleanLabel(row.label)]));
    for (const device of before.keys()) {
      if (this.#devices.has(device)) continue;
      this.#seen.delete(device);
      this.#onRemoved(device);
    }
  }

  /** The device that holds `token`, as a name that tells nothing of it; nothing for a token that isn't known. */
  deviceOf(token) {
    if (!isToken(token)) return undefined;
    const device = digestOf(token);
    return this.has(device) ? device : undefined;
  }

  /** Whether the device is still paired. */
  has(device) {
    this.refresh();
    return this.#isReadable && this.#devices.has(device);
  }

  /**
   * Adds a device and gives its token. Throws when it can't be written down. Where nobody can read who was paired before,
   * the list begins anew, and what there was is set aside: else there would be no way to pair again.
   */
  async add(label) {
    const token = randomBytes(32).toString('base64url');
    const createdAt = this.#clock.now();
    const row = { label: cleanLabel(label), createdAt, token, lastSeenAt: createdAt };
    await this.#update((rows) => [...rows, row]);
    this.#seen.set(digestOf(token), createdAt);
    return { token, label: row.label };
  }

  /** Throws when it can't be written down, or nobody can read who is paired. */
  async remove(device) {
    const others = (rows) => rows.filter((row) => !(isToken(row?.token) && digestOf(row.token) === device));
    await this.#update(others, { onSetAside: refuseAnew });
    this.refresh();
  }

  /** Notes that the device is there, once a minute at most. A failure costs the note alone. */
  async touch(device) {
    const now = this.#clock.now();
    const before = this.#seen.get(device);
    if (before !== undefined && now >= before && now - before < seenInterval) return;
    this.#seen.set(device, now);
    const seen = (row) => (isToken(row?.token) && digestOf(row.token) === device ? { ...row, lastSeenAt: now } : row);
    try {
      await this.#update((rows) => rows.map(seen), { onSetAside: refuseAnew });
    } catch (error) {
      this.#log.warn('bridge could not note when a device was seen', { reason: error.message });
    }
  }

  get #path() {
    return tokensPath(this.#environment);
  }

  #update(change, options) {
    const changeRows = (document) => document.set('tokens', change(document.list('tokens')));
    return updateDocument(this.#path, changeRows, { timeout: lockTimeout, ...options });
  }
}
