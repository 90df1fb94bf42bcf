// The version of the package that this file belongs to, as it was when the process first asked.

import fs from 'node:fs';

let known;

/** Nothing where package.json is missing. */
export function packageVersion() {
  try {
    known ??= JSON.parse(fs.readFileSync(new URL('../package.json', import.meta.url), 'utf8')).version;
  } catch {
    // Somebody has taken the package apart.
  }
  return known;
}
