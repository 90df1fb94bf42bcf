// Reads the beginning and the end of files, one file at a time, into one piece of memory that lasts as long as its
// owner: transcripts are long and many, and this runs beside other work in a small process. Never reads a whole file
// that is longer than its limits, and waits no longer for one than AnswerLimit says.

import { constants } from 'node:fs';
import { open, readdir } from 'node:fs/promises';
import path from 'node:path';

import { isPassing } from './folder.js';

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
  #answers;
  #turn = Promise.resolve();

  /** @param {import('../answerLimit.js').AnswerLimit} answers */
  constructor(answers) {
    this.#answers = answers;
  }

  /**
   * Lets `look` read in the file. Throws what the file system says, or what `look` throws, and ETIMEDOUT where there is
   * no answer in time.
   * @template T
   * @param {string} file
   * @param {(file: OpenFile) => Promise<T>} look
   * @returns {Promise<T>}
   */
  read(file, look) {
    const result = this.#turn.then(() => this.#lookInTime(file, look));
    this.#turn = result.catch(() => {});
    return result;
  }

  /**
   * The JSON value in a small file; nothing where there is none, or the file is longer than a second look. Throws where
   * it can't be read just now.
   */
  async json(file) {
    try {
      return await this.read(file, async (open) => (
        open.size <= secondLookBytes ? JSON.parse((await open.head(secondLookBytes)).toString()) : undefined));
    } catch (error) {
      if (isPassing(error)) throw error;
      return undefined;
    }
  }

  /** Names in a folder; none where there is none. Throws where it can't be read just now. */
  async names(folder, accepts) {
    try {
      return (await this.#answers.demand(folder, () => readdir(folder))).filter(accepts);
    } catch (error) {
      if (isPassing(error)) throw error;
      return [];
    }
  }

  async #lookInTime(file, look) {
    const memory = this.#memory;
    try {
      return await this.#answers.demand(path.dirname(file), () => TranscriptReader.#look(file, look, memory));
    } catch (error) {
      // A late answer may still be written into it.
      if (error.code === 'ETIMEDOUT') this.#memory = Buffer.allocUnsafeSlow(secondLookBytes);
      throw error;
    }
  }

  static async #look(file, look, memory) {
    // A pipe that has a transcript's name must not hold us up.
    const handle = await open(file, constants.O_RDONLY | constants.O_NONBLOCK);
    try {
      const status = await handle.stat();
      if (!status.isFile()) throw Object.assign(new Error('not a file'), { code: 'EISDIR' });
      return await look(new OpenFile(handle, status, memory));
    } finally {
      await handle.close();
    }
  }
}
