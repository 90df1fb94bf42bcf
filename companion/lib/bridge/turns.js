// One thing after another for each device: what it asked for first is done first, however long that takes. Nothing here
// knows what is done; one that fails holds nobody up.

export class Turns {
  /** The last one of each device that has any. */
  #last = new Map();

  /**
   * Does `work` when what `device` asked for before is done.
   * @template T
   * @param {string} device
   * @param {() => Promise<T>} work
   * @returns {Promise<T>} what `work` gives
   */
  async take(device, work) {
    const before = this.#last.get(device) ?? Promise.resolve();
    const turn = before.then(work, work);
    this.#last.set(device, turn);
    try {
      return await turn;
    } finally {
      if (this.#last.get(device) === turn) this.#last.delete(device);
    }
  }
}
