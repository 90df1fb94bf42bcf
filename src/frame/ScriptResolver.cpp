#include "frame/ScriptResolver.h"

#include "frame/FileProbe.h"
#include "frame/Home.h"

#include <filesystem>
#include <utility>

namespace sonra {
namespace {

namespace fs = std::filesystem;

std::string notFoundText(const std::string& name, const std::vector<std::string>& attempted) {
    std::string text = "Couldn't find " + name + ". Looked in:";
    for (const auto& path : attempted) text += "\n  " + path;
    return text;
}

fs::path levelsAbove(fs::path path, int levels) {
    while (levels-- > 0) path = path.parent_path();
    return path;
}

std::vector<std::string> candidates(const std::string& name, const Bundle& bundle,
                                    const std::string& home) {
    std::vector<std::string> paths;
    if (!bundle.resourceDirectory.empty())
        paths.push_back(fs::path(bundle.resourceDirectory) / "scripts" / name);
    paths.push_back(fs::path(home) / ".claude/tts" / name);
    if (!bundle.executable.empty()) paths.push_back(levelsAbove(bundle.executable, 4) / name);
    return paths;
}

}  // namespace

ScriptResolverError::ScriptResolverError(std::string name, std::vector<std::string> attempted)
    : std::runtime_error(notFoundText(name, attempted)),
      name_(std::move(name)),
      attempted_(std::move(attempted)) {}

Bundle Bundle::main() {
    std::error_code failed;
    const fs::path executable = fs::read_symlink("/proc/self/exe", failed);
    if (failed) return {};
    const fs::path prefix = levelsAbove(executable, 2);
    return {prefix, prefix / "share/sonra", executable};
}

namespace ScriptResolver {

std::string resolve(const std::string& name, const Bundle& bundle, const std::string& home) {
    auto attempted = candidates(name, bundle, home);
    for (const auto& path : attempted)
        if (fileExists(path)) return path;
    throw ScriptResolverError(name, std::move(attempted));
}

std::string kokoroScript() {
    return resolve("tts_kokoro.py", Bundle::main(), homeDirectory());
}

std::string ttsJsScript() {
    return resolve("tts.js", Bundle::main(), homeDirectory());
}

std::optional<std::string> bundledUv(const Bundle& bundle) {
    if (bundle.resourceDirectory.empty()) return std::nullopt;
    const std::string uv = fs::path(bundle.resourceDirectory) / "bin/uv";
    return isExecutableFile(uv) ? std::optional(uv) : std::nullopt;
}

}  // namespace ScriptResolver
}  // namespace sonra
