// Judges the codes that devices show. One try a second for all of them together, since whoever guesses may come from
// many addresses; five wrong ones void the code; a code links one device. What is spent is remembered here too, so that
// a file which comes back, or can't be removed, opens nothing. The wrong tries stand in a file besides, so that a
// daemon that is started anew grants no more of them.

import { createHash, timingSafeEqual } from 'node:crypto';

import { codeLifetime, identityOf, isCode, noteWrongTries, readCode, removeCode, wrongTriesOf } from './pairCode.js';

const tryInterval = 1000;
const wrongLimit = 5;
const spentLimit = 64;
const complaintInterval = 60_000;
/** Between the clock as the code's maker read it and as it is read here. */
const clockTolerance = 5000;

/** Compares in a time that doesn't depend on where they differ. */
function isSame(a, b) {
  const digest = (text) => createHash('sha256').update(text).digest();
  return timingSafeEqual(digest(a), digest(b));
}

/**
 * @typedef {{ outcome: 'paired', token: string, label: string }
 *   | { outcome: 'tooSoon' | 'malformed' | 'refused' }} PairingResult
 */

export class Pairing {
  #environment;
  #log;
  #clock;
  #tokens;
  #lastTry;
  #present;
  #wrong = 0;
  #spent = new Set();
  #lastComplaint;
  #untold = 0;

  /** @param {{ environment: NodeJS.ProcessEnv, log, clock, tokens: import('./tokens.js').TokenStore }} options */
  constructor({ environment, log, clock, tokens }) {
    this.#environment = environment;
    this.#log = log;
    this.#clock = clock;
    this.#tokens = tokens;
  }

  /**
   * Everything up to the verdict happens in one go: of two devices with the same code only one gets in.
   * @returns {Promise<PairingResult>} fails when a device that may enter can't be written down; its code is spent then
   */
  async attempt(code, label) {
    const refused = this.#refusalOf(code);
    if (refused) {
      this.#complain(refused);
      return { outcome: refused };
    }
    const active = this.#activeCode();
    this.#spend(identityOf(active));
    const added = await this.#tokens.add(label);
    this.#log.info('bridge paired a device', { label: added.label });
    return { outcome: 'paired', ...added };
  }

  /** What can't be a code costs nobody the try of this second. */
  #refusalOf(code) {
    if (!isCode(code)) return 'malformed';
    if (this.#isTooSoon()) return 'tooSoon';
    const active = this.#activeCode();
    // No word on which of the reasons it is: one who guesses mustn't learn whether there is a code.
    return active && this.#isRight(active, code) ? undefined : 'refused';
  }

  /** Whoever tries for long stands in the log, but doesn't fill it. */
  #complain(outcome) {
    const now = this.#clock.now();
    this.#untold += 1;
    const passed = now - this.#lastComplaint;
    if (passed >= 0 && passed < complaintInterval) return;
    this.#log.warn('bridge refused to pair', { outcome, tries: this.#untold });
    this.#lastComplaint = now;
    this.#untold = 0;
  }

  #isTooSoon() {
    const now = this.#clock.now();
    // A clock that was set back begins its second anew.
    if (this.#lastTry !== undefined && now < this.#lastTry) this.#lastTry = now;
    if (this.#lastTry !== undefined && now - this.#lastTry < tryInterval) return true;
    this.#lastTry = now;
    return false;
  }

  #activeCode() {
    const active = readCode(this.#environment);
    const left = active ? active.expiresAt - this.#clock.now() : 0;
    // One that would live longer than any was made by a clock that has been set back since.
    if (left <= 0 || left > codeLifetime + clockTolerance) return undefined;
    return this.#spent.has(identityOf(active)) ? undefined : active;
  }

  #isRight(active, code) {
    const identity = identityOf(active);
    if (identity !== this.#present) {
      this.#present = identity;
      this.#wrong = 0;
    }
    this.#wrong = Math.max(this.#wrong, wrongTriesOf(identity, this.#environment));
    if (this.#wrong < wrongLimit && isSame(active.code, code)) return true;
    this.#wrong += 1;
    this.#log.warn('bridge refused a pairing code', { wrongTries: this.#wrong });
    this.#note(identity);
    if (this.#wrong >= wrongLimit) {
      this.#spend(identity);
      this.#log.warn('bridge voided the pairing code');
    }
    return false;
  }

  #note(identity) {
    try {
      noteWrongTries(identity, this.#wrong, this.#environment);
    } catch (error) {
      this.#log.warn('bridge could not note the wrong tries', { reason: error.message });
    }
  }

  #spend(identity) {
    this.#spent.add(identity);
    if (this.#spent.size > spentLimit) this.#spent.delete(this.#spent.values().next().value);
    try {
      removeCode(identity, this.#environment);
    } catch (error) {
      this.#log.warn('bridge could not remove the pairing code', { reason: error.message });
    }
  }
}
