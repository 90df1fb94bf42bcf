// The end of a file that grows, such as a log. Throws what the file system says.

import fs from 'node:fs';

/** The last `limit` bytes of a file, from the beginning of a line. */
export function tailOf(file, limit) {
  const fd = fs.openSync(file, 'r');
  try {
    const { size } = fs.fstatSync(fd);
    const length = Math.min(size, limit);
    const bytes = Buffer.alloc(length);
    const text = bytes.toString('utf8', 0, fs.readSync(fd, bytes, 0, length, size - length));
    return { text: length < size ? text.slice(text.indexOf('\n') + 1) : text, omitted: size - length };
  } finally {
    fs.closeSync(fd);
  }
}
