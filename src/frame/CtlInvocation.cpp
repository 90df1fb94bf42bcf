#include "frame/CtlInvocation.h"

#include "frame/AtomicFile.h"
#include "frame/FileProbe.h"
#include "frame/Log.h"
#include "frame/Text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace sonra::CtlInvocation {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view pointerFile = "Library/Application Support/Sonra/ctl-path.txt";
constexpr std::string_view plainCharacters = "/._+-:@%=,";

/// The trimmed text of a small file, or why there is none.
struct FileText {
    std::optional<std::string> text;
    std::string error;
};

FileText readTrimmed(const std::string& path) {
    // Opening a pipe would wait for a writer.
    std::error_code failed;
    if (!fs::is_regular_file(path, failed))
        return {std::nullopt, failed ? failed.message() : "not a regular file"};
    const auto bytes = AtomicFile::read(path);
    if (!bytes) return {std::nullopt, std::strerror(errno)};
    if (!text::isUtf8(*bytes)) return {std::nullopt, "not UTF-8"};
    return {std::string(text::trimmed(*bytes)), ""};
}

/// What the installer's pointer file names, if it names a file.
std::optional<std::string> pointedTo(const std::string& home) {
    const std::string pointer = fs::path(home) / pointerFile;
    if (!fileExists(pointer)) return std::nullopt;
    const auto log = Log::shared().child({{"method", "resolveCtlPath"}});
    const auto [path, error] = readTrimmed(pointer);
    if (!path) {
        log.warn("ctl-path.txt unreadable; falling back to candidate probe",
                 {{"input", {{"pointer", pointer}, {"error", error}}}});
        return std::nullopt;
    }
    if (!path->empty() && fileExists(*path)) return path;
    log.warn("ctl-path.txt is stale; falling back to candidate probe",
             {{"input", {{"pointer", pointer}, {"resolvedTo", *path}}}});
    return std::nullopt;
}

std::vector<std::string> ctlCandidates(const fs::path& home, const fs::path& bundle) {
    std::vector<std::string> paths;
    if (!bundle.empty()) paths.push_back(bundle.parent_path().parent_path() / "ctl.js");
    paths.push_back(home / ".claude/plugins/repo/ctl.js");
    paths.push_back(home / ".claude/tts/ctl.js");
    if (!bundle.empty()) {
        paths.push_back(bundle / "Contents/Resources/cli/ctl.js");
        paths.push_back(bundle / "share/sonra/cli/ctl.js");
    }
    return paths;
}

std::optional<std::string> nodeOnPath() {
    const std::string path = environmentValue("PATH");
    for (std::size_t begin = 0; begin < path.size();) {
        const auto end = std::min(path.find(':', begin), path.size());
        // A relative entry would depend on where the program was started.
        const fs::path directory = path.substr(begin, end - begin);
        if (const std::string node = directory / "node";
            directory.is_absolute() && isExecutableFile(node))
            return node;
        begin = end + 1;
    }
    return std::nullopt;
}

/// The two parts of TTS_CTL_CMD around its first blank.
std::optional<Resolved> fromOverride(const Environment& environment) {
    const auto entry = environment.find("TTS_CTL_CMD");
    if (entry == environment.end()) return std::nullopt;
    std::string_view command = entry->second;
    command.remove_prefix(std::min(command.find_first_not_of(' '), command.size()));
    const auto blank = command.find(' ');
    if (blank == std::string_view::npos || blank + 1 == command.size()) return std::nullopt;
    return Resolved{std::string(command.substr(0, blank)), std::string(command.substr(blank + 1))};
}

bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           plainCharacters.find(c) != std::string_view::npos;
}

}  // namespace

std::string Resolved::quoteForShell(const std::string& word) {
    if (!word.empty() && std::all_of(word.begin(), word.end(), isPlain)) return word;
    std::string quoted = "'";
    for (const char c : word) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

std::string Resolved::shellCommand() const {
    return quoteForShell(node) + " " + quoteForShell(script);
}

std::optional<std::string> resolveCtlPath(const std::string& home, const std::string& bundlePath) {
    if (auto path = pointedTo(home)) return path;
    for (auto& candidate : ctlCandidates(home, bundlePath))
        if (fileExists(candidate)) return std::move(candidate);
    return std::nullopt;
}

std::optional<std::string> resolveNodeBinary(const std::vector<std::string>& installed) {
    const auto usual = std::find_if(installed.begin(), installed.end(), isExecutableFile);
    if (usual != installed.end()) return *usual;
    if (auto node = nvmDefaultNodeBinary()) return node;
    return nodeOnPath();
}

std::optional<std::string> nvmDefaultNodeBinary(const std::string& home) {
    const fs::path nvm = fs::path(home) / ".nvm";
    auto version = readTrimmed(nvm / "alias/default").text;
    if (version && version->starts_with("lts/"))
        version = readTrimmed(nvm / "alias" / *version).text;
    if (!version || version->empty()) return std::nullopt;
    if (!version->starts_with('v')) version->insert(0, 1, 'v');
    const std::string node = nvm / "versions/node" / *version / "bin/node";
    return isExecutableFile(node) ? std::optional(node) : std::nullopt;
}

std::optional<Resolved> resolve(const std::string& home, const Environment& environment,
                                const NodeResolver& nodeResolver, const CtlResolver& ctlResolver) {
    if (auto named = fromOverride(environment)) return named;
    auto script = ctlResolver(home);
    if (!script) return std::nullopt;
    auto node = nodeResolver();
    if (!node) return std::nullopt;
    return Resolved{std::move(*node), std::move(*script)};
}

std::optional<Resolved> resolve() {
    return resolve(
        homeDirectory(), ownEnvironment(), [] { return resolveNodeBinary(); },
        [](const std::string& home) { return resolveCtlPath(home); });
}

bool ctlSpawnDisabled() {
    return environmentValue("TTS_DISABLE_CTL") == "1";
}

}  // namespace sonra::CtlInvocation
