// The words of a caption, which of them is being spoken, and what labels say. Pure: nothing here knows the document.

/** The runs of a text that aren't white space. */
export function wordsOf(text) {
  return text.match(/[^\p{White_Space}]+/gu) ?? [];
}

/**
 * The word being spoken when `progress`, 0 to 1, of the sound has gone by; -1 before the first. There is no timing of
 * words: they share the time evenly.
 */
export function activeWord(progress, count) {
  if (count === 0) return -1;
  const bounded = Math.min(1, Math.max(0, progress));
  return Math.min(count - 1, Math.max(-1, Math.floor(bounded * (count + 1)) - 1));
}

/** How far the words' top must move up so that the active line rests a little above the middle. */
export function scrollOffset(activeTop, visibleHeight, contentHeight, bias = 0.45) {
  if (visibleHeight <= 0 || visibleHeight >= contentHeight) return 0;
  return Math.min(contentHeight - visibleHeight, Math.max(0, activeTop - visibleHeight * bias));
}

/** True while time goes on by itself. The setting is ahead of the snapshot by a moment. */
export function isMoving({ service, nowPlaying, settings }) {
  return service && nowPlaying.state === 'playing' && !settings.paused;
}

/** Seconds into the chunk, at `now`: it goes on by itself between what the computer tells. */
export function elapsedAt(picture, now) {
  const { nowPlaying, receivedAt, age } = picture;
  if (!isMoving(picture)) return nowPlaying.elapsed;
  return Math.min(nowPlaying.duration, nowPlaying.elapsed + (now - receivedAt + age) / 1000);
}

/** How far back one can go, and where the listener is: 0 is live. */
export function historyOf({ cursor, totalMessages }) {
  const back = cursor.kind === 'history' ? cursor.messageIndex : 0;
  const known = Math.max(totalMessages, cursor.totalKnown);
  return { back, furthest: Math.max(back, known - 1, 0) };
}

export function backLabel(back) {
  if (back === 0) return 'Live';
  return back === 1 ? '1 message back' : `${back} messages back`;
}

export const newLabel = (count) => (count < 1 ? '' : `+${count} new`);

export function timeLabel(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  return `${Math.floor(whole / 60)}:${String(whole % 60).padStart(2, '0')}`;
}

/**
 * What is going on, in two or three words, and what stands where there are no words to show.
 * @returns {{ kind: string, label: string, placeholder: string }}
 */
export function statusOf(picture) {
  if (!picture) return { kind: 'connecting', label: 'Connecting…', placeholder: 'Looking for your computer…' };
  const { service, nowPlaying, settings } = picture;
  if (!service) {
    return {
      kind: 'stopped',
      label: 'Not running',
      placeholder: 'Sonra isn’t running on your computer. Start it there, and this page goes on by itself.',
    };
  }
  const status = (kind, label, placeholder = label) => ({ kind, label, placeholder });
  if (settings.paused || nowPlaying.state === 'paused') return status('paused', 'Paused');
  if (nowPlaying.state === 'playing') return status('playing', 'Playing', '');
  if (nowPlaying.synthesizing) return status('synthesizing', 'Synthesizing…');
  return status('idle', 'Idle', 'Waiting for narration…');
}

/** "sonra · main", or what there is of it. */
export function sessionLabel({ project, branch, title }) {
  return [project, branch].filter(Boolean).join(' · ') || title || '';
}

/** What this device may be called, by what its browser says of itself. */
export function deviceLabel(userAgent) {
  const kinds = [
    [/iPhone/, 'iPhone'], [/iPad/, 'iPad'], [/Android.*Mobile/, 'Android phone'], [/Android/, 'Android tablet'],
    [/Macintosh/, 'Mac'], [/Windows/, 'Windows computer'], [/CrOS/, 'Chromebook'], [/Linux/, 'Linux computer'],
  ];
  return kinds.find(([pattern]) => pattern.test(userAgent))?.[1] ?? 'Phone';
}
