// Words of the other side as they may be shown: on a terminal, in a log, in a list of errors.

/** Longest text that is passed on; a description of an image is the longest that there is. */
export const longestWords = 20_000;
const longestReason = 500;

/**
 * Without the key, without anything that a terminal or the reading direction would obey, and bounded. What is invisible
 * goes first, or it could stand in the middle of the key and hide it.
 * @param {unknown} text
 * @param {string} key
 */
export function cleanWords(text, key, limit = longestWords) {
  const visible = String(text).replace(/[^\P{C}\n\t]|[\u2028\u2029]/gu, '');
  const safe = key ? visible.replaceAll(key, '[redacted]') : visible;
  return safe.slice(0, limit).replace(/[\uD800-\uDBFF]$/, '');
}

/** The same on one line, as part of a sentence. */
export function cleanReason(text, key) {
  return cleanWords(String(text).replace(/\s+/g, ' '), key, longestReason).trim();
}
