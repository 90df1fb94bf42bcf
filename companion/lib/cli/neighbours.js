// What the commands need of the companion's other parts, loaded when it is used.

/**
 * @typedef {{
 *   findSessions(environment: NodeJS.ProcessEnv, options?: { isBounded?: boolean, session?: string }): Promise<object[]>,
 *   daemonStatus(environment: NodeJS.ProcessEnv): Promise<{ alive: boolean, responding?: boolean, pid?: number }>,
 *   startDaemon(environment: NodeJS.ProcessEnv): Promise<unknown>,
 *   stopDaemon(environment: NodeJS.ProcessEnv): Promise<unknown>,
 *   mintCode(environment: NodeJS.ProcessEnv): Promise<{ code: string, expiresAt: number }>,
 *   autostart(): Promise<{ installAutostart: Function, uninstallAutostart: Function, isAutostartInstalled: Function }>,
 *   serviceParts?: object }} Neighbours
 */

const daemonControl = () => import('../daemon/daemonControl.js');

/**
 * What `daemonControl` tells, short of facts that nobody here needs: it starts processes as well, and loading that
 * costs a short command a good part of its time.
 */
async function daemonStatus(environment) {
  const { askDaemon, DaemonSilent } = await import('../daemon/channel.js');
  try {
    const answer = await askDaemon('status', { environment });
    return answer ? { ...answer, alive: true, responding: true } : { alive: false };
  } catch (error) {
    if (error instanceof DaemonSilent) return { alive: true, responding: false };
    throw error;
  }
}

/** @type {Neighbours} */
export const neighbours = {
  findSessions: async (environment, options) =>
    (await import('../discovery/discovery.js')).findSessions({ environment, now: Date.now(), ...options }),
  daemonStatus,
  startDaemon: async (environment) => (await daemonControl()).startDaemon({ environment }),
  stopDaemon: async (environment) => (await daemonControl()).stopDaemon({ environment }),
  mintCode: async (environment) => (await import('../bridge/pairCode.js')).mintCode({ environment }),
  autostart: () => import('../autostart.js'),
};
