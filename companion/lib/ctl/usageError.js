/** The command line isn't one that is understood; the message is the whole sentence. */
export class UsageError extends Error {}
