// Text to speech by the provider's voices.

import { SpeechFailure } from './failure.js';
import { soundFrom } from './wav.js';

const defaultModel = 'gemini-2.5-flash-preview-tts';
const defaultVoice = 'Kore';

/** The provider's voices have names; an id of a local voice, such as "af_heart", isn't one. */
export function voiceName(id) {
  return /^[A-Za-z]+$/.test(id ?? '') ? id[0].toUpperCase() + id.slice(1).toLowerCase() : defaultVoice;
}

function requestFor(text, voice) {
  return {
    contents: [{ parts: [{ text }] }],
    generationConfig: {
      responseModalities: ['AUDIO'],
      speechConfig: { voiceConfig: { prebuiltVoiceConfig: { voiceName: voice } } },
    },
  };
}

/**
 * Speaks one piece. Fails with SpeechFailure.
 * @param {import('./client.js').GeminiClient} client
 * @returns {Promise<import('./wav.js').Sound>}
 */
export async function speak(client, text, { voice, model = defaultModel }) {
  const parts = await client.generate(model, requestFor(text, voice));
  const part = parts.find((candidate) => candidate?.inlineData);
  if (!part) throw new SpeechFailure('Gemini answered without sound');
  return soundFrom(part);
}
