// Puts the page together: one of its two screens, the colours of the agent that speaks, and what joins the connection
// to what is shown.

import { Caption } from './caption.js';
import { coloursOf, themeOf } from './colours.js';
import { Connection } from './connection.js';
import { Controls } from './controls.js';
import { deviceLabel, sessionLabel, statusOf } from './words.js';

const toastTime = 5000;

class Page {
  #at = (id) => document.getElementById(id);
  #isLight = matchMedia('(prefers-color-scheme: light)');
  #connection;
  #caption = new Caption();
  #controls = new Controls((cmd, args) => this.#send(cmd, args));
  #picture;
  #line = 'connecting';
  #toast;

  constructor() {
    this.#connection = new Connection({
      picture: (picture) => {
        this.#picture = picture;
        this.#show();
      },
      line: (line) => {
        this.#line = line;
        this.#show();
      },
      unpaired: () => this.#showPairing('This device is no longer paired.'),
    });
    this.#wirePairing();
    this.#wireDevice();
    this.#isLight.addEventListener('change', () => this.#colour());
    addEventListener('online', () => this.#connection.hurry());
    document.addEventListener('visibilitychange', () => { if (!document.hidden) this.#connection.hurry(); });
    this.#at('resume').addEventListener('click', () => this.#resume());
  }

  start() {
    this.#colour();
    if (this.#connection.isPaired) this.#showRemote();
    else this.#showPairing('');
  }

  /** Another page took this one's place. */
  #resume() {
    this.#connection.hurry();
    // The button goes, and the focus must not go with it.
    this.#at('toggle').focus({ preventScroll: true });
  }

  #showPairing(problem) {
    this.#forgetWords();
    this.#at('device').close();
    this.#at('remote').hidden = true;
    this.#at('pairing').hidden = false;
    this.#at('pair-problem').textContent = problem;
    this.#at('label').value ||= deviceLabel(navigator.userAgent);
    this.#at('code').value = '';
    this.#at('code').focus();
  }

  /** Whoever holds a device that is no longer paired finds nothing of what was said. */
  #forgetWords() {
    this.#picture = undefined;
    this.#caption.show(undefined);
    this.#colour();
    this.#at('talk-text').value = '';
    this.#say('');
  }

  #showRemote() {
    this.#at('pairing').hidden = true;
    this.#at('remote').hidden = false;
    this.#picture = undefined;
    this.#line = 'connecting';
    this.#show();
    this.#connection.open();
  }

  #show() {
    const isConnected = this.#line === 'open';
    const status = statusOf(this.#picture);
    const lineLabels = { lost: 'Reconnecting…', replaced: 'Open elsewhere', connecting: 'Connecting…' };
    const kind = isConnected ? status.kind : this.#line === 'replaced' ? 'idle' : 'connecting';
    this.#at('status').dataset.kind = kind;
    const label = isConnected ? status.label : lineLabels[this.#line];
    this.#at('resume').hidden = this.#line !== 'replaced';
    if (this.#at('status-label').textContent !== label) this.#at('status-label').textContent = label;
    // Words must not run on when nobody knows whether they are being spoken.
    const shown = this.#picture && !isConnected ? this.#held(this.#picture) : this.#picture;
    this.#colour();
    this.#caption.show(shown);
    this.#controls.show(shown, isConnected);
  }

  #held(picture) {
    return { ...picture, nowPlaying: { ...picture.nowPlaying, state: 'idle' } };
  }

  #colour() {
    const session = this.#picture?.session ?? { source: 'claude-code', project: '', branch: '', title: '' };
    const theme = themeOf(session.source);
    for (const [name, value] of Object.entries(coloursOf(session.source, this.#isLight.matches ? 'light' : 'dark'))) {
      document.documentElement.style.setProperty(name, value);
    }
    this.#at('chip').textContent = theme.chip;
    this.#at('chip').title = theme.name;
    this.#at('session').textContent = sessionLabel(session) || 'Sonra';
  }

  async #send(cmd, args) {
    try {
      await this.#connection.send(cmd, args);
      return true;
    } catch (error) {
      this.#say(error.message);
      return false;
    }
  }

  #say(text) {
    clearTimeout(this.#toast);
    this.#at('toast').textContent = text;
    this.#toast = setTimeout(() => { this.#at('toast').textContent = ''; }, toastTime);
  }

  #wirePairing() {
    const code = this.#at('code');
    code.addEventListener('input', () => {
      code.value = code.value.replace(/\D/g, '').slice(0, 6);
      code.ariaInvalid = null;
    });
    this.#at('pair-form').addEventListener('submit', (event) => {
      event.preventDefault();
      void this.#pair(code.value, this.#at('label').value);
    });
  }

  async #pair(code, label) {
    const button = this.#at('pair-button');
    if (button.ariaDisabled === 'true') return undefined;
    if (!/^\d{6}$/.test(code)) return this.#pairProblem('Enter the six digits.');
    button.ariaDisabled = 'true';
    this.#at('pair-problem').textContent = '';
    try {
      await this.#connection.pair(code, label);
      this.#showRemote();
      this.#at('toggle').focus({ preventScroll: true });
    } catch (error) {
      this.#pairProblem(error.message);
    } finally {
      button.ariaDisabled = null;
    }
    return undefined;
  }

  #pairProblem(text) {
    this.#at('pair-problem').textContent = text;
    this.#at('code').ariaInvalid = 'true';
    this.#at('code').select();
  }

  #wireDevice() {
    this.#at('device-button').addEventListener('click', () => {
      this.#forgetProblem('');
      this.#at('device').showModal();
    });
    this.#at('device-close').addEventListener('click', () => this.#at('device').close());
    this.#at('forget').addEventListener('click', () => this.#forget());
    this.#at('forget-here').addEventListener('click', () => {
      this.#connection.forgetHere();
      this.#showPairing('Your computer still knows this device. Remove it there, in Sonra’s settings.');
    });
  }

  async #forget() {
    const button = this.#at('forget');
    if (button.ariaDisabled === 'true') return;
    button.ariaDisabled = 'true';
    this.#forgetProblem('');
    try {
      await this.#connection.forget();
      this.#showPairing('');
    } catch (error) {
      this.#forgetProblem(`This device isn’t forgotten yet. ${error.message}`);
    } finally {
      button.ariaDisabled = null;
    }
  }

  /** Whoever gives the device away can't always wait for the computer. */
  #forgetProblem(text) {
    this.#at('forget-problem').textContent = text;
    this.#at('forget-here').hidden = text === '';
  }
}

new Page().start();
