// Hands the present picture to whoever listens, whenever it changes. While nobody does it reads nothing. Changes that
// come close together are one: the service replaces its snapshot several times when a reply begins.

import { socketPath } from '../places.js';
import { isServiceRunning } from '../serviceSocket.js';
import { readPicture } from './picture.js';

const settleTime = 40;
/** A service that was killed tells nobody, and a watch may be lost. */
const lookInterval = 5000;

export class Feed {
  #environment;
  #clock;
  #listeners = new Set();
  #service = false;
  #askService = true;
  #picture;
  #text;
  #settling;
  #nextLook;
  #reading = false;
  #again = false;

  /** @param {{ environment: NodeJS.ProcessEnv, clock: import('../clock.js').Clock }} options */
  constructor({ environment, clock }) {
    this.#environment = environment;
    this.#clock = clock;
  }

  /**
   * @param {(picture: ReturnType<typeof readPicture>) => void} listener called at once where there is a picture, and
   *   with every other one
   * @returns {() => void} ends it
   */
  subscribe(listener) {
    this.#listeners.add(listener);
    if (this.#picture) listener(this.#picture);
    else this.#look();
    return () => {
      this.#listeners.delete(listener);
      if (this.#listeners.size === 0) this.#rest();
    };
  }

  /**
   * Something has changed: look, in a moment.
   * @param {{ service?: boolean }} [options] `service`: it may have come or gone
   */
  poke({ service = false } = {}) {
    this.#askService ||= service;
    if (this.#listeners.size === 0 || this.#settling !== undefined) return;
    this.#settling = this.#clock.setTimeout(() => {
      this.#settling = undefined;
      this.#refresh();
    }, settleTime);
  }

  close() {
    this.#listeners.clear();
    this.#rest();
  }

  #rest() {
    this.#clock.clearTimeout(this.#settling);
    this.#clock.clearTimeout(this.#nextLook);
    this.#settling = undefined;
    this.#nextLook = undefined;
    this.#picture = undefined;
    this.#text = undefined;
  }

  /** One look at a time; what changes during one is seen by the next. */
  #refresh() {
    this.#again = true;
    if (!this.#reading) void this.#readWhileAsked();
  }

  async #readWhileAsked() {
    this.#reading = true;
    while (this.#again && this.#listeners.size > 0) {
      this.#again = false;
      if (this.#askService) await this.#ask();
      if (this.#listeners.size > 0) this.#show(readPicture({ environment: this.#environment, service: this.#service }));
    }
    this.#reading = false;
  }

  async #ask() {
    this.#askService = false;
    this.#service = await isServiceRunning({ path: socketPath(this.#environment) });
  }

  /** A look at everything, and another one after a while. */
  #look() {
    this.#askService = true;
    this.#clock.clearTimeout(this.#nextLook);
    this.#nextLook = this.#clock.setTimeout(() => this.#look(), lookInterval);
    this.#refresh();
  }

  #show(picture) {
    this.#picture = picture;
    const text = JSON.stringify(picture.shown);
    if (text === this.#text) return;
    this.#text = text;
    for (const listener of [...this.#listeners]) listener(picture);
  }
}
