// The controls: they show the picture that came last and send commands. A slider that a finger holds isn't moved under
// it, and for a moment after, until the computer has followed. What can't be used just now keeps the focus, which a
// short interruption must not throw away: it only says so, and ignores what is done to it.

import { backLabel, historyOf, newLabel, statusOf } from './words.js';

const holdTime = 1500;
const volumeInterval = 200;
/** A key that is held down moves the slider many times; where it comes to rest is what is meant. */
const scrubRest = 150;

const isOff = (element) => element.ariaDisabled === 'true';

/** A range that is shown, held and sent. */
class Slider {
  #input;
  #heldUntil = -Infinity;
  #isDown = false;
  #shown = '0';

  /** @param {(value: number) => void} onMove @param {(value: number) => void} onDone */
  constructor(input, onMove, onDone) {
    this.#input = input;
    const hold = () => { this.#heldUntil = performance.now() + holdTime; };
    input.addEventListener('pointerdown', () => { this.#isDown = !isOff(input); });
    for (const kind of ['pointerup', 'pointercancel']) input.addEventListener(kind, () => { this.#isDown = false; });
    input.addEventListener('input', () => {
      if (isOff(input)) {
        input.value = this.#shown;
        return;
      }
      hold();
      onMove(Number(input.value));
    });
    input.addEventListener('change', () => {
      this.#isDown = false;
      if (isOff(input)) return;
      hold();
      onDone(Number(input.value));
    });
  }

  get isHeld() {
    return this.#isDown || performance.now() < this.#heldUntil;
  }

  letGo() {
    this.#heldUntil = -Infinity;
  }

  show(value, max) {
    if (this.isHeld) return;
    if (max !== undefined) this.#input.max = String(max);
    this.#shown = String(value);
    this.#input.value = this.#shown;
  }
}

export class Controls {
  #at = (id) => document.getElementById(id);
  #send;
  #picture;
  #history;
  #volume;
  #volumeTimer;
  #sentVolume;
  #scrubTimer;
  #settle;

  /** @param {(cmd: string, args?: object) => Promise<boolean>} send true if it went through */
  constructor(send) {
    this.#send = send;
    for (const cmd of ['stop', 'previous', 'next', 'restart']) this.#onClick(cmd, () => send(cmd));
    this.#onClick('toggle', () => send(this.#isPaused() ? 'resume' : 'pause'));
    this.#onClick('mute', () => send(this.#picture?.settings.muted ? 'unmute' : 'mute'));
    this.#onClick('live', () => {
      clearTimeout(this.#scrubTimer);
      this.#history.letGo();
      send('scrub', { index: 0 });
    });
    // To the right is now: the slider counts back from its right end.
    this.#history = new Slider(this.#at('history'), () => this.#labelHistory(), () => this.#soonScrub());
    this.#volume = new Slider(this.#at('volume'), () => this.#soonSendVolume(), () => this.#soonSendVolume());
    this.#wireTalk();
  }

  show(picture, isConnected) {
    this.#picture = picture;
    const canAct = Boolean(isConnected && picture?.service);
    for (const id of ['stop', 'previous', 'toggle', 'next', 'restart', 'history', 'live', 'volume', 'mute', 'send']) {
      this.#at(id).ariaDisabled = String(!canAct);
    }
    if (!picture) return;
    this.#showToggle();
    this.#showHistory(canAct);
    this.#showVolume();
    this.#at('talk').hidden = !picture.accepts.inject;
    clearTimeout(this.#settle);
    // What was held back under the finger is shown when it has long gone.
    if (this.#history.isHeld || this.#volume.isHeld) {
      this.#settle = setTimeout(() => this.show(this.#picture, isConnected), holdTime);
    }
  }

  #onClick(id, act) {
    this.#at(id).addEventListener('click', () => {
      if (!isOff(this.#at(id))) act();
    });
  }

  #isPaused() {
    return statusOf(this.#picture).kind === 'paused';
  }

  #showToggle() {
    const isPaused = this.#isPaused();
    this.#at('toggle').ariaLabel = isPaused ? 'Play' : 'Pause';
    this.#at('toggle-icon').setAttribute('href', isPaused ? '#i-play' : '#i-pause');
  }

  #showHistory(canAct) {
    const { back, furthest } = historyOf(this.#picture.nowPlaying);
    this.#history.show(furthest - back, furthest);
    this.#labelHistory();
    const isLive = back === 0;
    this.#at('history').ariaDisabled = String(!canAct || furthest === 0);
    this.#at('live').classList.toggle('here', isLive);
    this.#at('live').ariaLabel = isLive ? 'Live' : 'Back to live';
    const fresh = newLabel(this.#picture.nowPlaying.newLiveCount);
    this.#at('new-count').textContent = isLive ? '' : fresh;
    if (!isLive && fresh) this.#at('live').ariaLabel = `Back to live, ${fresh.slice(1)}`;
  }

  #back() {
    return Number(this.#at('history').max) - Number(this.#at('history').value);
  }

  #labelHistory() {
    this.#at('history-label').textContent = backLabel(this.#back());
    this.#at('history').setAttribute('aria-valuetext', backLabel(this.#back()));
    this.#fill('history');
  }

  #soonScrub() {
    clearTimeout(this.#scrubTimer);
    this.#scrubTimer = setTimeout(async () => {
      if (!await this.#send('scrub', { index: this.#back() })) this.#history.letGo();
    }, scrubRest);
  }

  #showVolume() {
    const { volume, muted } = this.#picture.settings;
    this.#volume.show(volume);
    if (!this.#volume.isHeld) this.#sentVolume = undefined;
    this.#labelVolume();
    this.#at('mute').ariaPressed = String(muted);
    this.#at('mute-icon').setAttribute('href', muted ? '#i-muted' : '#i-loud');
  }

  #labelVolume() {
    const { muted, volume } = this.#picture.settings;
    const percent = `${this.#volume.isHeld ? this.#at('volume').value : volume} %`;
    this.#at('volume-label').textContent = muted ? 'Muted' : percent;
    this.#at('volume').setAttribute('aria-valuetext', muted ? `${percent}, muted` : percent);
    this.#fill('volume');
  }

  /** How much of the track is coloured. */
  #fill(id) {
    const { value, max } = this.#at(id);
    this.#at(id).style.setProperty('--part', Number(max) > 0 ? Number(value) / Number(max) : 1);
  }

  /** A drag sends its way, but not every step of it. */
  #soonSendVolume() {
    this.#labelVolume();
    this.#volumeTimer ??= setTimeout(() => {
      this.#volumeTimer = undefined;
      const value = Number(this.#at('volume').value);
      if (value !== this.#sentVolume) this.#send('volume', { value });
      this.#sentVolume = value;
    }, volumeInterval);
  }

  #wireTalk() {
    const text = this.#at('talk-text');
    const grow = () => {
      text.style.setProperty('height', 'auto');
      text.style.setProperty('height', `${Math.min(text.scrollHeight + 2, 140)}px`);
    };
    text.addEventListener('input', grow);
    text.addEventListener('keydown', (event) => {
      if (event.key !== 'Enter' || event.shiftKey || event.isComposing) return;
      event.preventDefault();
      this.#at('talk').requestSubmit();
    });
    this.#at('talk').addEventListener('submit', async (event) => {
      event.preventDefault();
      if (isOff(this.#at('send'))) return;
      const said = text.value.trim();
      // What couldn't be sent stays in the box.
      if (!said || !await this.#send('inject', { text: said, submit: true })) return;
      text.value = '';
      grow();
    });
  }
}
