// One JSON object a line, redacted, in a file that is rotated: ten megabytes, five old ones kept. A full disk must not
// harm the program, so every failure to write is swallowed.

import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { redactFields } from './redaction.js';

export const levels = { trace: 10, debug: 20, info: 30, warn: 40, error: 50, fatal: 60 };

function describe(error) {
  return { name: error?.name ?? 'Error', message: String(error?.message ?? error), code: error?.code ?? '' };
}

/** Appends lines to a file and moves it aside when it has grown. */
export class RotatingFile {
  constructor(file, { maxBytes = 10 * 1024 * 1024, keepCount = 5 } = {}) {
    this.file = file;
    this.maxBytes = maxBytes;
    this.keepCount = keepCount;
    this.size = undefined;
  }

  append(line) {
    try {
      this.size ??= this.#open();
      const bytes = Buffer.from(`${line}\n`);
      fs.appendFileSync(this.file, bytes, { mode: 0o600 });
      this.size += bytes.length;
      if (this.size >= this.maxBytes) this.#rotate();
    } catch {
      this.size = undefined;
    }
  }

  #open() {
    fs.mkdirSync(path.dirname(this.file), { recursive: true, mode: 0o700 });
    return fs.statSync(this.file, { throwIfNoEntry: false })?.size ?? 0;
  }

  #rotate() {
    this.size = undefined;
    for (let i = this.keepCount - 1; i >= 1; i -= 1) {
      if (fs.existsSync(`${this.file}.${i}`)) fs.renameSync(`${this.file}.${i}`, `${this.file}.${i + 1}`);
    }
    fs.renameSync(this.file, `${this.file}.1`);
  }
}

export class Log {
  #sink;
  #threshold;
  #fields;

  /**
   * @param {{ append(line: string): void }} sink
   * @param {{ level?: string, fields?: object }} [options] `level` is the lowest that is written
   */
  constructor(sink, { level = process.env.TTS_LOG_LEVEL, fields = {} } = {}) {
    this.#sink = sink;
    this.#threshold = Object.hasOwn(levels, level ?? '') ? levels[level] : levels.info;
    this.#fields = fields;
    this.level = level;
  }

  /** The same log with more in every line. */
  child(fields) {
    return new Log(this.#sink, { level: this.level, fields: { ...this.#fields, ...fields } });
  }

  debug(message, fields) { this.#write('debug', message, fields); }
  info(message, fields) { this.#write('info', message, fields); }
  warn(message, fields) { this.#write('warn', message, fields); }

  /** @param {unknown} [cause] what was thrown */
  error(message, cause, fields = {}) {
    this.#write('error', message, cause === undefined ? fields : { ...fields, cause: describe(cause) });
  }

  #write(level, message, fields = {}) {
    if (levels[level] < this.#threshold) return;
    const record = {
      ...redactFields({ ...this.#fields, ...fields }),
      env: process.env.SONRA_ENV || 'prod',
      host: os.hostname(),
      level: levels[level],
      msg: message,
      service: 'sonra-daemon',
      time: new Date().toISOString(),
    };
    this.#sink.append(JSON.stringify(record));
  }
}

/** A log that nobody reads. */
export const silentLog = new Log({ append() {} });
