// "tts pair": mints a code, shows it with the address to type, and waits until a device has used it. The daemon's
// bridge checks the code and writes the device's token; that file is what is watched.

import { existsSync } from 'node:fs';
import { networkInterfaces } from 'node:os';

import { lanAddresses } from '../bridge/addresses.js';
import { identityOf, readCode, removeCode } from '../bridge/pairCode.js';
import { pairedDevices } from '../pairedDevices.js';
import { socketPath, statePath, tokensPath } from '../places.js';
import { waitFor } from '../serviceControl.js';
import { isServiceRunning } from '../serviceSocket.js';
import { SharedDocument, updateDocument } from '../sharedDocument.js';
import { lockPath } from '../stateLock.js';
import { CommandFailure, exitCodes, usageError } from '../words/failure.js';
import { plain } from '../words/output.js';
import { changeDocument } from './documents.js';

const bridgeLimit = 5_000;
const pollInterval = 250;

export function judge({ options }) {
  for (const name of ['lan', 'wait']) {
    if (options[name] && options[`no-${name}`]) throw usageError(`--${name} and --no-${name} exclude each other.`);
  }
}

async function storeReach({ environment, options, output }) {
  const path = statePath(environment);
  if (!options.lan && !options['no-lan']) return SharedDocument.read(path).get('bridgeLan') === true;
  const lan = Boolean(options.lan);
  await changeDocument(path, output,
    (onward) => updateDocument(path, (document) => document.set('bridgeLan', lan), onward));
  return lan;
}

const isSilent = ({ alive, responding }) => alive && responding === false;

const silence = () => new CommandFailure("The daemon doesn't answer, so no device could pair.",
  { hint: '"tts quit" ends it with the service, "tts start" starts both.' });

/**
 * The daemon, started where it doesn't run, when its bridge is there and reaches as far as it should, or has told that
 * it can't be.
 */
async function daemonWithBridge({ environment, neighbours, output }, lan) {
  const ask = () => neighbours.daemonStatus(environment);
  let daemon = await ask();
  // One that is busy, or in its last moment, is silent once.
  if (isSilent(daemon)) daemon = await ask();
  if (isSilent(daemon)) throw silence();
  if (!daemon.alive) {
    await neighbours.startDaemon(environment);
    output.note('Started the daemon, which hosts the bridge.');
  }
  // A daemon of an earlier version doesn't say.
  const reaches = () => (daemon.bridgeLan ?? lan) === lan;
  await waitFor(async () => {
    daemon = await ask();
    return (daemon.bridgePort !== undefined && reaches()) || daemon.parts?.bridge === 'failed';
  }, bridgeLimit);
  if (isSilent(daemon)) throw silence();
  if (daemon.bridgePort === undefined) {
    throw new CommandFailure("The daemon's bridge doesn't run, so no device could pair; see ~/.claude/tts/daemon.log.");
  }
  if (reaches()) return daemon;
  throw new CommandFailure(`The daemon's bridge still ${lan ? "doesn't let" : 'lets'} the local network in.`);
}

function addressesOf({ bridgePort }, lan) {
  const hosts = lan ? lanAddresses(networkInterfaces()) : ['127.0.0.1'];
  return hosts.map((host) => `http://${host}:${bridgePort}/`);
}

function show(output, { code, expiresAt, lan, addresses }) {
  const until = new Date(expiresAt).toLocaleTimeString([], { hour: '2-digit', minute: '2-digit' });
  output.say(
    `Open one of these on the phone: ${addresses.join('  ') || '(this computer has no address in a local network)'}`,
    `and enter the code: ${output.style('bold', code)}`,
    `It is valid until ${until}.`,
  );
  if (!lan) output.note('Only this computer reaches the bridge. "tts pair --lan" lets the local network in.');
}

