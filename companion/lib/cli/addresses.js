// Which addresses stand for something, by the rules of the service: it says nothing to one that it can't use, and the
// person who typed it is to hear so.

import { usageError } from '../words/failure.js';
import { plain } from '../words/output.js';

/** Without user and port. */
const hostOf = (authority) => authority.slice(authority.lastIndexOf('@') + 1).split(':', 1)[0];

/** Whether an address names a session: `tts://session/ID`, whatever follows it. */
export function namesSession(address) {
  const [, authority, path] = /^tts:\/\/([^/?#]*)([^?#]*)/i.exec(address) ?? [];
  return authority !== undefined && hostOf(authority) === 'session' && /[^/]/.test(path);
}

/** Fails with a usage error, in the words of the service's own program, unless each of them names a session. */
export function judgeAddresses({ positionals }) {
  const wrong = positionals.find((address) => !namesSession(address));
  if (wrong === undefined) return;
  throw usageError(`The address ${plain(wrong) || '""'} stands for nothing; a session's is tts://session/<id>. `
    + 'Nothing was opened.');
}
