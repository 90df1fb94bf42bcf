// A folder of another machine: what is asked about it and the files in it waits until that machine answers.

import { readdir, stat } from 'node:fs/promises';

export class FarFolder {
  asked = 0;
  isAway = true;
  #waiting = [];

  /** @param {string} folder */
  constructor(folder) {
    const waiting = (ask) => (place, ...rest) => (
      place === folder || place.startsWith(`${folder}/`) ? this.#wait(() => ask(place, ...rest)) : ask(place, ...rest));
    this.system = { stat: waiting(stat), readdir: waiting(readdir) };
  }

  answerAll() {
    this.isAway = false;
    for (const answer of this.#waiting.splice(0)) answer();
  }

  async #wait(ask) {
    this.asked += 1;
    if (this.isAway) await new Promise((resolve) => { this.#waiting.push(resolve); });
    return ask();
  }
}
