// When a session was last written to, by the files of its transcript.

import { stat } from 'node:fs/promises';
import path from 'node:path';

/** How long after its last line a session counts as being in use. */
export const freshFor = 15 * 60 * 1000;

/**
 * The files whose change means that the session may have gone on. A session in an SQLite store is named by the store,
 * "#" and its id; what is written to it is in the write-ahead log first.
 * @param {string} transcript
 */
export function transcriptFiles(transcript) {
  const store = transcript.match(/^(.*\.db)#[^#/]*$/s)?.[1];
  return store === undefined ? [transcript] : [store, `${store}-wal`];
}

/** The folder that the files lie in. */
export const transcriptFolder = (transcript) => path.dirname(transcriptFiles(transcript)[0]);

/**
 * What the system says of a transcript; nothing where it gives no answer in time.
 * @param {string} transcript
 * @param {import('../answerLimit.js').AnswerLimit} answers
 * @param {{ stat: typeof stat }} [system]
 * @returns {Promise<{ writtenAt: number, isFolder: boolean } | undefined>} `writtenAt`: milliseconds since the epoch of
 *   the newest change; 0 where there is no file
 */
export async function lookAtTranscript(transcript, answers, system = { stat }) {
  const found = { writtenAt: 0, isFolder: false };
  for (const file of transcriptFiles(transcript)) {
    const question = () => system.stat(file).catch(() => null);
    const status = await answers.ask(transcriptFolder(transcript), question, undefined);
    if (status === undefined) return undefined;
    found.writtenAt = Math.max(found.writtenAt, status?.mtimeMs ?? 0);
    found.isFolder ||= status?.isDirectory() ?? false;
  }
  return found;
}
