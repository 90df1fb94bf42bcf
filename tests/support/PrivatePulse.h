#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/TempDir.h"
#include "support/TestProcess.h"

namespace sonra::test {

/// A PulseAudio daemon of the test's own, with the null sinks "speaker" (the default) and
/// "micfeed", and the source "mic" that hears the latter. PULSE_SERVER points to it for its scope.
/// It can be killed, frozen and started again on the same socket.
class PrivatePulse {
  public:
    PrivatePulse();

    [[nodiscard]] std::string socket() const { return dir_ / "run/pulse.sock"; }
    void start();
    void kill() { daemon_.reset(); }
    void freeze() const;
    void thaw() const;

    /// What `pactl` prints.
    std::string pactl(std::vector<std::string> arguments) const;
    /// Streams that play, or stand ready to.
    [[nodiscard]] std::size_t playbackStreams() const;

  private:
    TempDir dir_;
    ScopedEnv server_;
    std::unique_ptr<TestProcess> daemon_;
};

}  // namespace sonra::test
