// This computer's own addresses: what a person types into the phone, and what a request may name as its host.

import net from 'node:net';
import os from 'node:os';

/** The eight numbers of an IPv6 address without a zone. */
function groupsOf(address) {
  const asHex = (_, a, b, c, d) => [a * 256 + Number(b), c * 256 + Number(d)].map((part) => part.toString(16)).join(':');
  const [head, tail] = address.replace(/(\d+)\.(\d+)\.(\d+)\.(\d+)$/, asHex).split('::')
    .map((part) => (part === '' ? [] : part.split(':').map((group) => parseInt(group, 16))));
  return tail ? [...head, ...Array(8 - head.length - tail.length).fill(0), ...tail] : head;
}

/** The IPv4 address inside an IPv6 one, however that is written; nothing where there is none. */
function mappedAddress(address) {
  if (!net.isIPv6(address)) return undefined;
  const groups = groupsOf(address);
  const isMapped = groups[5] === 0xffff && groups.slice(0, 5).every((group) => group === 0);
  return isMapped ? groups.slice(6).flatMap((group) => [group >> 8, group & 255]).join('.') : undefined;
}

/** Without the zone of a link-local address, and an IPv4 address in its own form. */
export function plainAddress(address = '') {
  const plain = address.replace(/%.*$/, '').toLowerCase();
  return mappedAddress(plain) ?? plain;
}

/** The network of an address whose hosts are to be taken for one: an IPv6 network's may have many addresses each. */
export function networkOf(address) {
  const plain = plainAddress(address);
  if (!net.isIPv6(plain) || isLoopback(plain)) return plain;
  return groupsOf(plain).slice(0, 4).map((group) => group.toString(16)).join(':');
}

export function isLoopback(address) {
  const plain = plainAddress(address);
  return plain === '::1' || plain.startsWith('127.');
}

const isLinkLocal = (address) => /^(fe[89ab]|169\.254\.)/.test(address);

/** One of Linux's many interfaces that lead to no phone: those of containers and virtual machines. */
const isInner = (name) => /^(docker|br-|veth|virbr|vmnet|lxc|lxd|podman|cni)/.test(name);

/**
 * The addresses at which a device of the local network finds this computer, as they stand in an URL: IPv4 first, IPv6
 * in brackets. Those that need a zone, and containers' networks, are left out.
 * @param {ReturnType<typeof os.networkInterfaces>} [interfaces]
 * @returns {string[]}
 */
export function lanAddresses(interfaces = os.networkInterfaces()) {
  const outer = Object.entries(interfaces).filter(([name]) => !isInner(name)).flatMap(([, rows]) => rows ?? [])
    .filter(({ internal, address }) => !internal && !isLinkLocal(address));
  const inUrl = ({ address }) => (address.includes(':') ? `[${address}]` : address);
  const byFamily = (a, b) => Number(a.address.includes(':')) - Number(b.address.includes(':'));
  return [...new Set(outer.sort(byFamily).map(inUrl))];
}

function interfaceAddresses() {
  const rows = Object.values(os.networkInterfaces()).flatMap((each) => each ?? []);
  return rows.map(({ address }) => plainAddress(address));
}

/**
 * True if `host` (name and port as in the Host header) is this computer by address. A name doesn't count, but for
 * "localhost": whoever owns a name can let it point here after his page was loaded from elsewhere.
 * @param {string | undefined} host
 * @param {string | undefined} localAddress where the connection came in
 */
export function isOwnHost(host, localAddress, own = interfaceAddresses) {
  const parts = /^(?:\[([0-9a-f:.]+)\]|([a-z0-9.-]+))(?::\d{1,5})?$/i.exec(host ?? '');
  if (!parts) return false;
  const name = plainAddress(parts[1] ?? parts[2]);
  if (name === 'localhost' || (isLoopback(name) && isAddress(name))) return true;
  return isAddress(name) && (name === plainAddress(localAddress) || own().includes(name));
}

const isAddress = (name) => /^[0-9]+(\.[0-9]+){3}$/.test(name) || name.includes(':');
