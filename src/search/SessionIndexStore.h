#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

#include "search/IndexFile.h"

namespace sonra {

/// Why the cache couldn't be written, in the system's words; `code` is its errno.
class SessionIndexStoreError : public std::runtime_error {
  public:
    SessionIndexStoreError(int code, const std::string& description)
        : std::runtime_error(description), code_(code) {}
    [[nodiscard]] static const char* domain() { return "SessionIndexStore"; }
    [[nodiscard]] int code() const { return code_; }

  private:
    int code_;
};

/// The catalogue's file. A cache: what can't be read is as if it weren't there, with a line on
/// standard error where it was damaged or another version's. Any thread, but two savers need a
/// lock.
class SessionIndexStore {
  public:
    /// Larger files are neither read nor written, so that a file of something else costs no memory.
    /// A session takes up to 1.8 KB, where both of its texts are long and in a script of three
    /// bytes a character: a hundred thousand of them should fit.
    static constexpr std::size_t mostBytes = std::size_t{180} << 20;

    /// Without a directory "Sonra" in the user's caches directory.
    explicit SessionIndexStore(std::optional<std::string> cacheDir = std::nullopt,
                               std::size_t maxBytes = mostBytes);

    [[nodiscard]] const std::string& cacheDir() const { return cacheDir_; }
    [[nodiscard]] const std::string& cachePath() const { return cachePath_; }

    /// Makes the directory and those above it; throws SessionIndexStoreError.
    void ensureDir() const;
    [[nodiscard]] std::optional<IndexFile> load() const;
    /// Replaces the file whole; throws SessionIndexStoreError. One that would be too large to be
    /// loaded leaves the old one, which is better than none.
    void save(const IndexFile& file) const;

  private:
    std::string cacheDir_;
    std::string cachePath_;
    std::size_t maxBytes_;
};

}  // namespace sonra
