#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace sonra {

/// A companion script that is nowhere to be found; `what()` is a text for the user, with every path
/// that was tried.
class ScriptResolverError : public std::runtime_error {
  public:
    ScriptResolverError(std::string name, std::vector<std::string> attempted);

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] const std::vector<std::string>& attempted() const { return attempted_; }

  private:
    std::string name_;
    std::vector<std::string> attempted_;
};

/// Where the program is installed. An empty string means that there is no such thing.
struct Bundle {
    std::string path;               ///< the install prefix
    std::string resourceDirectory;  ///< `<prefix>/share/sonra`
    std::string executable;

    /// Of the running program, from the link that the kernel keeps to it: `<prefix>/bin/sonra`. All
    /// empty if that can't be read. Whether the resource directory exists isn't looked at.
    static Bundle main();
};

/// Finds the scripts that stand beside the program. Lookups of files only, on any thread.
namespace ScriptResolver {

/// The first that exists of: the bundle's `scripts/`, `<home>/.claude/tts/`, and four levels above
/// the executable. Throws ScriptResolverError if none does.
std::string resolve(const std::string& name, const Bundle& bundle, const std::string& home);

/// `tts_kokoro.py`, for this program and this user.
std::string kokoroScript();
/// `tts.js`, for this program and this user.
std::string ttsJsScript();
/// `bin/uv` in the bundle's resource directory, if it can be executed.
std::optional<std::string> bundledUv(const Bundle& bundle = Bundle::main());

}  // namespace ScriptResolver
}  // namespace sonra
