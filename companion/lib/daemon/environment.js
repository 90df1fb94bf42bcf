// What the daemon is given of the environment of whoever starts it: the places of files and its own settings. A
// terminal's other variables, keys among them, and Node's own options stay behind.

const kept = new Set([
  'HOME', 'PATH', 'USER', 'LOGNAME', 'LANG', 'LANGUAGE', 'TZ', 'TMPDIR',
  'CLAUDE_CONFIG_DIR', 'CODEX_HOME', 'GEMINI_CLI_HOME', 'CLINE_DATA_DIR', 'PI_CODING_AGENT_DIR',
  'AIDER_CHAT_HISTORY_FILE',
]);
const keptFamilies = ['XDG_', 'LC_', 'TTS_', 'SONRA_'];

/** @param {NodeJS.ProcessEnv} environment */
export function daemonEnvironment(environment) {
  return Object.fromEntries(Object.entries(environment).filter(([name]) =>
    kept.has(name) || keptFamilies.some((family) => name.startsWith(family))));
}
