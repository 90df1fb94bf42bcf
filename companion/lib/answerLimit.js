// A file system of another machine may give no answer for hours, and each question that waits for one keeps one of the
// few threads in which all of a process's questions are asked. So nobody waits longer than the limit, what gave no
// answer is left alone for a while and for as long as the old question stands, and where several stand nothing is asked
// that hasn't answered before.

const usualLimit = 2000;
/** Of the four threads. */
const mostStanding = 2;
const mostTrusted = 1000;
export const silenceInterval = 180_000;

export class AnswerLimit {
  #limit;
  #now;
  /** Questions that wait for an answer behind the limit, by what was asked. */
  #standing = new Map();
  /** When it gave no answer. */
  #silentSince = new Map();
  /** What has answered the last time. */
  #trusted = new Set();
  /** Ends each wait. */
  #waits = new Set();
  #isClosed = false;

  /** @param {{ now: () => number, limit?: number }} options in milliseconds; `now` is of the day, the limit of a clock */
  constructor({ now, limit = usualLimit }) {
    this.#now = now;
    this.#limit = limit;
  }

  /** Nobody is waited for any more. */
  close() {
    this.#isClosed = true;
    for (const end of this.#waits) end();
  }

  isSilent(place) {
    const age = this.#now() - this.#silentSince.get(place);
    if (this.#standing.has(place) || (age >= 0 && age < silenceInterval)) return true;
    this.#silentSince.delete(place);
    return false;
  }

  /**
   * The answer, or `otherwise` where there is none in time or it isn't asked for.
   * @template T
   * @param {string} place what is asked; the answers of a folder and of the files in it come and fail together
   * @param {() => Promise<T>} question
   * @param {T} otherwise
   * @returns {Promise<T>}
   */
  async ask(place, question, otherwise) {
    if (!this.#mayAsk(place)) return otherwise;
    const answer = question();
    const { promise, cancel } = this.#wait();
    try {
      const first = await Promise.race([answer, promise]);
      if (first !== this) this.#trust(place);
      else this.#giveUp(place, answer);
      return first === this ? otherwise : first;
    } finally {
      cancel();
    }
  }

  /** A promise of this object, which stands for no answer. */
  #wait() {
    let end;
    const promise = new Promise((resolve) => { end = () => resolve(this); });
    const timer = setTimeout(end, this.#limit);
    this.#waits.add(end);
    const cancel = () => {
      clearTimeout(timer);
      this.#waits.delete(end);
    };
    return { promise, cancel };
  }

  #mayAsk(place) {
    const { size } = this.#standing;
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
    const end = () => {
      if (this.#standing.get(place) === answer) this.#standing.delete(place);
    };
    answer.then(end, end);
  }
}
