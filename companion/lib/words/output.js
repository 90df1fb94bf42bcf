// What a command writes: its result on standard output, as lines for a person or as one JSON object for a program;
// everything else on standard error. Texts of transcripts pass through `plain`, so that none can steer a terminal.

import { cutTo, widthOf } from './width.js';

/** A text on one line, without characters that a terminal or the reading direction would obey. */
export function plain(text) {
  return String(text)
    .replace(/[\p{Cc}\u2028\u2029\s]+/gu, ' ')
    .replace(/[\u061c\u200b\u200e\u200f\u202a-\u202e\u2060-\u2069\ufeff\p{Co}]/gu, '')
    .trim();
}

/** Cut to `length` cells of a terminal. */
export const shortened = (text, length) => cutTo(plain(text), length);

/** One line; what a terminal would obey is escaped, which is the same text for a program. */
export function jsonLine(value) {
  return `${JSON.stringify(value).replace(/[\x7f-\x9f\u061c\u200b\u200e\u200f\u2028-\u202e\u2060-\u2069\ufeff]/g,
    (character) => `\\u${character.charCodeAt(0).toString(16).padStart(4, '0')}`)}\n`;
}

/** Lines with columns of the same width; the last column is not filled up. */
export function columns(rows, indent = '  ') {
  const widths = [];
  for (const row of rows) row.forEach((cell, i) => { widths[i] = Math.max(widths[i] ?? 0, widthOf(cell)); });
  const fill = (cell, i, row) => (i === row.length - 1 ? cell : cell + ' '.repeat(widths[i] - widthOf(cell)));
  return rows.map((row) => (indent + row.map(fill).join('  ')).trimEnd());
}

const escapes = { bold: 1, dim: 2, green: 32, yellow: 33 };

export class Output {
  /**
   * @param {{ stdout: { write(text: string): unknown, isTTY?: boolean }, stderr: { write(text: string): unknown },
   *   environment: NodeJS.ProcessEnv, json: boolean, program?: string }} options `program` stands in front of errors
   */
  constructor({ stdout, stderr, environment, json, program = 'tts' }) {
    this.program = program;
    this.stdout = stdout;
    this.stderr = stderr;
    this.json = json;
    this.color = Boolean(stdout.isTTY) && !environment.NO_COLOR && environment.TERM !== 'dumb' && !json;
  }

  /** Lines of the result, for a person. */
  say(...lines) {
    if (!this.json) this.stdout.write(`${lines.join('\n')}\n`);
  }

  /** A remark beside the result. */
  note(...lines) {
    this.stderr.write(`${lines.join('\n')}\n`);
  }

  /** The result, for a program. */
  result(value) {
    if (this.json) this.stdout.write(jsonLine({ ok: true, ...value }));
  }

  failure(failure) {
    this.note(`${this.program}: ${failure.message}`, ...(failure.hint ? [failure.hint] : []));
    if (!this.json) return;
    const { kind, message, exit, details } = failure;
    this.stdout.write(jsonLine({ ok: false, error: kind, message, exit, ...details }));
  }

  style(name, text) {
    return this.color ? `\x1b[${escapes[name]}m${text}\x1b[0m` : text;
  }
}
