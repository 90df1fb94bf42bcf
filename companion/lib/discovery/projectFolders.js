// Where an agent keeps a folder for each project, with the transcripts in it.

/**
 * The files in the folders right below `root` whose names are accepted.
 * @param {import('./folders.js').Folders} folders
 * @param {string} root
 * @param {(name: string) => boolean} accepts
 */
export async function filesOfProjects(folders, root, accepts) {
  const found = [];
  for (const project of await folders.list(root)) {
    if (!project.isFolder) continue;
    const entries = await folders.list(project.path, { accepts, ino: project.ino });
    for (const entry of entries) if (entry.isFile) found.push(entry);
  }
  return found;
}
