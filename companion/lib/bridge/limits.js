// What several parts of the bridge keep to.

/** How long a shared document's lock is waited for: less than the time after which the page gives an answer up. */
export const lockTimeout = 5000;
