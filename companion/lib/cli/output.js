// What a command writes: its result on standard output, as lines for a person or as one JSON object for a program;
// everything else on standard error. Texts of transcripts pass through `plain`, so that none can steer a terminal.

/** A text on one line, without characters that a terminal or the reading direction would obey. */
export function plain(text) {
  return String(text)
    .replace(/[\p{Cc}\u2028\u2029\s]+/gu, ' ')
    .replace(/[\u200e\u200f\u202a-\u202e\u2066-\u2069]/gu, '')
    .trim();
}

/** Cut to `length` characters. */
export function shortened(text, length) {
  const characters = [...plain(text)];
  return characters.length <= length ? characters.join('') : `${characters.slice(0, length - 1).join('')}…`;
}

/** Lines with columns of the same width; the last column is not filled up. */
export function columns(rows, indent = '  ') {
  const widths = [];
  for (const row of rows) row.forEach((cell, i) => { widths[i] = Math.max(widths[i] ?? 0, [...cell].length); });
  const fill = (cell, i, row) => (i === row.length - 1 ? cell : cell + ' '.repeat(widths[i] - [...cell].length));
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
    if (this.json) this.stdout.write(`${JSON.stringify({ ok: true, ...value })}\n`);
  }

  failure(failure) {
    this.note(`${this.program}: ${failure.message}`, ...(failure.hint ? [failure.hint] : []));
    if (!this.json) return;
    const { kind, message, exit, details } = failure;
    this.stdout.write(`${JSON.stringify({ ok: false, error: kind, message, exit, ...details })}\n`);
  }

  style(name, text) {
    return this.color ? `\x1b[${escapes[name]}m${text}\x1b[0m` : text;
  }
}
