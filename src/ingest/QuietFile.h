#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>

namespace sonra {

/// Tells that an agent has stopped writing to a file, by the file's time of modification.
///
/// For records whose end shows only by what follows them: where nothing does, quiet ends them. No
/// timer is needed, since a transcript is looked at every 0.75 s. Immutable, any thread as far as
/// the clock is; a missing file is quiet.
class QuietFile {
  public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    static constexpr std::chrono::milliseconds enough{1500};

    explicit QuietFile(Clock clock = std::chrono::system_clock::now) : clock_(std::move(clock)) {}

    /// True if the file has not been written to for 1.5 s. A time that far in the future, as a
    /// server's clock may give it, counts as well.
    bool isQuiet(const std::string& path) const;

  private:
    Clock clock_;
};

}  // namespace sonra
