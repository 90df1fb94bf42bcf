// The voices that the service knows, in the order of its menus.

/** @type {ReadonlyArray<{ id: string, name: string, descriptor: string }>} */
export const voices = [
  ['af_heart', 'Heart', 'warm American female'],
  ['af_bella', 'Bella', 'conversational American female'],
  ['af_nicole', 'Nicole', 'American female'],
  ['af_sarah', 'Sarah', 'American female'],
  ['af_jessica', 'Jessica', 'American female'],
  ['af_sky', 'Sky', 'American female'],
  ['am_adam', 'Adam', 'American male'],
  ['am_michael', 'Michael', 'American male'],
  ['am_puck', 'Puck', 'American male'],
  ['am_eric', 'Eric', 'American male'],
  ['am_onyx', 'Onyx', 'American male'],
  ['bf_emma', 'Emma', 'expressive British female'],
  ['bf_isabella', 'Isabella', 'British female'],
  ['bf_alice', 'Alice', 'British female'],
  ['bf_lily', 'Lily', 'British female'],
  ['bm_george', 'George', 'British male'],
  ['bm_lewis', 'Lewis', 'British male'],
  ['bm_daniel', 'Daniel', 'British male'],
  ['bm_fable', 'Fable', 'British male'],
].map(([id, name, descriptor]) => ({ id, name, descriptor }));

/** By id, or by name without regard to case. */
export function findVoice(word) {
  return voices.find((voice) => voice.id === word)
    ?? voices.find((voice) => voice.name.toLowerCase() === word.toLowerCase());
}
