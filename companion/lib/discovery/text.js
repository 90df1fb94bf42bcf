// Texts of transcripts as they stand in a list: on one line and short. The rules are those of the service's own
// catalogue, so that a session reads the same in both.

export const listLength = 200;
const titleLength = 80;
/** Far more than a list shows: what stands behind isn't looked at. */
const longestLooked = 20_000;

const graphemes = new Intl.Segmenter(undefined, { granularity: 'grapheme' });

/** What machines write in the user's name. */
const wrapper = new RegExp('^<(command-|system-reminder>|local-command-|bash-|user-prompt-submit-hook>'
  + '|task-notification>|environment_context>|user_instructions>|permissions |turn_aborted>|skill>'
  + '|session_context>|SYSTEM_NOTICE>)'
  + '|^# AGENTS\\.md instructions |^\\[Request interrupted by user');
const editorNotes = /<(ide_selection|ide_opened_file|ide_diagnostics)>[\s\S]*?<\/\1>/g;

/** A text, or the empty one where there is something else. */
export const textOf = (value) => (typeof value === 'string' ? value : '');

/** The first `count` characters as a reader counts them. */
export function firstCharacters(text, count) {
  if (text.length <= count) return text;
  let end = 0;
  let seen = 0;
  for (const { index, segment } of graphemes.segment(text.slice(0, count * 40))) {
    if (seen === count) break;
    seen += 1;
    end = index + segment.length;
  }
  return text.slice(0, end);
}

/** One line without marks of layout, links, and characters that no program should have to show. */
export function cleanForList(text) {
  return text.slice(0, longestLooked)
    .replaceAll('```', ' ')
    .replace(/https?:\/\/\S+/g, '')
    .replaceAll('**', '')
    .replace(/[\p{Cc}\s]+/gu, ' ')
    .replace(/\p{Cs}/gu, '\ufffd')
    .trim();
}

export const listText = (text) => firstCharacters(cleanForList(text), listLength).trim();
export const titleText = (text) => firstCharacters(cleanForList(text), titleLength).trim();

/** What the user typed, or nothing where a machine wrote the text. */
export function realPrompt(text) {
  const typed = text.slice(0, longestLooked).replace(editorNotes, '').trim();
  return wrapper.test(typed) ? '' : typed;
}

/**
 * The texts in a message's content, joined with a blank.
 * @param {unknown} content a text, or a list of elements
 * @param {string[]} [types] of the elements that count; all that have a text where it is absent
 */
export function contentText(content, types) {
  if (typeof content === 'string') return content;
  if (!Array.isArray(content)) return '';
  return content.filter((element) => typeof element?.text === 'string' && (!types || types.includes(element.type)))
    .map((element) => element.text).join(' ');
}

/** The first text in a message's content that isn't blank, as the service's catalogue takes it. */
export function firstText(content, types) {
  if (!Array.isArray(content)) return textOf(content).trim();
  for (const element of content) {
    const text = textOf(element?.text).trim();
    if (text !== '' && (!types || types.includes(element.type))) return text;
  }
  return '';
}

/** A folder that the service accepts: absolute and without "..". */
export function folderOf(value) {
  const folder = textOf(value);
  return folder.startsWith('/') && !folder.includes('..') && !/\p{Cs}/u.test(folder) ? folder : '';
}
