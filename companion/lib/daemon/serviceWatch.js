// Gives the sessions that were attached before the service started their narration back. The service keeps their rows
// and leaves them alone at its start; those that are in use are attached again with "resume" as soon as it listens, and
// each of the others once, when its transcript is written again.
//
// Runs in the daemon. The shared folder is watched; a service that has begun and doesn't take commands yet is tried
// again with growing patience.

import fs from 'node:fs';
import path from 'node:path';

import { systemClock } from '../clock.js';
import { FolderWatch, patientAnswers } from '../folderWatch.js';
import { serviceLockPath, sharedDirectory, socketPath, statePath } from '../places.js';
import { commandLine, sendLines } from '../serviceSocket.js';
import { SharedDocument } from '../sharedDocument.js';
import { readIfPresent } from '../wholeFile.js';
import { freshFor, lookAtTranscript } from './transcriptFiles.js';
import { WrittenAgain } from './writtenAgain.js';

const firstRetry = 250;
const longestRetry = 15_000;
const rowKeys = ['id', 'cwd', 'transcript', 'source', 'branch', 'title'];

function resumeLine(row) {
  const fields = rowKeys.filter((key) => typeof row[key] === 'string').map((key) => [key, row[key]]);
  return commandLine('attach', { ...Object.fromEntries(fields), resume: true });
}

const isRow = (row) => row !== null && typeof row === 'object' && typeof row.id === 'string' && row.id !== '' &&
  typeof row.transcript === 'string' && row.transcript !== '';

export class ServiceWatch {
  #environment;
  #log;
  #clock;
  #folder;
  #transcripts;
  #stale;
  /** Sessions that were written again and that the service hasn't taken yet. */
  #unsent = new Set();
  #resend;
  #resendDelay = firstRetry;
  #retry;
  #delay = firstRetry;
  /** Which run of the service has been served. */
  #served;
  #looking = false;
  #lookAgain = false;
  #stopped = false;

  /**
   * @param {{ environment: NodeJS.ProcessEnv, log: import('../log.js').Log, clock?: import('../clock.js').Clock,
   *   transcripts?: { answers?: import('../answerLimit.js').AnswerLimit, system?: object } }} options `transcripts`: how
   * the system is asked about them
   */
  constructor({ environment, log, clock = systemClock, transcripts = {} }) {
    this.#environment = environment;
    this.#log = log.child({ class: 'ServiceWatch' });
    this.#clock = clock;
    const names = [socketPath, serviceLockPath].map((place) => path.basename(place(environment)));
    this.#folder = new FolderWatch(sharedDirectory(environment), names, () => this.#look(), clock);
    this.#transcripts = { answers: patientAnswers(), ...transcripts };
    this.#stale = new WrittenAgain((id) => this.#resumeOne(id), clock, this.#transcripts);
  }

  /** The beginning of the watch is an event, which leads to the first look. */
  start() {
    this.#folder.start();
  }

  stop() {
    this.#stopped = true;
    this.#transcripts.answers.close();
    this.#folder.stop();
    this.#forgetWaiting();
    this.#clock.clearTimeout(this.#retry);
  }

  #forgetWaiting() {
    this.#stale.stop();
    this.#unsent.clear();
    this.#clock.clearTimeout(this.#resend);
    this.#resendDelay = firstRetry;
  }

  /**
   * The present run of the service: its process and its socket's number, which stay as they are when the socket is given
   * its rights. Nothing where there is no socket.
   */
  #run() {
    const socket = fs.statSync(socketPath(this.#environment), { throwIfNoEntry: false });
    if (!socket) return undefined;
    const pid = readIfPresent(serviceLockPath(this.#environment))?.trim() ?? '';
    return `${pid} ${socket.dev}:${socket.ino}`;
  }

  /** One look at a time; what happens meanwhile is looked at afterwards. */
  async #look() {
    if (this.#looking) {
      this.#lookAgain = true;
      return;
    }
    this.#looking = true;
    try {
      do {
        this.#lookAgain = false;
        await this.#lookOnce();
      } while (this.#lookAgain && !this.#stopped);
    } catch (error) {
      this.#log.error('looking for the service failed', error);
    } finally {
      this.#looking = false;
    }
  }

  async #lookOnce() {
    this.#clock.clearTimeout(this.#retry);
    const run = this.#run();
    if (run === this.#served) return;
    this.#forgetWaiting();
    this.#served = undefined;
    if (run === undefined) {
      this.#delay = firstRetry;
    } else if (await this.#serve()) {
      this.#served = run;
      this.#delay = firstRetry;
    } else if (!this.#stopped) {
      this.#retry = this.#clock.setTimeout(() => this.#look(), this.#delay);
      this.#delay = Math.min(this.#delay * 2, longestRetry);
    }
  }

  #rows() {
    return SharedDocument.read(statePath(this.#environment)).list('sessions').filter(isRow);
  }

  async #send(rows) {
    try {
      await sendLines(rows.map(resumeLine), { path: socketPath(this.#environment) });
      return true;
    } catch {
      return false;
    }
  }

  /** Resumes what is in use, and waits for the rest. False if the service takes no commands. */
  async #serve() {
    const now = this.#clock.now();
    const rows = await this.#withTimes(this.#rows(), now);
    if (this.#stopped) return true;
    const isFresh = ({ since }) => now - since <= freshFor;
    const fresh = rows.filter(isFresh).map(({ row }) => row);
    if (!(await this.#send(fresh))) return false;
    if (this.#stopped) return true;
    const stale = rows.filter((row) => !isFresh(row));
    this.#stale.waitFor(stale.map(({ row, since }) => ({ id: row.id, transcript: row.transcript, since })));
    this.#log.info('service seen', { result: { resumed: fresh.length, waitingFor: this.#stale.size } });
    return true;
  }

  /**
   * The rows with the times of their last change. One whose transcript gives no answer is in use if it turns out, once it
   * does, to be as new as those that are.
   */
  async #withTimes(rows, now) {
    const { answers, system } = this.#transcripts;
    const timed = [];
    for (const row of rows) {
      const found = await lookAtTranscript(row.transcript, answers, system);
      timed.push({ row, since: found?.writtenAt ?? now - freshFor - 1 });
    }
    return timed;
  }

  /** The row as it stands now: one that was detached meanwhile must not come back. */
  async #resumeOne(id) {
    this.#unsent.add(id);
    const rows = this.#rows().filter((row) => row.id === id);
    const sent = rows.length === 0 || await this.#send(rows);
    // Another run of the service has begun meanwhile, which all sessions are told to.
    if (!this.#unsent.has(id)) return;
    if (rows.length > 0) this.#log.info('session written again', { input: { id: id.slice(0, 8) }, result: { sent } });
    if (sent) this.#unsent.delete(id);
    else this.#resendLater();
    if (this.#unsent.size === 0) this.#resendDelay = firstRetry;
  }

  /** A service that is busy takes it later. */
  #resendLater() {
    this.#clock.clearTimeout(this.#resend);
    this.#resend = this.#clock.setTimeout(() => {
      this.#resendDelay = Math.min(this.#resendDelay * 2, longestRetry);
      for (const id of this.#unsent) this.#resumeOne(id);
    }, this.#resendDelay);
  }
}
