// The connections that are open: how many there may be, in all and from one address, and which device each serves.

import { isLoopback, plainAddress } from './addresses.js';

const inAll = 32;
const perAddress = 20;
const idleLimit = 30_000;

/** Whose limits a connection counts against: an IPv6 network's hosts are one, since each may have many addresses. */
export function senderOf(socket) {
  const address = plainAddress(socket.remoteAddress);
  return address.includes(':') && !isLoopback(address) ? address.split(':').slice(0, 4).join(':') : address;
}

export class Connections {
  #open = new Map();

  get size() {
    return this.#open.size;
  }

  /** Takes a connection in, or ends it. */
  admit(socket) {
    const sender = senderOf(socket);
    const fromSender = [...this.#open.values()].filter((entry) => entry.sender === sender).length;
    if (this.#open.size >= inAll || fromSender >= perAddress) {
      socket.destroy();
      return;
    }
    this.#open.set(socket, { sender, device: undefined });
    socket.setTimeout(idleLimit, () => socket.destroy());
    socket.once('close', () => this.#open.delete(socket));
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

  #destroyWhere(test) {
    for (const [socket, entry] of [...this.#open]) if (test(socket, entry)) socket.destroy();
  }
}
