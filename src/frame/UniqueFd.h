#pragma once

#include <unistd.h>

#include <utility>

namespace sonra {

/// Owns one file descriptor and closes it at the end of its scope; -1 owns nothing.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    /// Gives the descriptor away, open.
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (const int before = std::exchange(fd_, fd); before >= 0 && before != fd) ::close(before);
    }

  private:
    int fd_ = -1;
};

}  // namespace sonra
