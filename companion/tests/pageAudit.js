// What a person with weak eyes or a broad thumb would find, asked of the page itself.

/**
 * Every visible text whose contrast is below `wanted` on some colour that lies behind it: gradients count with both
 * their ends, and the remote's own ground with its glow at its brightest.
 */
export const faintTexts = (wanted = 4.5) => `(() => {
  const style = getComputedStyle(document.documentElement);
  const canvas = document.createElement('canvas').getContext('2d', { willReadFrequently: true });
  const parse = (colour) => {
    canvas.clearRect(0, 0, 1, 1);
    canvas.fillStyle = colour;
    canvas.fillRect(0, 0, 1, 1);
    const [r, g, b, a] = canvas.getImageData(0, 0, 1, 1).data;
    return [r, g, b, a / 255];
  };
  const over = ([r, g, b, a], ground) => [r, g, b].map((value, i) => value * a + ground[i] * (1 - a));
  const luminance = (colour) => colour.reduce((sum, value, i) => {
    const part = value / 255;
    return sum + [0.2126, 0.7152, 0.0722][i] * (part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4);
  }, 0);
  const contrast = (a, b) => {
    const [low, high] = [luminance(a), luminance(b)].sort((x, y) => x - y);
    return (high + 0.05) / (low + 0.05);
  };
  const named = (name) => parse(style.getPropertyValue(name));
  const ground = named('--ground').slice(0, 3);
  const glow = parseFloat(style.getPropertyValue('--glow')) / 100;
  const glowing = ['--accent-start', '--accent-end'].map((name) => over([...named(name).slice(0, 3), glow], ground));
  const gradient = ['--accent-start', '--accent-end'].map((name) => named(name).slice(0, 3));
  const groundsOf = (element) => {
    const own = getComputedStyle(element);
    if (element.id === 'remote' || element.id === 'pairing') return [ground, ...glowing];
    const isClipped = own.backgroundClip === 'text' || own.webkitBackgroundClip === 'text';
    if (own.backgroundImage.startsWith('linear-gradient') && !isClipped) return gradient;
    const below = () => element.parentElement ? groundsOf(element.parentElement) : [ground];
    const colour = parse(own.backgroundColor);
    if (colour[3] === 0 || isClipped) return below();
    return colour[3] === 1 ? [colour.slice(0, 3)] : below().map((each) => over(colour, each));
  };
  const coloursOf = (element) => {
    const own = getComputedStyle(element);
    return element.className === 'active' ? [named('--word-start'), named('--word-end')] : [parse(own.color)];
  };
  const isShown = (element) => element.checkVisibility({ visibilityProperty: true })
    && !element.closest('[aria-disabled=true], .for-readers, svg, option');
  const isText = (element) => isShown(element)
    && ([...element.childNodes].some((node) => node.nodeType === 3 && node.textContent.trim()) || element.value);
  const faint = [];
  let count = 0;
  for (const element of document.body.querySelectorAll('*')) {
    if (!isText(element) || element.tagName === 'SCRIPT') continue;
    count += 1;
    for (const behind of groundsOf(element)) for (const colour of coloursOf(element)) {
      const found = contrast(over(colour, behind), behind);
      if (found < ${wanted}) faint.push((element.id || element.className || element.tagName) + ' ' + found.toFixed(2));
    }
  }
  return { faint, count };
})()`;

/** Controls smaller than `wanted` pixels in either direction, or cut off by the screen. */
export const smallTargets = (wanted = 44) => `[...document.querySelectorAll('button, input, textarea, [role=button]')]
  .filter((each) => each.checkVisibility() && !each.closest('dialog:not([open])'))
  .map((each) => [each, each.getBoundingClientRect()])
  .filter(([each, box]) => box.width < ${wanted} || box.height < ${wanted}
    || box.left < -0.5 || box.right > screen.width + 0.5)
  .map(([each, box]) => each.id + ' ' + box.width + 'x' + box.height)`;

/** What reaches beyond the screen's right edge. The window is no measure: a phone's grows with what doesn't fit. */
export const tooWide = `document.documentElement.scrollWidth <= screen.width ? []
  : [...document.querySelectorAll('body *')].filter((each) => each.getBoundingClientRect().right > screen.width + 0.5)
    .map((each) => each.tagName + '#' + each.id + ' ' + each.getBoundingClientRect().right)`;
