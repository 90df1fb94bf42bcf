// Reads the beginning and the end of files, one file at a time, into one piece of memory that lasts as long as its
// owner: transcripts are long and many, and this runs beside other work in a small process. Never reads a whole file
// that is longer than its limits.

import { constants } from 'node:fs';
import { open } from 'node:fs/promises';

export const headBytes = 32 * 1024;
export const tailBytes = 64 * 1024;
/** Where the first look misses what is wanted: some agents begin a file with long instructions. */
export const secondLookBytes = 256 * 1024;

/** A file that is open for a look. What `head` and `tail` give is valid until the next of them. */
class OpenFile {
  #handle;
  #memory;

  constructor(handle, status, memory) {
    this.#handle = handle;
    this.#memory = memory;
    this.size = status.size;
    this.ino = status.ino;
  }

  head(bytes = headBytes) {
    return this.#read(0, Math.min(bytes, this.size));
  }

  tail(bytes = tailBytes) {
    const length = Math.min(bytes, this.size);
    return this.#read(this.size - length, length);
  }

  async #read(position, length) {
    let done = 0;
    while (done < length) {
      const { bytesRead } = await this.#handle.read(this.#memory, done, length - done, position + done);
      if (bytesRead === 0) break;
      done += bytesRead;
    }
    return this.#memory.subarray(0, done);
  }
}

export class TranscriptReader {
  #memory = Buffer.allocUnsafeSlow(secondLookBytes);
  #turn = Promise.resolve();

  /**
   * Lets `look` read in the file. Throws what the file system says, or what `look` throws.
   * @template T
   * @param {string} path
   * @param {(file: OpenFile) => Promise<T>} look
   * @returns {Promise<T>}
   */
  read(path, look) {
    const result = this.#turn.then(() => this.#look(path, look));
    this.#turn = result.catch(() => {});
    return result;
  }

  /** The JSON value in a small file; nothing where there is none, or the file is longer than a second look. */
  async json(path) {
    try {
      return await this.read(path, async (file) => (
        file.size <= secondLookBytes ? JSON.parse((await file.head(secondLookBytes)).toString()) : undefined));
    } catch {
      return undefined;
    }
  }

  async #look(path, look) {
    // A pipe that has a transcript's name must not hold us up.
    const handle = await open(path, constants.O_RDONLY | constants.O_NONBLOCK);
    try {
      const status = await handle.stat();
      if (!status.isFile()) throw Object.assign(new Error('not a file'), { code: 'EISDIR' });
      return await look(new OpenFile(handle, status, this.#memory));
    } finally {
      await handle.close();
    }
  }
}
