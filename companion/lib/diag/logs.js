// The logs for the bundle: the service's and the daemon's with their rotated copies, and what the daemon's Node.js said
// when it couldn't go on; the newest lines first to be taken, up to a bound, and every line scrubbed.

import fs from 'node:fs';
import path from 'node:path';

import { daemonErrorsPath, daemonLogPath, serviceLogPath } from '../places.js';
import { tailOf } from '../tail.js';

const boundOfLog = 8 * 1024 * 1024;
const rotatedCopies = 5;

/** What Node.js itself writes when a program of its breaks; anything else that is no record may be anybody's words. */
const ownWords = /^(?:\s+at |(?:node:|file:\/\/)\S+:\d+$|Node\.js v|(?:Uncaught )?\w*Error\b.*?: |\w*Error$)/;

function scrubLine(line, scrubber) {
  if (line.trim() === '') return '';
  try {
    const record = JSON.parse(line);
    if (record !== null && typeof record === 'object' && !Array.isArray(record)) {
      return JSON.stringify(scrubber.record(record));
    }
  } catch {
    // Judged below.
  }
  return ownWords.test(line) ? scrubber.sentence(line) : `[line of ${line.length} characters]`;
}

const scrubLines = (text, scrubber) => text.split('\n').map((line) => scrubLine(line, scrubber)).join('\n');

/** One log with its copies, as files of the bundle. */
function collect(base, scrubber, maxBytes) {
  const files = [];
  let left = maxBytes;
  let omitted = 0;
  for (let i = 0; i <= rotatedCopies; i += 1) {
    const file = i ? `${base}.${i}` : base;
    const size = fs.statSync(file, { throwIfNoEntry: false })?.size;
    if (size === undefined) continue;
    if (left <= 0) {
      omitted += size;
      continue;
    }
    const tail = tailOf(file, left);
    left -= size;
    omitted += tail.omitted;
    files.push({ name: `logs/${path.basename(file)}`, content: scrubLines(tail.text, scrubber) });
  }
  return { files, omitted };
}

/**
 * @param {import('./scrubber.js').Scrubber} scrubber
 * @param {number} [maxBytes] of each log with its copies
 * @returns {{ files: Array<{ name: string, content: string }>, omittedBytes: number, problems: string[] }}
 */
export function collectLogs(environment, scrubber, maxBytes = boundOfLog) {
  const result = { files: [], omittedBytes: 0, problems: [] };
  for (const base of [serviceLogPath, daemonLogPath, daemonErrorsPath].map((placeOf) => placeOf(environment))) {
    try {
      const { files, omitted } = collect(base, scrubber, maxBytes);
      result.files.push(...files);
      result.omittedBytes += omitted;
    } catch (error) {
      result.problems.push(`${path.basename(base)} can't be read: ${error.code ?? error.name}`);
    }
  }
  return result;
}
