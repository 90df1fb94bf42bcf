// Files that other programs read are replaced whole: a reader sees the old one or the new one.

import fs from 'node:fs';
import path from 'node:path';

/**
 * Writes `content` to a neighbour and renames it over `file`. Throws what the file system says; the old file stands
 * then.
 * @param {string} file
 * @param {string | Uint8Array} content
 * @param {{ mode?: number, temporary?: string }} [options] `temporary` must lie in the same folder
 */
export function replaceFile(file, content, { mode = 0o600, temporary = `${file}.tmp` } = {}) {
  try {
    fs.rmSync(temporary, { force: true });
    fs.writeFileSync(temporary, content, { mode, flag: 'wx' });
    // The mode given above is cut by the umask.
    fs.chmodSync(temporary, mode);
    fs.renameSync(temporary, file);
  } catch (error) {
    fs.rmSync(temporary, { force: true });
    throw error;
  }
}

/**
 * What is to be replaced where `file` may be a link, such as /dev/stdout: the file behind it. Nothing where no file stands
 * there: a device that is replaced is lost to everybody.
 */
export function fileBehind(file) {
  const present = fs.statSync(file, { throwIfNoEntry: false });
  if (!present) return file;
  return present.isFile() ? fs.realpathSync(file) : undefined;
}

/** The folder of `file`, readable by its owner alone if it has to be made. */
export function makeFolderOf(file) {
  fs.mkdirSync(path.dirname(file), { recursive: true, mode: 0o700 });
}

/** Content as text, or nothing where there is no such file. Any other failure is thrown. */
export function readIfPresent(file) {
  try {
    return fs.readFileSync(file, 'utf8');
  } catch (error) {
    if (error.code === 'ENOENT') return undefined;
    throw error;
  }
}
