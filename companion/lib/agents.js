// The seven agents by the id that a session's `source` carries, in the service's order.

/** @type {ReadonlyMap<string, string>} id to the name that is shown */
export const agents = new Map([
  ['claude-code', 'Claude Code'],
  ['codex', 'Codex CLI'],
  ['gemini', 'Gemini CLI'],
  ['aider', 'Aider'],
  ['cline', 'Cline'],
  ['opencode', 'OpenCode'],
  ['pi', 'Pi'],
]);

/** What stands for an id that is none of them. */
export const agentName = (source) => agents.get(source) ?? source;
