// A long text in pieces of whole sentences: the provider's voices lose their thread in long ones.

export const pieceCharacters = 1500;

/** Sentences of a line, by the rules for text in any script. */
function sentencesOf(line) {
  const segmenter = new Intl.Segmenter(undefined, { granularity: 'sentence' });
  return Array.from(segmenter.segment(line), ({ segment }) => segment);
}

/** A sentence that is longer than `limit`, cut at blanks, or between characters where it has none. */
function cut(sentence, limit) {
  const parts = [];
  let rest = sentence;
  while (rest.length > limit) {
    const blank = rest.lastIndexOf(' ', limit);
    let at = blank > 0 ? blank : limit;
    // Never between the halves of one character.
    if (/[\uD800-\uDBFF]/.test(rest[at - 1])) at -= 1;
    parts.push(rest.slice(0, at));
    rest = rest.slice(at);
  }
  parts.push(rest);
  return parts;
}

/**
 * The text in the order of speaking; every word of it, in pieces of at most `limit` characters.
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
  return pieces.map((piece) => piece.trim());
}
