// Secrets and spoken text are removed at the logger itself, whatever a caller passes. The service's log has the same
// rules, so that one bundle of both is safe to send.

import { createHash } from 'node:crypto';

const secretKeys = new Set(['token', 'bridgeToken', 'pairCode', 'magicToken', 'authorization']);

/** What is left of a text that may be private: enough to recognise it by. */
export function summarizeText(text) {
  return {
    length: [...text].length,
    sha256_8: createHash('sha256').update(text, 'utf8').digest('hex').slice(0, 8),
    head40: [...text].slice(0, 40).join(''),
  };
}

function redactEmail(value) {
  const at = typeof value === 'string' ? value.indexOf('@', 1) : -1;
  return at > 0 ? `***@${value.slice(at + 1)}` : '[redacted]';
}

/** A copy of `value` that may be written down, judged by its own `key` and at every depth by the keys inside. */
export function redact(key, value) {
  if (Array.isArray(value)) return value.map((element) => redact(key, element));
  if (value !== null && typeof value === 'object') return redactFields(value);
  if (secretKeys.has(key)) return '[redacted]';
  if (key === 'email') return redactEmail(value);
  if (key === 'text' && typeof value === 'string') return summarizeText(value);
  return value;
}

export function redactFields(fields) {
  const redacted = {};
  for (const key of Object.keys(fields)) redacted[key] = redact(key, fields[key]);
  return redacted;
}
