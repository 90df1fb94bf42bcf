#include "search/SessionIndexStore.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "frame/AtomicFile.h"
#include "frame/Home.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

std::string defaultCacheDir() {
    const auto caches = environmentValue("XDG_CACHE_HOME");
    return (caches.starts_with('/') ? caches : homeDirectory() + "/.cache") + "/Sonra";
}

void complain(const std::string& text) {
    std::fputs(("[index-store] " + text + "\n").c_str(), stderr);
}

[[noreturn]] void fail(int code) {
    throw SessionIndexStoreError(code, std::generic_category().message(code));
}

}  // namespace

SessionIndexStore::SessionIndexStore(std::optional<std::string> cacheDir, std::size_t maxBytes)
    : cacheDir_(cacheDir ? *std::move(cacheDir) : defaultCacheDir()),
      cachePath_(cacheDir_ + "/sessions.json"),
      maxBytes_(maxBytes) {}

void SessionIndexStore::ensureDir() const {
    std::error_code error;
    fs::create_directories(cacheDir_, error);
    if (!error && !fs::is_directory(cacheDir_, error) && !error)
        error = std::make_error_code(std::errc::not_a_directory);
    if (error) throw SessionIndexStoreError(error.value(), error.message());
}

std::optional<IndexFile> SessionIndexStore::load() const {
    std::error_code unreadable;
    const auto size = fs::file_size(cachePath_, unreadable);
    if (unreadable) return std::nullopt;
    if (size > maxBytes_) {
        complain("corrupt cache, rebuilding: " + std::to_string(size) + " bytes");
        return std::nullopt;
    }
    const auto bytes = AtomicFile::read(cachePath_);
    if (!bytes) return std::nullopt;
    std::string error;
    auto file = IndexFile::decoded(*bytes, error);
    if (!file) {
        complain("corrupt cache, rebuilding: " + error);
        return std::nullopt;
    }
    if (file->v != IndexFile::currentVersion) {
        complain("schema bump: discarding v" + std::to_string(file->v) + " cache");
        return std::nullopt;
    }
    return file;
}

void SessionIndexStore::save(const IndexFile& file) const {
    ensureDir();
    const auto bytes = file.encoded();
    if (bytes.size() > maxBytes_) fail(EFBIG);
    errno = 0;
    if (!AtomicFile::write(cachePath_, bytes)) fail(errno);
}

}  // namespace sonra
