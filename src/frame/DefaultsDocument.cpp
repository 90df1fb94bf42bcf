#include "frame/DefaultsDocument.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <utility>

#include "frame/AtomicFile.h"
#include "frame/FileProbe.h"
#include "frame/Home.h"
#include "frame/Log.h"
#include "frame/ThreadAffinity.h"
#include "frame/UniqueName.h"

namespace sonra {
namespace {

constexpr mode_t directoryMode = 0700;

Log classLog() {
    return Log::shared().child({{"class", "DefaultsDocument"}});
}

/// With its parents, as far as they don't stand yet; what stands keeps its mode.
void makeDirectory(const std::filesystem::path& directory) {
    if (directory.empty() || ::mkdir(directory.c_str(), directoryMode) == 0 || errno != ENOENT)
        return;
    if (directory.parent_path() == directory) return;
    makeDirectory(directory.parent_path());
    ::mkdir(directory.c_str(), directoryMode);
}

}  // namespace

std::string DefaultsDocument::defaultPath() {
    return configurationDirectory() + "/Sonra/defaults.json";
}

DefaultsDocument::DefaultsDocument(std::string path) : path_(std::move(path)) {}

std::optional<double> DefaultsDocument::number(std::string_view key) const {
    return json::doubleAt(read(), key);
}

std::optional<bool> DefaultsDocument::boolean(std::string_view key) const {
    return json::boolAt(read(), key);
}

std::optional<std::string> DefaultsDocument::string(std::string_view key) const {
    return json::stringAt(read(), key);
}

void DefaultsDocument::set(std::string_view key, double value) {
    if (std::isfinite(value)) return change(key, value);
    classLog().warn("no finite number; setting dropped", {{"input", {{"key", key}}}});
}

void DefaultsDocument::set(std::string_view key, bool value) {
    change(key, value);
}

void DefaultsDocument::set(std::string_view key, const std::string& value) {
    change(key, value);
}

void DefaultsDocument::remove(std::string_view key) {
    change(key, nullptr);
}

Json DefaultsDocument::read() const {
    SONRA_ASSERT_MAIN_THREAD();
    return json::parseObject(AtomicFile::read(path_).value_or("")).value_or(Json::object());
}

void DefaultsDocument::change(std::string_view key, const Json& value) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto bytes = AtomicFile::read(path_);
    // One that is there and can't be read now would lose every setting if it were replaced.
    if (!bytes && fileExists(path_)) {
        classLog().warn("settings can't be read; change dropped", {{"input", {{"path", path_}}}});
        return;
    }
    const auto before = json::parseObject(bytes.value_or(""));
    Json after = before.value_or(Json::object());
    if (value.is_null())
        after.erase(std::string(key));
    else
        after[std::string(key)] = value;
    if (after == before.value_or(Json::object())) return;
    if (bytes && !bytes->empty() && !before) setAside(*bytes);
    store(after);
}

void DefaultsDocument::setAside(const std::string& bytes) const {
    const std::string copy = path_ + ".unreadable";
    const bool kept = AtomicFile::write(copy, bytes);
    classLog().warn("settings are no JSON object; beginning anew",
                    {{"result", {{"copy", kept ? copy : ""}, {"bytes", bytes.size()}}}});
}

void DefaultsDocument::store(const Json& document) const {
    makeDirectory(std::filesystem::path(path_).parent_path());
    // A name of its own, lest two processes write into one file.
    const std::string temporary = path_ + "." + uniqueSuffix() + ".tmp";
    if (!AtomicFile::writeThrough(temporary, path_, json::dumpPretty(document)))
        classLog().warn("settings can't be stored", {{"input", {{"path", path_}}}});
}

}  // namespace sonra
