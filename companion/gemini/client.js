// The provider's REST interface. The key stands in a header and nowhere else: not in an address, an argument, a log or
// an error, whatever the other side answers. Every text of an answer is cleaned here, where it comes in.

import { setTimeout as sleep } from 'node:timers/promises';

import { cleanReason, cleanWords } from './cleaning.js';
import { SpeechFailure } from './failure.js';

const defaultBase = 'https://generativelanguage.googleapis.com';
const attempts = 4;
const firstPause = 1000;
const longestPause = 20_000;
const requestLimit = 60_000;
/** Largest answer that is read; ten minutes of speech as base64 are a third of it. */
const answerLimit = 128 * 1024 * 1024;

const isWorthRetrying = (status) => status === 429 || status >= 500;

/** The address of the service, which must not see a key in clear text outside this machine. */
export function endpoint(environment = process.env) {
  const text = environment.GEMINI_API_BASE || defaultBase;
  let url;
  try {
    url = new URL(text);
  } catch {
    throw new SpeechFailure('GEMINI_API_BASE is not an address');
  }
  const isHere = ['localhost', '127.0.0.1', '[::1]'].includes(url.hostname);
  if (url.protocol !== 'https:' && !(url.protocol === 'http:' && isHere)) {
    throw new SpeechFailure('GEMINI_API_BASE must begin with https://');
  }
  // None of this would work, and the key's place is a header; what failed would repeat it.
  if (url.username || url.password) throw new SpeechFailure('GEMINI_API_BASE must hold neither a user nor a password');
  if (/[?#]/.test(text)) throw new SpeechFailure('GEMINI_API_BASE must hold neither "?" nor "#"');
  return url.href.replace(/\/+$/, '');
}

/** A key that a header can hold; what can't be one is refused before anything else could print it. */
function keyFrom(environment) {
  const key = (environment.GOOGLE_API_KEY ?? '').trim();
  if (!key) throw new SpeechFailure('no Gemini key: set GOOGLE_API_KEY or save one in Settings');
  if (!/^[\x21-\x7e]+$/.test(key)) throw new SpeechFailure('GOOGLE_API_KEY holds characters that no key has');
  return key;
}

/** Milliseconds that the answer asks to wait, if it does. */
function askedPause(headers) {
  const value = headers.get('retry-after');
  if (!value) return undefined;
  const seconds = Number(value);
  const pause = Number.isFinite(seconds) ? seconds * 1000 : Date.parse(value) - Date.now();
  return Number.isFinite(pause) ? Math.max(0, pause) : undefined;
}

async function readBounded(response) {
  const chunks = [];
  let size = 0;
  for await (const chunk of response.body ?? []) {
    size += chunk.length;
    if (size > answerLimit) throw new SpeechFailure('the answer is too long');
    chunks.push(chunk);
  }
  return Buffer.concat(chunks).toString('utf8');
}

/** The answer with every text in it cleaned; sound is base64, and only decoded. */
function parsed(text, key) {
  try {
    const clean = (name, value) => (typeof value === 'string' && name !== 'data' ? cleanWords(value, key) : value);
    return JSON.parse(text, clean);
  } catch {
    return undefined;
  }
}

export class GeminiClient {
  #key;
  #base;
  #pause;
  #deadline;

  /**
   * @param {NodeJS.ProcessEnv} environment GOOGLE_API_KEY and GEMINI_API_BASE count
   * @param {{ pause?: (ms: number) => Promise<void>, limit?: number }} [options] `limit` is in milliseconds and bounds
   *   all requests of this client together, their repetitions included
   */
  constructor(environment = process.env, { pause = sleep, limit = Infinity } = {}) {
    this.#key = keyFrom(environment);
    this.#base = endpoint(environment);
    this.#pause = pause;
    this.#deadline = performance.now() + limit;
  }

  /** The parts of the first candidate. Overload and trouble of the other side are waited out; a bad request isn't. */
  async generate(model, body) {
    for (let attempt = 1; ; attempt += 1) {
      const outcome = await this.#attempt(model, body);
      if (outcome.parts) return outcome.parts;
      const pause = outcome.pause ?? firstPause * 2 ** (attempt - 1);
      const isPointless = attempt === attempts || pause > longestPause || pause > this.#left();
      if (!outcome.isTransient || isPointless) throw new SpeechFailure(outcome.reason);
      await this.#pause(pause);
    }
  }

  #left() {
    return this.#deadline - performance.now();
  }

  async #attempt(model, body) {
    let response;
    let text;
    try {
      response = await this.#post(model, body);
      text = await readBounded(response);
    } catch (error) {
      if (error instanceof SpeechFailure) throw error;
      return { isTransient: true, reason: this.#connectionReason(error) };
    }
    const answer = parsed(text, this.#key);
    return response.ok ? this.#outcome(answer) : this.#refusal(response, answer);
  }

  /** An answer that was broken off is none: half of a text would pass for the whole. */
  #outcome(answer) {
    const candidate = answer?.candidates?.[0];
    const parts = candidate?.content?.parts;
    const end = candidate?.finishReason;
    const hasParts = Array.isArray(parts) && parts.length > 0;
    if (hasParts && (end === undefined || end === null || end === 'STOP')) return { parts };
    const why = answer?.promptFeedback?.blockReason ?? end;
    const what = hasParts ? 'Gemini broke its answer off' : 'Gemini gave no answer';
    // The provider's speech models now and then give an empty answer without a reason; the next try has one.
    return { isTransient: !why || why === 'OTHER', reason: this.#clean(`${what}${why ? ` (${why})` : ''}`) };
  }

  #post(model, body) {
    const limit = Math.ceil(Math.max(1, Math.min(requestLimit, this.#left())));
    return fetch(`${this.#base}/v1beta/models/${encodeURIComponent(model)}:generateContent`, {
      method: 'POST',
      headers: { 'content-type': 'application/json', 'x-goog-api-key': this.#key },
      body: JSON.stringify(body),
      // A redirection would take the key to somebody else.
      redirect: 'error',
      signal: AbortSignal.timeout(limit),
    });
  }

  #refusal(response, answer) {
    const words = answer?.error?.message ?? response.statusText;
    return {
      isTransient: isWorthRetrying(response.status),
      pause: askedPause(response.headers),
      reason: this.#clean(`Gemini refused (${response.status}): ${words || 'no reason given'}`),
    };
  }

  #connectionReason(error) {
    if (error.name === 'TimeoutError') return 'Gemini did not answer in time';
    return this.#clean(`Gemini could not be reached: ${error.cause?.code ?? error.cause?.message ?? error.message}`);
  }

  #clean(text) {
    return cleanReason(text, this.#key);
  }
}
