/** A failure with a reason that a person can read; nothing more is said of it. */
export class SpeechFailure extends Error {
  constructor(message, options) {
    super(message, options);
    this.name = 'SpeechFailure';
  }
}
