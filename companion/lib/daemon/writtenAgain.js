// Waits for transcripts to be written again. Their folders are watched, one watch for all that lie in the same, since a
// transcript may be replaced, or come into being only then. One that is a folder itself, with a file for each message,
// is watched as well. Only the transcripts of a folder in which something happened are looked at, and one that gives no
// answer holds the others up no longer than the limit of an answer.

import { stat } from 'node:fs/promises';
import path from 'node:path';

import { systemClock } from '../clock.js';
import { FolderWatch, patientAnswers } from '../folderWatch.js';
import { lookAtTranscript, transcriptFiles, transcriptFolder } from './transcriptFiles.js';

/** A watched folder, and the sessions that something may have happened to when something happens in it. */
class Place {
  ids = new Set();
  isLooking = false;
  hasNews = false;

  /** @param {FolderWatch} watch */
  constructor(watch) {
    this.watch = watch;
  }
}

export class WrittenAgain {
  #onWritten;
  #clock;
  #options;
  /** @type {Map<string, { transcript: string, since: number }>} by the session's id */
  #waiting = new Map();
  /** @type {Map<string, Place>} by the folder */
  #places = new Map();

  /**
   * @param {(id: string) => void} onWritten called once for each session, which isn't waited for any more then
   * @param {import('../clock.js').Clock} [clock]
   * @param {{ answers?: import('../answerLimit.js').AnswerLimit, system?: { stat: typeof stat } }} [options]
   */
  constructor(onWritten, clock = systemClock, { answers = patientAnswers(), system = { stat } } = {}) {
    this.#onWritten = onWritten;
    this.#clock = clock;
    this.#options = { answers, system };
  }

  get size() {
    return this.#waiting.size;
  }

  /**
   * Waits for these sessions instead of those before.
   * @param {{ id: string, transcript: string, since: number }[]} rows `since` is the time of the last change known
   */
  waitFor(rows) {
    this.stop();
    const byFolder = new Map();
    for (const { id, transcript, since } of rows) {
      this.#waiting.set(id, { transcript, since });
      const folder = transcriptFolder(transcript);
      if (!byFolder.has(folder)) byFolder.set(folder, { ids: [], names: [] });
      byFolder.get(folder).ids.push(id);
      byFolder.get(folder).names.push(...transcriptFiles(transcript).map((file) => path.basename(file)));
    }
    for (const [folder, { ids, names }] of byFolder) this.#follow(folder, names, ids);
  }

  stop() {
    for (const { watch } of this.#places.values()) watch.stop();
    this.#places.clear();
    this.#waiting.clear();
  }

  /** The watch's beginning is an event: what was written before is seen then. */
  #follow(folder, names, ids) {
    const watch = new FolderWatch(folder, names, () => this.#look(place), this.#clock, this.#options);
    const place = new Place(watch);
    for (const id of ids) place.ids.add(id);
    this.#places.set(folder, place);
    watch.start();
  }

  /** One look at a time; what happens meanwhile is looked at afterwards. */
  async #look(place) {
    place.hasNews = true;
    if (place.isLooking) return;
    place.isLooking = true;
    while (place.hasNews) {
      place.hasNews = false;
      for (const id of [...place.ids]) await this.#lookAt(id);
    }
    place.isLooking = false;
  }

  async #lookAt(id) {
    const row = this.#waiting.get(id);
    if (!row) return;
    const { answers, system } = this.#options;
    const found = await lookAtTranscript(row.transcript, answers, system);
    // It may have been given up, or be waited for anew, meanwhile.
    if (!found || this.#waiting.get(id) !== row) return;
    if (found.writtenAt > row.since) {
      this.#waiting.delete(id);
      this.#dropFrom(id);
      this.#onWritten(id);
    } else if (found.isFolder) {
      this.#followInside(row.transcript, id);
    }
  }

  #followInside(folder, id) {
    if (this.#places.get(folder)?.ids.has(id)) return;
    const place = this.#places.get(folder);
    // Whose watch follows only some of the files there.
    place?.watch.stop();
    this.#follow(folder, undefined, [...(place?.ids ?? []), id]);
  }

  #dropFrom(id) {
    for (const [folder, place] of this.#places) {
      place.ids.delete(id);
      if (place.ids.size > 0) continue;
      place.watch.stop();
      this.#places.delete(folder);
    }
  }
}
