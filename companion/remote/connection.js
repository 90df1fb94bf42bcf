// The line to the computer: pairing, the stream of pictures, commands. The token lives in this browser's storage and
// goes out in a header alone. A stream that breaks, or is silent for too long, is opened again, at growing intervals.

import { EventParser } from './events.js';

const tokenKey = 'sonra.token';
const silenceLimit = 40_000;
const answerLimit = 8000;
const firstWait = 500;
const lastWait = 15_000;
/** A line that was silent for longer may be dead without knowing it. */
const trustTime = 3000;

/** What the computer answered, where it wasn't what was asked for. */
export class Refused extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

async function post(path, body, headers = {}) {
  let response;
  try {
    response = await fetch(path, {
      method: 'POST',
      headers: { 'Content-Type': 'application/json', ...headers },
      body: JSON.stringify(body),
      signal: AbortSignal.timeout(answerLimit),
    });
  } catch {
    throw new Refused(0, 'Your computer doesn’t answer.');
  }
  const answer = await response.json().catch(() => ({}));
  if (!response.ok) throw new Refused(response.status, answer.message ?? 'That didn’t work.');
  return answer;
}

export class Connection {
  #handlers;
  #generation = 0;
  #abort;
  #silence;
  #heardAt = 0;
  #wait = firstWait;
  #retry;
  /** The command that was sent last, until it is answered. */
  #lastCommand;

  /**
   * @param {{ picture: (picture: object) => void, line: (state: 'open' | 'lost' | 'replaced') => void,
   *   unpaired: () => void }} handlers
   */
  constructor(handlers) {
    this.#handlers = handlers;
  }

  get isPaired() {
    return Boolean(localStorage.getItem(tokenKey));
  }

  async pair(code, label) {
    const { token } = await post('/api/pair', { code, label });
    localStorage.setItem(tokenKey, token);
  }

  /** Fails, and leaves everything as it is, when the computer hasn't said that it forgets too. */
  async forget() {
    try {
      await post('/api/unpair', {}, this.#authorization());
    } catch (error) {
      if (error.status !== 401) throw error;
    }
    this.#unpaired();
  }

  /** The computer goes on knowing this device. */
  forgetHere() {
    this.#unpaired();
  }

  /** One command after another: what is sent at the same time may arrive in any order. */
  async send(cmd, args = {}) {
    const turn = this.#sendAfter(this.#lastCommand, cmd, args);
    this.#lastCommand = turn;
    try {
      await turn;
    } finally {
      if (this.#lastCommand === turn) this.#lastCommand = undefined;
    }
  }

  open() {
    this.close();
    void this.#listen(this.#generation);
  }

  close() {
    this.#generation += 1;
    clearTimeout(this.#retry);
    clearTimeout(this.#silence);
    this.#abort?.abort();
    this.#abort = undefined;
  }

  /** The screen is on again, or the network is back: no more waiting. */
  hurry() {
    this.#wait = firstWait;
    // By the clock on the wall: the other one may stand still while the device sleeps.
    const isSilent = Math.abs(Date.now() - this.#heardAt) > trustTime;
    if (this.isPaired && (!this.#abort || isSilent)) this.open();
  }

  async #sendAfter(before, cmd, args) {
    try {
      await before;
    } catch (error) {
      // Where nobody answers, or lets this device in, what waited mustn't come as a surprise later.
      if (error.status === 0 || error.status === 401) throw error;
    }
    try {
      await post('/api/command', { cmd, args }, this.#authorization());
    } catch (error) {
      if (error.status === 401) this.#unpaired();
      throw error;
    }
  }

  #authorization() {
    return { Authorization: `Bearer ${localStorage.getItem(tokenKey)}` };
  }

  #unpaired() {
    this.close();
    localStorage.removeItem(tokenKey);
    this.#handlers.unpaired();
  }

  async #listen(generation) {
    this.#abort = new AbortController();
    try {
      // The head comes at once. Where it doesn't, the browser has taken a line that is dead without knowing it.
      this.#expectLife(answerLimit);
      const response = await fetch('/api/now-playing', { headers: this.#authorization(), signal: this.#abort.signal });
      if (generation !== this.#generation) return;
      if (response.status === 401) return this.#unpaired();
      if (response.ok) await this.#read(response.body.getReader(), generation);
    } catch {
      // Whatever broke, the answer is to try again.
    }
    if (generation === this.#generation) this.#tryAgain();
  }

  async #read(reader, generation) {
    const decoder = new TextDecoder();
    const parser = new EventParser();
    this.#handlers.line('open');
    this.#expectLife();
    for (;;) {
      const { done, value } = await reader.read();
      if (done || generation !== this.#generation) return;
      this.#expectLife();
      for (const event of parser.take(decoder.decode(value, { stream: true }))) this.#take(event);
    }
  }

  #take({ name, data }) {
    if (name === 'replaced') {
      this.close();
      this.#handlers.line('replaced');
      return;
    }
    this.#wait = firstWait;
    this.#handlers.picture({ ...JSON.parse(data), receivedAt: performance.now() });
  }

  #expectLife(limit = silenceLimit) {
    this.#heardAt = Date.now();
    clearTimeout(this.#silence);
    this.#silence = setTimeout(() => this.#abort?.abort(), limit);
  }

  #tryAgain() {
    clearTimeout(this.#silence);
    this.#abort = undefined;
    this.#handlers.line('lost');
    this.#retry = setTimeout(() => this.open(), this.#wait);
    this.#wait = Math.min(this.#wait * 2, lastWait);
  }
}
