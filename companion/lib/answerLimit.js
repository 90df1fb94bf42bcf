// A file system of another machine may give no answer for hours, and each question that waits for one keeps one of the
// few threads in which all of a process's questions are asked. So nobody waits longer than the limit, questions are
// asked one after the other, and what gave no answer is left alone for a while and for as long as the old question
// stands, with all else of the same mount. Where several stand nothing is asked that hasn't answered before.

import { farMountOf } from './farMounts.js';

const usualLimit = 2000;
/** Of the four threads. */
const mostStanding = 2;
const mostTrusted = 1000;
export const silenceInterval = 180_000;

/** What all who ask in this process share, as they share its threads. */
export class Threads {
  /** Questions that wait for an answer behind the limit, with the mount where that is another machine's. */
  standing = new Map();
  #mountOf;
  #turn = Promise.resolve();

  /** @param {(place: string) => string | undefined} [mountOf] */
  constructor(mountOf = farMountOf) {
    this.#mountOf = mountOf;
  }

  /** Resolves with the end of the turn when it has come. */
  async take() {
    const before = this.#turn;
    let end;
    this.#turn = new Promise((resolve) => { end = resolve; });
    await before;
    return end;
  }

  /** True if a question about the same mount stands. */
  isStandingBeside(place) {
    const mounts = new Set(this.standing.values());
    mounts.delete(undefined);
    return mounts.size > 0 && mounts.has(this.#mountOf(place));
  }

  /** To be called with what gave no answer in time. */
  leave(place, answer) {
    this.standing.set(answer, this.#mountOf(place));
    const end = () => this.standing.delete(answer);
    answer.then(end, end);
  }
}

const ofThisProcess = new Threads();

/** True if a thread of this process waits for an answer behind the limit: it would keep the process from ending. */
export const isHeldUp = () => ofThisProcess.standing.size > 0;

/** Stands for no answer where one is asked about. It says nothing of what was asked, and passes. */
const noAnswer = () => Object.assign(new Error('no answer'), { code: 'ETIMEDOUT' });

export class AnswerLimit {
  #limit;
  #now;
  #silence;
  #threads;
  /** Questions that wait for an answer behind the limit, by what was asked. */
  #standing = new Map();
  /** When it gave no answer. */
  #silentSince = new Map();
  /** What has answered the last time. */
  #trusted = new Set();
  /** Ends each wait. */
  #waits = new Set();
  #isClosed = false;

  /**
   * @param {{ now: () => number, limit?: number, silence?: number, threads?: Threads }} options in milliseconds; `now` is
   *   of the day, the limit of a clock; `silence` is how long at least what gave no answer is left alone
   */
  constructor({ now, limit = usualLimit, silence = silenceInterval, threads = ofThisProcess }) {
    this.#now = now;
    this.#limit = limit;
    this.#silence = silence;
    this.#threads = threads;
  }

  /** Nobody is waited for any more. */
  close() {
    this.#isClosed = true;
    for (const end of this.#waits) end();
  }

  isSilent(place) {
    if (this.#standing.has(place) || this.#threads.isStandingBeside(place)) return true;
    const age = this.#now() - this.#silentSince.get(place);
    if (age >= 0 && age < this.#silence) return true;
    this.#silentSince.delete(place);
    return false;
  }

  /**
   * The answer, or `otherwise` where there is none in time or it isn't asked for.
   * @template T
   * @param {string} place what is asked; the answers of a folder and of the files in it come and fail together
   * @param {() => Promise<T>} question must not ask by way of this
   * @param {T} otherwise
   * @returns {Promise<T>}
   */
  async ask(place, question, otherwise) {
    const nothing = {};
    const answer = await this.#answer(place, question, nothing);
    return answer === nothing ? otherwise : answer;
  }

  /** As `ask`, but fails with ETIMEDOUT where there is no answer. */
  async demand(place, question) {
    const nothing = {};
    const answer = await this.#answer(place, question, nothing);
    if (answer === nothing) throw noAnswer();
    return answer;
  }

  async #answer(place, question, nothing) {
    if (!this.#mayAsk(place)) return nothing;
    const endTurn = await this.#threads.take();
    try {
      // Much may have happened before its turn.
      return this.#mayAsk(place) ? await this.#answerInTime(place, question, nothing) : nothing;
    } finally {
      endTurn();
    }
  }

  async #answerInTime(place, question, nothing) {
    const answer = question();
    const { promise, cancel } = this.#wait(nothing);
    try {
      const first = await Promise.race([answer, promise]);
      if (first !== nothing) this.#trust(place);
      else this.#giveUp(place, answer);
      return first;
    } finally {
      cancel();
    }
  }

  #wait(nothing) {
    let end;
    const promise = new Promise((resolve) => { end = () => resolve(nothing); });
    const timer = setTimeout(end, this.#limit);
    this.#waits.add(end);
    const cancel = () => {
      clearTimeout(timer);
      this.#waits.delete(end);
    };
    return { promise, cancel };
  }

  #mayAsk(place) {
    const { size } = this.#threads.standing;
    return !this.#isClosed && !this.isSilent(place) && (size < mostStanding || (size === mostStanding && this.#trusted.has(place)));
  }

  #trust(place) {
    if (this.#trusted.size >= mostTrusted) this.#trusted.clear();
    this.#trusted.add(place);
  }

  #giveUp(place, answer) {
    this.#trusted.delete(place);
    this.#silentSince.set(place, this.#now());
    this.#standing.set(place, answer);
    this.#threads.leave(place, answer);
    const end = () => {
      if (this.#standing.get(place) === answer) this.#standing.delete(place);
    };
    answer.then(end, end);
  }
}
