#pragma once

#include "frame/Environment.h"
#include "frame/Home.h"
#include "frame/ScriptResolver.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sonra {

/// Finds the control tool `ctl.js` and the Node.js that runs it, wherever the user installed them:
/// a program started from the desktop doesn't have the shell's PATH.
///
/// Lookups of files only, on any thread. What isn't found is absent; a pointer file that misleads
/// is a warning in the log.
namespace CtlInvocation {

/// How to run the control tool.
struct Resolved {
    std::string node;
    std::string script;

    /// Both, quoted, as the beginning of a command line for the shell.
    [[nodiscard]] std::string shellCommand() const;
    /// `word` so that the shell takes it for one word that means just itself.
    static std::string quoteForShell(const std::string& word);

    bool operator==(const Resolved&) const = default;
};

/// The path of `ctl.js`: from the pointer file that an installer leaves in the home, else the first
/// of the usual places. An empty `bundlePath` means that there is no bundle.
std::optional<std::string> resolveCtlPath(const std::string& home = homeDirectory(),
                                          const std::string& bundlePath = Bundle::main().path);

/// Where packages put node, in the order in which they are tried.
inline const std::vector<std::string> usualNodePaths{"/opt/homebrew/bin/node",
                                                     "/usr/local/bin/node", "/usr/bin/node"};

/// The first of `installed` that can be executed, else nvm's default, else node on the PATH.
std::optional<std::string> resolveNodeBinary(
    const std::vector<std::string>& installed = usualNodePaths);

/// The node that nvm uses by default, by its alias files in the home.
std::optional<std::string> nvmDefaultNodeBinary(const std::string& home = homeDirectory());

using NodeResolver = std::function<std::optional<std::string>()>;
using CtlResolver = std::function<std::optional<std::string>(const std::string& home)>;

/// TTS_CTL_CMD of `environment` where it names both, unchecked; else what the two resolvers find.
/// Absent unless there are both.
std::optional<Resolved> resolve(const std::string& home, const Environment& environment,
                                const NodeResolver& nodeResolver, const CtlResolver& ctlResolver);
/// For this user, this process's environment and the files of this machine.
std::optional<Resolved> resolve();

/// True if TTS_DISABLE_CTL is "1": then the control tool must not be started.
bool ctlSpawnDisabled();

}  // namespace CtlInvocation
}  // namespace sonra
