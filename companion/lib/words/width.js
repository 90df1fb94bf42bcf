// How many cells of a terminal a text takes: East Asian and pictorial characters take two, combining ones none.

const segmenter = new Intl.Segmenter(undefined, { granularity: 'grapheme' });
const wide = new RegExp('^[\\u1100-\\u115f\\u2e80-\\u303e\\u3041-\\ua4cf\\ua960-\\ua97c\\uac00-\\ud7a3\\uf900-\\ufaff'
  + '\\ufe30-\\ufe6f\\uff01-\\uff60\\uffe0-\\uffe6\\u{1f300}-\\u{1faff}\\u{20000}-\\u{3fffd}]|\\p{Emoji_Presentation}|\\ufe0f', 'u');
const isPlainText = (text) => /^[\x20-\x7e]*$/.test(text);

/** @returns {string[]} what a reader takes for a character each */
export const graphemes = (text) => Array.from(segmenter.segment(text), ({ segment }) => segment);

const cellsOf = (grapheme) => {
  if (/^[\p{M}\u200d]*$/u.test(grapheme)) return 0;
  return wide.test(grapheme) || grapheme.includes('\ufe0f') ? 2 : 1;
};

export function widthOf(text) {
  if (isPlainText(text)) return text.length;
  return graphemes(text).reduce((sum, grapheme) => sum + cellsOf(grapheme), 0);
}

/** Cut to `cells`, with a mark where something is missing. */
export function cutTo(text, cells) {
  if (widthOf(text) <= cells) return text;
  let kept = '';
  let left = cells - 1;
  for (const grapheme of graphemes(text)) {
    left -= cellsOf(grapheme);
    if (left < 0) break;
    kept += grapheme;
  }
  return `${kept}…`;
}
