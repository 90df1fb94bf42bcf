// A long text in pieces of whole sentences: the provider's voices lose their thread in long ones.

export const pieceCharacters = 1500;

/** Sentences of a line, by the rules for text in any script. */
function sentencesOf(line) {
  const segmenter = new Intl.Segmenter(undefined, { granularity: 'sentence' });
  return Array.from(segmenter.segment(line), ({ segment }) => segment);
}

/** Where what a reader takes for one character ends, at or before `at`. */
function endOfCharacter(text, at) {
  const segmenter = new Intl.Segmenter(undefined, { granularity: 'grapheme' });
  const start = segmenter.segment(text.slice(0, at + 64)).containing(at)?.index ?? at;
  // One that is longer than a piece has to be cut all the same, though not between the halves of a code point.
  if (start > 0) return start;
  return /[\uD800-\uDBFF]/.test(text[at - 1]) ? at - 1 : at;
}

const isSpeakable = (text) => /[\p{L}\p{N}\p{Extended_Pictographic}\p{Regional_Indicator}]/u.test(text);

/** A sentence that is longer than `limit`, cut at blanks, or between characters where it has none. */
function cut(sentence, limit) {
  const parts = [];
  let rest = sentence;
  while (rest.length > limit) {
    const blank = rest.lastIndexOf(' ', limit);
    const at = blank > 0 ? blank : endOfCharacter(rest, limit);
    parts.push(rest.slice(0, at));
    rest = rest.slice(at);
  }
  parts.push(rest);
  return parts;
}

/**
 * The text in the order of speaking; every word of it, but nothing that holds no word, in pieces of at most `limit` characters.
 * @param {string} text
 * @param {{ limit?: number, isFirstAlone?: boolean }} [options] `isFirstAlone`: the first sentence is a piece of its
 *   own, so that it is heard early
 * @returns {string[]}
 */
export function piecesOf(text, { limit = pieceCharacters, isFirstAlone = false } = {}) {
  const sentences = text.split(/\r?\n/).flatMap((line) => sentencesOf(`${line}\n`)).flatMap((s) => cut(s, limit));
  const pieces = [];
  for (const sentence of sentences) {
    if (!sentence.trim()) continue;
    const last = pieces.length - 1;
    const isJoinable = last >= (isFirstAlone ? 1 : 0) && pieces[last].length + sentence.length <= limit;
    if (isJoinable) pieces[last] += sentence;
    else pieces.push(sentence);
  }
  // The provider answers nothing to a row of dots, or reads out what it was told.
  return pieces.filter(isSpeakable).map((piece) => piece.trim());
}
