// Who may speak to the bridge at all, judged before anything else is done: requests that name this computer by one of
// its own addresses, and that no page of another origin has made a browser send.

import { isOwnHost } from './addresses.js';

/** True unless a browser says that another origin's page asks. Programs send none of these headers. */
function isOwnOrigin({ origin, host }) {
  if (origin === undefined) return true;
  return origin.toLowerCase() === `http://${host}`.toLowerCase();
}

/**
 * @param {import('node:http').IncomingMessage} request
 * @param {{ isPage: boolean }} options a link from elsewhere may open the page, which holds nothing by itself
 * @returns {string | undefined} why it stays out
 */
export function reasonToRefuse(request, { isPage }) {
  const { headers, socket } = request;
  if (!isOwnHost(headers.host, socket.localAddress)) return 'This computer is reached by its address.';
  if (!isOwnOrigin(headers)) return 'Another page may not ask.';
  const site = headers['sec-fetch-site'];
  const isNavigation = headers['sec-fetch-mode'] === 'navigate' && headers['sec-fetch-dest'] === 'document';
  const isAllowed = site === undefined || site === 'same-origin' || (isPage && (site === 'none' || isNavigation));
  return isAllowed ? undefined : 'Another page may not ask.';
}

/** The token of an Authorization header. */
export function bearerOf(request) {
  return /^Bearer ([\x21-\x7e]{1,256})$/i.exec(request.headers.authorization ?? '')?.[1];
}
