// Sending the bundle to support. Where that is stands in SONRA_SUPPORT_URL; without it there is nobody to send it to.

const sendLimit = 25_000;
const answerLimit = 64 * 1024;
const referencePattern = /sonra-[0-9A-HJKMNP-TV-Z]+/;

/** The message is for a person. */
export class SendFailed extends Error {
  constructor(message) {
    super(message);
    this.name = 'SendFailed';
  }
}

const loopback = new Set(['localhost', '127.0.0.1', '[::1]']);

function addressFrom(environment) {
  const text = environment.SONRA_SUPPORT_URL;
  if (!text) throw new SendFailed('No support endpoint is configured (SONRA_SUPPORT_URL), so nothing was sent.');
  let address;
  try {
    address = new URL(text);
  } catch {
    throw new SendFailed('SONRA_SUPPORT_URL is no address, so nothing was sent.');
  }
  if (address.protocol !== 'https:' && !(address.protocol === 'http:' && loopback.has(address.hostname))) {
    throw new SendFailed('SONRA_SUPPORT_URL must begin with https://, so nothing was sent.');
  }
  // Whoever can't use them repeats them in an error.
  if (address.username || address.password) {
    throw new SendFailed('SONRA_SUPPORT_URL must hold neither a user nor a password, so nothing was sent.');
  }
  return address;
}

function reason(error, limit) {
  if (error.name === 'TimeoutError') return `no answer within ${limit / 1000} seconds`;
  return error.cause?.code ?? error.cause?.message ?? error.message;
}

/** As much of the answer as can hold a reference. */
async function answerText(response) {
  let text = '';
  for await (const bytes of response.body ?? []) {
    text += Buffer.from(bytes).toString('latin1');
    if (text.length > answerLimit) break;
  }
  return text;
}

/**
 * Fails with SendFailed.
 * @param {Uint8Array} bundle
 * @param {{ environment?: NodeJS.ProcessEnv, limit?: number }} [options]
 * @returns {Promise<string | undefined>} the reference that support's answer names
 */
export async function sendBundle(bundle, { environment = process.env, limit = sendLimit } = {}) {
  const address = addressFrom(environment);
  try {
    const response = await fetch(address, {
      method: 'POST',
      headers: { 'content-type': 'application/zip' },
      body: bundle,
      redirect: 'error',
      signal: AbortSignal.timeout(limit),
    });
    const text = await answerText(response);
    if (!response.ok) throw new SendFailed(`Support refused the bundle (status ${response.status}).`);
    return referencePattern.exec(text)?.[0];
  } catch (error) {
    if (error instanceof SendFailed) throw error;
    throw new SendFailed(`The bundle couldn't be sent: ${reason(error, limit)}.`);
  }
}
