// How often one device, or one address, may ask: a bucket for each that fills again with time. The number of buckets is
// bounded, so that a sender with many addresses costs no memory.

const bucketLimit = 1024;

export class RateLimit {
  #buckets = new Map();

  /** @param {{ perSecond: number, burst: number, clock: { now(): number } }} options */
  constructor({ perSecond, burst, clock }) {
    this.perSecond = perSecond;
    this.burst = burst;
    this.clock = clock;
  }

  /** True if `key` may ask now, which counts. */
  take(key) {
    const bucket = this.#filled(key);
    if (bucket.level < 1) return false;
    bucket.level -= 1;
    return true;
  }

  #filled(key) {
    const now = this.clock.now();
    const bucket = this.#buckets.get(key) ?? { level: this.burst, at: now };
    const passed = Math.max(0, now - bucket.at) / 1000;
    bucket.level = Math.min(this.burst, bucket.level + passed * this.perSecond);
    bucket.at = now;
    // The one that was used last stands at the end; the first is the one to forget.
    this.#buckets.delete(key);
    this.#buckets.set(key, bucket);
    if (this.#buckets.size > bucketLimit) this.#buckets.delete(this.#buckets.keys().next().value);
    return bucket;
  }
}
