// The connections that are open: how many there may be, in all and from one address, and which device each serves. One
// that is too many takes the place of the oldest that has shown no token, so that strangers end each other and never a
// device; this computer's own are counted apart, so that no number of others keeps it out.

import { isLoopback, networkOf, plainAddress } from './addresses.js';

const inAll = 32;
const perAddress = 20;
/** Browsers don't send a request before the last one is answered. */
const requestsAtOnce = 6;
const answerLimit = 20_000;

/** Whose limits a connection counts against. */
export const senderOf = (socket) => networkOf(socket.remoteAddress);

export class Connections {
  #clock;
  /** In the order in which they came. */
  #open = new Map();

  /** @param {{ clock: import('../clock.js').Clock }} options */
  constructor({ clock }) {
    this.#clock = clock;
  }

  get size() {
    return this.#open.size;
  }

  /** Takes a connection in, or ends it. */
  admit(socket) {
    const sender = senderOf(socket);
    const isLocal = isLoopback(plainAddress(socket.remoteAddress));
    const hasRoom = this.#makeRoom(perAddress, (entry) => entry.sender === sender)
      && (isLocal || this.#makeRoom(inAll, (entry) => !entry.isLocal));
    if (!hasRoom) {
      socket.destroy();
      return;
    }
    this.#open.set(socket, { sender, isLocal, device: undefined, answers: new Map() });
    socket.once('close', () => this.#forget(socket));
  }

  /**
   * A request has come: its answer must be out of here in time, whether or not the other side reads.
   * @param {import('node:http').ServerResponse} response
   */
  begin(socket, response) {
    const answers = this.#open.get(socket)?.answers;
    if (!answers) return;
    answers.set(response, this.#clock.setTimeout(() => socket.destroy(), answerLimit));
    for (const event of ['finish', 'close']) {
      response.once(event, () => {
        this.untime(socket, response);
        answers.delete(response);
      });
    }
    if (answers.size > requestsAtOnce) socket.destroy();
  }

  /** True while a request that came here has no answer yet, or part of one. */
  isAnswering(socket) {
    return (this.#open.get(socket)?.answers.size ?? 0) > 0;
  }

  /** This answer goes on by design. */
  untime(socket, response) {
    this.#clock.clearTimeout(this.#open.get(socket)?.answers.get(response));
  }

  /** Notes that `device` has shown its token here. */
  assign(socket, device) {
    const entry = this.#open.get(socket);
    if (entry) entry.device = device;
  }

  /** The device is no longer paired: whatever it has open ends, answers under way too. */
  endOf(device) {
    this.#destroyWhere((_, entry) => entry.device === device);
  }

  /** Ends what came from elsewhere than this computer. */
  endRemote() {
    this.#destroyWhere((socket) => !isLoopback(socket.localAddress));
  }

  /** Ends what has shown no token. */
  endUnassigned() {
    this.#destroyWhere((_, entry) => entry.device === undefined);
  }

  endAll() {
    this.#destroyWhere(() => true);
  }

  /** True if one more of those that `belongs` fits below `limit`, where need be in the place of a stranger. */
  #makeRoom(limit, belongs) {
    const group = [...this.#open].filter(([, entry]) => belongs(entry));
    if (group.length < limit) return true;
    const strangers = group.filter(([, entry]) => entry.device === undefined);
    const countOf = ({ sender }) => strangers.filter(([, entry]) => entry.sender === sender).length;
    // Of the sender that has most: whoever floods ends his own.
    const most = Math.max(...strangers.map(([, entry]) => countOf(entry)));
    const found = strangers.find(([, entry]) => countOf(entry) === most);
    if (!found) return false;
    this.#forget(found[0]);
    found[0].destroy();
    return true;
  }

  #forget(socket) {
    for (const timer of this.#open.get(socket)?.answers.values() ?? []) this.#clock.clearTimeout(timer);
    this.#open.delete(socket);
  }

  #destroyWhere(test) {
    for (const [socket, entry] of [...this.#open]) if (test(socket, entry)) socket.destroy();
  }
}
