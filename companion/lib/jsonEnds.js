// Where a string or a value ends in JSON text that needn't be complete.

/** What can follow a number or a word. */
export const scalarEnd = /[,:[\]{} \t\r\n"]/;

/** Index behind the string that begins at `at`, -1 where it is cut. */
export function stringEnd(text, at) {
  for (let i = at + 1; i < text.length; i += 1) {
    if (text[i] === '\\') i += 1;
    else if (text[i] === '"') return i + 1;
  }
  return -1;
}

/** Index behind the value that begins at `at`, -1 where it is cut. */
export function valueEnd(text, at) {
  if (text[at] === '"') return stringEnd(text, at);
  let depth = 0;
  for (let i = at; i < text.length; i += 1) {
    const c = text[i];
    if (c === '"') {
      i = stringEnd(text, i) - 1;
      if (i < 0) return -1;
    } else if (c === '{' || c === '[') {
      depth += 1;
    } else if (c === '}' || c === ']') {
      depth -= 1;
      if (depth === 0) return i + 1;
      if (depth < 0) return i;
    } else if (depth === 0 && scalarEnd.test(c)) {
      return i;
    }
  }
  return -1;
}