/** Sleeps, or returns at once when the command is interrupted. */
function pause(milliseconds, signal) {
  return new Promise((resolve) => {
    const timer = setTimeout(finish, milliseconds);
    function finish() {
      clearTimeout(timer);
      signal.removeEventListener('abort', finish);
      resolve();
    }
    signal.addEventListener('abort', finish);
    if (signal.aborted) finish();
  });
}

/**
 * Tells the devices that pair from now on from those before: by what they hold, or, where nobody can read who those are,
 * by their time.
 * @returns {(device: { token: string, createdAt: number }) => boolean}
 */
function newcomers({ environment, output }) {
  const before = pairedDevices(environment);
  if (before) {
    const known = new Set(before.map(({ token }) => token));
    return ({ token }) => !known.has(token);
  }
  output.note(`${tokensPath(environment)} can't be read, so it isn't known which devices are paired, and none is let in.`);
  const begin = Date.now();
  return ({ createdAt }) => createdAt >= begin;
}

/**
 * How the code ended: with a device's label, or by time, by the bridge (after too many wrong tries), by another code,
 * because the command was interrupted, or in a way that isn't known, as nobody can read who is paired.
 * @returns {Promise<{ device?: string, why?: 'expired' | 'void' | 'interrupted' | 'unknown' }>}
 */
async function outcome({ environment, signal }, isNew, minted) {
  let missing = 0;
  while (!signal.aborted) {
    const devices = pairedDevices(environment);
    const fresh = devices?.filter(isNew) ?? [];
    if (fresh.length) return { device: fresh.sort((a, b) => b.createdAt - a.createdAt)[0].label };
    if (Date.now() >= minted.expiresAt) return { why: 'expired' };
    // A code that was used is gone as well; its token comes a moment later, or when the bridge gets the lock.
    const mayGoOn = readCode(environment)?.code === minted.code || existsSync(lockPath(tokensPath(environment)));
    missing = mayGoOn ? 0 : missing + 1;
    if (missing > 4) return { why: devices ? 'void' : 'unknown' };
    await pause(pollInterval, signal);
  }
  return { why: 'interrupted' };
}

const endings = {
  expired: 'The code has expired. "tts pair" makes a new one.',
  void: 'The code is void: it was tried wrongly too often, or another one was made. "tts pair" makes a new one.',
  interrupted: 'Given up; the code is void.',
  unknown: "The code is void, and whether a device has paired by it isn't known: the paired devices can't be read.",
};

async function waitForDevice(context, isNew, minted) {
  const { output, environment, signal } = context;
  const { device, why } = await outcome(context, isNew, minted);
  if (device !== undefined) {
    output.say(`Paired: ${plain(device)}.`);
    output.result({ ...minted, paired: true, device });
    return exitCodes.ok;
  }
  removeCode(identityOf(minted), environment);
  // A signal is the reason why it was aborted, by its exit code.
  const ended = typeof signal.reason === 'number' ? signal.reason : exitCodes.interrupted;
  const exit = why === 'interrupted' ? ended : exitCodes.failed;
  throw new CommandFailure(endings[why], { exit, kind: why, details: { ...minted, paired: why === 'unknown' ? null : false } });
}

/** "tts pair" */
export async function pair(context) {
  const { environment, output, options, neighbours, isTerminal } = context;
  const lan = await storeReach(context);
  const daemon = await daemonWithBridge(context, lan);
  const isNew = newcomers(context);
  const { code, expiresAt } = await neighbours.mintCode(environment);
  const minted = { code, expiresAt: Number(expiresAt), lan, addresses: addressesOf(daemon, lan) };
  show(output, minted);
  if (!await isServiceRunning({ path: socketPath(environment) })) {
    output.note("The Sonra service isn't running; the phone has nothing to steer until it is.");
  }
  const waits = options.wait || (isTerminal && !options['no-wait']);
  if (waits) return waitForDevice(context, isNew, minted);
  output.result(minted);
  return exitCodes.ok;
}
