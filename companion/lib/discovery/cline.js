// Sessions of Cline. As an editor's extension it keeps a folder for each task with the conversation as one JSON list;
// newer versions keep a folder for each session with one JSON object, and what the session is about beside it.

import path from 'node:path';

import { clineSessionsDirectory, clineTaskDirectories } from '../places.js';
import { document, readTranscript } from './readTranscript.js';
import { contentText, firstText, realPrompt, textOf } from './text.js';

export const source = 'cline';

const conversation = 'api_conversation_history.json';
/** What the extension tells the model of the place where it runs. */
const placeNote = /# Current W(?:orking|orkspace) Directory \((\/[^)\n]*)\)/;
const notes = /<(environment_details|thinking|file_content|folder_content)\b[^>]*>[\s\S]*?(<\/\1>|$)/g;
const tools = 'execute_command|read_file|write_to_file|replace_in_file|list_files|search_files'
  + '|list_code_definition_names|browser_action|use_mcp_tool|access_mcp_resource';
const calls = new RegExp(`<(${tools})\\b[^>]*>[\\s\\S]*?</\\1>`, 'gi');
const kept = 'task|user_input|user_message|feedback|ask_followup_question|attempt_completion|result|question';
const marks = new RegExp(`</?(${kept})\\b[^>]*>`, 'gi');

const withoutMarkup = (text) => text.replace(notes, ' ').replace(calls, ' ').replace(marks, ' ').trim();

const format = {
  takeHead(record, facts) {
    if (record.role === undefined) {
      facts.sessionId ||= textOf(record.sessionId);
      facts.isOther ||= typeof record.agent === 'string' && record.agent !== 'lead';
    }
    if (record.role !== 'user') return;
    const text = contentText(record.content, ['text']);
    facts.cwd ||= placeNote.exec(text)?.[1] ?? '';
    facts.prompt ||= realPrompt(withoutMarkup(text));
  },
  isHeadDone: (facts) => Boolean(facts.prompt),
  takeTail(record, found) {
    if (record.role === 'assistant') found.lastText ||= withoutMarkup(firstText(record.content, ['text']));
  },
};

export class Cline {
  source = source;

  constructor({ environment }) {
    this.tasks = clineTaskDirectories(environment);
    this.sessions = clineSessionsDirectory(environment);
  }

  async candidates({ folders, oldest }) {
    const found = [];
    for (const root of this.tasks) {
      for (const task of await folders.list(root)) {
        if (!task.isFolder) continue;
        const entries = await Cline.#filesOf(task, [conversation], folders, oldest);
        for (const entry of entries) if (entry.isFile) found.push({ ...entry, id: task.name });
      }
    }
    for (const session of await folders.list(this.sessions)) {
      if (!session.isFolder) continue;
      const names = [`${session.name}.messages.json`, `${session.name}.json`];
      const entries = await Cline.#filesOf(session, names, folders, oldest);
      const [transcript, about] = names.map((name) => entries.find((entry) => entry.name === name && entry.isFile));
      if (transcript) found.push(Cline.#withAbout(transcript, about, session.name));
    }
    return found;
  }

  async read(entry, previous, { reader }) {
    const facts = await readTranscript(reader, entry.path, previous, format, document);
    const about = entry.about ? await reader.json(entry.about) : undefined;
    return {
      ...facts,
      sessionId: entry.id || path.basename(entry.path),
      cwd: textOf(about?.cwd) || textOf(about?.workspace_root) || facts.cwd || '',
      ownTitle: textOf(about?.metadata?.title),
    };
  }

  /** There are folders by the thousand that nobody will ever write in again: of those that are old, none is watched. */
  static async #filesOf(folder, names, folders, oldest) {
    const isOld = ({ mtimeMs }) => mtimeMs < oldest;
    const options = { names, ino: folder.ino };
    if (!isOld(folder)) return folders.list(folder.path, options);
    const entries = await folders.list(folder.path, { ...options, isQuiet: true });
    return entries.every(isOld) ? entries : folders.list(folder.path, options);
  }

  static #withAbout(transcript, about, id) {
    return { ...transcript, id, about: about?.path, stamp: `${transcript.stamp} ${about?.stamp ?? ''}` };
  }
}
