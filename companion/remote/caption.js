// The caption: its words in their roles, the bar of progress, and the same text for screen readers, who hear each text
// once and not more often than they can take it.

import { activeWord, elapsedAt, isMoving, scrollOffset, statusOf, timeLabel, wordsOf } from './words.js';

const readerInterval = 4000;
/** How long a person who scrolls the text by hand is left alone. */
const handScrollTime = 4000;
const tickWithoutMotion = 500;

export class Caption {
  #at = (id) => document.getElementById(id);
  #stillness = matchMedia('(prefers-reduced-motion: reduce)');
  #picture;
  #text;
  #words = [];
  #active;
  #frame;
  #timer;
  #reader;
  #nextReading = 0;
  #handScrolledAt = -Infinity;

  constructor() {
    const byHand = () => { this.#handScrolledAt = performance.now(); };
    for (const kind of ['touchmove', 'wheel', 'keydown']) {
      this.#at('caption').addEventListener(kind, byHand, { passive: true });
    }
    addEventListener('resize', () => this.#scroll());
  }

  /** @param {object | undefined} picture nothing while the computer hasn't been heard of */
  show(picture) {
    this.#picture = picture;
    const status = statusOf(picture);
    const text = picture?.service ? picture.nowPlaying.snippet : '';
    this.#showText(text);
    this.#at('words').hidden = text === '';
    this.#at('placeholder').hidden = text !== '';
    this.#at('placeholder').textContent = status.placeholder || 'Waiting for narration…';
    this.#at('caption').dataset.kind = status.kind;
    this.#showCounter(picture?.service ? picture.nowPlaying.cursor : undefined);
    this.#tellReaders(text);
    this.#move();
  }

  #showText(text) {
    if (text === this.#text) return;
    this.#text = text;
    this.#active = undefined;
    this.#words = wordsOf(text).map((word) => {
      const span = document.createElement('span');
      span.textContent = word;
      return span;
    });
    this.#at('words').replaceChildren(...this.#words.flatMap((span) => [span, ' ']));
    this.#at('caption').scrollTop = 0;
    this.#handScrolledAt = -Infinity;
  }

  #showCounter(cursor) {
    const isCounted = cursor && cursor.totalChunks > 1;
    this.#at('counter').textContent = isCounted ? `${cursor.chunkIndex + 1}/${cursor.totalChunks}` : '';
    this.#at('counter').ariaLabel = isCounted ? `Part ${cursor.chunkIndex + 1} of ${cursor.totalChunks}` : null;
  }

  /** Goes on moving for as long as something is being said. */
  #move() {
    // The numbers of frames and of timers are counted apart: one must not be taken for the other.
    cancelAnimationFrame(this.#frame);
    clearTimeout(this.#timer);
    this.#draw();
    if (!this.#picture || !isMoving(this.#picture)) return;
    const again = () => this.#move();
    if (this.#stillness.matches) this.#timer = setTimeout(again, tickWithoutMotion);
    else this.#frame = requestAnimationFrame(again);
  }

  #draw() {
    const duration = this.#picture?.service ? this.#picture.nowPlaying.duration : 0;
    const elapsed = duration > 0 ? elapsedAt(this.#picture, performance.now()) : 0;
    const progress = duration > 0 ? elapsed / duration : 0;
    this.#at('bar-fill').style.setProperty('transform', `scaleX(${progress.toFixed(4)})`);
    this.#setText('elapsed', timeLabel(elapsed));
    this.#setText('duration', timeLabel(duration));
    const percent = String(Math.round(progress * 100));
    if (this.#at('bar').ariaValueNow !== percent) this.#at('bar').ariaValueNow = percent;
    this.#highlight(duration > 0 ? activeWord(progress, this.#words.length) : undefined);
  }

  #setText(id, text) {
    if (this.#at(id).textContent !== text) this.#at(id).textContent = text;
  }

  /** @param {number | undefined} active nothing: no word is, and none has been */
  #highlight(active) {
    if (active === this.#active) return;
    this.#active = active;
    this.#words.forEach((span, index) => {
      span.className = active === undefined || index > active ? '' : index === active ? 'active' : 'past';
    });
    this.#scroll();
  }

  #scroll() {
    const word = this.#words[this.#active];
    if (!word || performance.now() - this.#handScrolledAt < handScrollTime) return;
    const box = this.#at('caption');
    const top = scrollOffset(word.offsetTop, box.clientHeight, box.scrollHeight);
    if (Math.abs(top - box.scrollTop) < 2) return;
    box.scrollTo({ top, behavior: this.#stillness.matches ? 'auto' : 'smooth' });
  }

  #tellReaders(text) {
    clearTimeout(this.#reader);
    if (this.#at('spoken').textContent === text) return;
    if (text === '') {
      this.#at('spoken').textContent = '';
      return;
    }
    const tell = () => {
      this.#at('spoken').textContent = text;
      this.#nextReading = performance.now() + readerInterval;
    };
    this.#reader = setTimeout(tell, Math.max(0, this.#nextReading - performance.now()));
  }
}
