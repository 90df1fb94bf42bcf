// The devices that listen: each gets the present picture at once, every other one as it comes, and a sign of life in
// between. A device has four streams at most; one more ends its oldest, which is most often one that it has forgotten.

import { toEvent } from './picture.js';

const beatInterval = 15_000;
const perDevice = 4;
const inAll = 24;
const unsentLimit = 256 * 1024;
/** How long the last words may take to get out. */
const endLimit = 5000;

export class Streams {
  #feed;
  #clock;
  #seen;
  #open = new Set();

  /**
   * @param {{ feed: import('./feed.js').Feed, clock: import('../clock.js').Clock,
   *   seen?: (device: string) => void }} options `seen` is told of each device that is there, again and again
   */
  constructor({ feed, clock, seen = () => {} }) {
    this.#feed = feed;
    this.#clock = clock;
    this.#seen = seen;
  }

  get size() {
    return this.#open.size;
  }

  /** False if there are too many already. */
  hasRoom(device) {
    return this.#open.size < inAll || this.#of(device).length >= perDevice;
  }

  /** Goes on in `response`, whose head is written here, until either side ends it. */
  open(device, response, headers) {
    const mine = this.#of(device);
    if (mine.length >= perDevice) this.#end(mine[0], 'event: replaced\ndata: {}\n\n');
    const stream = { device, response };
    this.#open.add(stream);
    // What comes after a stream is a new connection: this one may be ended at any moment.
    response.writeHead(200, { ...headers, 'Content-Type': 'text/event-stream; charset=utf-8', Connection: 'close' });
    response.flushHeaders();
    response.once('close', () => this.#forget(stream));
    stream.unsubscribe = this.#feed.subscribe((picture) => {
      this.#write(stream, `data: ${JSON.stringify(toEvent(picture, this.#clock.now()))}\n\n`);
    });
    this.#beat(stream);
  }

  /** The device is no longer paired. */
  endOf(device) {
    for (const stream of this.#of(device)) this.#end(stream, '');
  }

  close() {
    for (const stream of [...this.#open]) this.#end(stream, '');
  }

  #of(device) {
    return [...this.#open].filter((stream) => stream.device === device);
  }

  #beat(stream) {
    stream.timer = this.#clock.setTimeout(() => {
      // What the kernel hasn't taken for as long as two beats, nobody reads.
      const isBehind = stream.response.writableLength > 0;
      if (isBehind && stream.wasBehind) return stream.response.destroy();
      stream.wasBehind = isBehind;
      if (!isBehind) this.#seen(stream.device);
      this.#write(stream, ': here\n\n');
      return this.#beat(stream);
    }, beatInterval);
  }

  /** A device that reads nothing costs no more than this. */
  #write(stream, text) {
    if (!this.#open.has(stream)) return;
    if (stream.response.writableLength > unsentLimit) stream.response.destroy();
    else stream.response.write(text);
  }

  #end(stream, lastWords) {
    this.#forget(stream);
    const timer = this.#clock.setTimeout(() => stream.response.destroy(), endLimit);
    stream.response.once('close', () => this.#clock.clearTimeout(timer));
    stream.response.end(lastWords);
  }

  #forget(stream) {
    if (!this.#open.delete(stream)) return;
    this.#clock.clearTimeout(stream.timer);
    stream.unsubscribe?.();
  }
}
