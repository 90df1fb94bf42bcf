// The agents' colours, as the desktop's captions have them, and what is left of them where they must be read.

const theme = (chip, name, start, end, ink) => ({ chip, name, start, end, ink });

const themes = {
  'claude-code': theme('CC', 'Claude Code', [255, 181, 77], [255, 110, 107], [26, 13, 0]),
  codex: theme('CDX', 'Codex CLI', [79, 194, 247], [92, 107, 255], [5, 13, 31]),
  gemini: theme('GEM', 'Gemini CLI', [143, 125, 255], [92, 212, 255], [10, 10, 31]),
  aider: theme('AID', 'Aider', [255, 166, 38], [255, 112, 97], [26, 13, 0]),
  cline: theme('CLN', 'Cline', [79, 209, 168], [112, 227, 130], [0, 18, 10]),
  opencode: theme('OC', 'OpenCode', [255, 110, 199], [255, 143, 176], [26, 0, 15]),
  pi: theme('PI', 'Pi', [0, 199, 189], [112, 235, 204], [0, 18, 15]),
};

export const grounds = { dark: [20, 20, 24], light: [250, 250, 252] };

/** Enough for small text. */
const wantedContrast = 4.6;
/** As the style sheet has it. */
const glowPart = 0.15;

export const themeOf = (source) => (Object.hasOwn(themes, source) ? themes[source] : themes['claude-code']);

function luminance(colour) {
  const [r, g, b] = colour.map((value) => {
    const part = value / 255;
    return part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
  });
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
}

export function contrast(a, b) {
  const [low, high] = [luminance(a), luminance(b)].sort((x, y) => x - y);
  return (high + 0.05) / (low + 0.05);
}

/** The page's ground where the glow behind it is brightest. */
function glowing(ground, colour) {
  return ground.map((value, index) => Math.round(value + (colour[index] - value) * glowPart));
}

/** The same hue with nothing grey in it: what is darkened without this looks muddy. */
function vivid(colour) {
  const [low, high] = [Math.min(...colour), Math.max(...colour)];
  return colour.map((value) => (high > low ? ((value - low) / (high - low)) * high : value));
}

/** `colour`, made darker or lighter by as little as makes it readable on all of `onGrounds`. */
export function readable(colour, ...onGrounds) {
  const isLight = luminance(onGrounds[0]) > 0.2;
  for (let part = 0; part <= 1; part += 0.02) {
    const darker = (value, index) => (value + (vivid(colour)[index] - value) * part) * (1 - part);
    const lighter = (value) => value + (255 - value) * part;
    const moved = colour.map(isLight ? darker : lighter).map(Math.round);
    if (onGrounds.every((ground) => contrast(moved, ground) >= wantedContrast)) return moved;
  }
  return isLight ? [0, 0, 0] : [255, 255, 255];
}

const css = ([r, g, b]) => `rgb(${r} ${g} ${b})`;

/** The style properties for one agent on one ground. */
export function coloursOf(source, scheme) {
  const { start, end, ink } = themeOf(source);
  const ground = grounds[scheme];
  const all = [ground, glowing(ground, start), glowing(ground, end)];
  return {
    '--accent-start': css(start),
    '--accent-end': css(end),
    '--accent-ink': css(ink),
    '--word-start': css(readable(start, ...all)),
    '--word-end': css(readable(end, ...all)),
  };
}
