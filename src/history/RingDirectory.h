#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>

#include "frame/Mutex.h"
#include "frame/SerialQueue.h"
#include "frame/UniqueFd.h"

namespace sonra {

/// The ring's files: `<path>/<message>/<n>.wav`, a directory for each message.
///
/// Whatever lies in the directory at the start is left over and removed. Removing never touches
/// anything outside: a link inside is removed as a link, and where `path` itself is a link to
/// somewhere else, only what this process put there goes. What is thrown away is first moved aside,
/// in one step, and then removed on a thread of its own, so that a directory is free for its next
/// use at once and large files never hold up the caller.
///
/// Any thread. Failures are thrown by `take` as std::system_error and ignored elsewhere.
class RingDirectory : public std::enable_shared_from_this<RingDirectory> {
  public:
    /// copy: the original stays as it is. link: the original will be unlinked, not changed, so that
    /// a second name for it does as well. move: the original goes.
    enum class Taking { copy, link, move };

    static std::shared_ptr<RingDirectory> prepare(std::string path);

    [[nodiscard]] const std::string& path() const { return path_; }
    /// The name of a message's directory, always one plain component.
    static std::string nameFor(const std::string& messageId);

    /// Makes the message's directory and returns its path; throws.
    std::string makeFor(const std::string& messageId);
    /// Takes `original` in as file number `number` of the message and returns its new path; throws.
    /// A large file that has to be copied is copied later: until then the path leads to the
    /// original, even after that was unlinked. `onBroken` is called, on the copying thread, if that
    /// fails.
    std::string take(const std::string& original, const std::string& messageId, std::int64_t number,
                     Taking taking, std::function<void()> onBroken);
    /// Throws the message's directory away.
    void discard(const std::string& messageId);
    /// Throws one file away, and its directory if it was the last.
    void discardFile(const std::string& file);
    void discardAll();
    /// Waits until everything begun has been done: for orderly ends of tests.
    void drain();

  private:
    struct LateCopy;

    explicit RingDirectory(std::string path);
    void bringIn(const std::string& original, const std::string& target, Taking taking,
                 std::function<void()> onBroken);
    void copyLater(UniqueFd original, const std::string& target, std::function<void()> onBroken);
    void finishCopy(const LateCopy& copy);
    void removeIfEmpty(const std::string& directory);
    bool moveAside(const std::string& file) SONRA_REQUIRES(mutex_);
    void removeLater();
    void removeUnused();
    void removeUnlessUsed(const std::string& name);

    const std::string path_;
    const bool isLink_;
    const std::string asideStart_;  ///< of paths of this process alone
    Mutex mutex_;
    std::unordered_set<std::string> used_ SONRA_GUARDED_BY(mutex_);  ///< names, since the start
    std::uint64_t asideCount_ SONRA_GUARDED_BY(mutex_) = 0;
    SerialQueue queue_{"sonra.ring"};
};

}  // namespace sonra
