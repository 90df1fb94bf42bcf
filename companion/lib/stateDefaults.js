// The settings in state.json as the service reads them: a key that is missing or has another type has its default.

const defaults = { voice: 'af_heart', speed: 1.5, volume: 100, muted: false, paused: false, captions: false };

const fits = {
  voice: (value) => typeof value === 'string',
  speed: (value) => typeof value === 'number',
  volume: Number.isInteger,
  muted: (value) => typeof value === 'boolean',
  paused: (value) => typeof value === 'boolean',
  captions: (value) => typeof value === 'boolean',
};

/**
 * @param {import('./sharedDocument.js').SharedDocument} document
 * @returns {typeof defaults}
 */
export function settingsOf(document) {
  return Object.fromEntries(Object.entries(defaults).map(([key, fallback]) => {
    const value = document.get(key);
    return [key, fits[key](value) ? value : fallback];
  }));
}
