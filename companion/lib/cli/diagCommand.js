// "tts diag": the bundle for support, made as the control tool makes it.

import { runDiag } from '../diag/diag.js';

/** "tts diag" */
export function diag({ options, environment, stdout, stderr, cwd }) {
  const { out, notes, json, send, cleanup } = options;
  return runDiag([
    ...(out === undefined ? [] : [`--out=${out}`]),
    ...(notes === undefined ? [] : [`--notes=${notes}`]),
    ...(json ? ['--json'] : []),
    ...(send ? ['--send'] : []),
    ...(cleanup ? ['--cleanup'] : []),
  ], { environment, stdout, stderr, cwd, program: 'tts' });
}
