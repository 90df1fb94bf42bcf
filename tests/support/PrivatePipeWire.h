#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/TempDir.h"
#include "support/TestProcess.h"

namespace sonra::test {

/// PipeWire with its PulseAudio server, of the test's own, with the null sink "speaker" as the
/// default. PULSE_SERVER points to it for its scope. Starts nothing where PipeWire isn't installed.
class PrivatePipeWire {
  public:
    PrivatePipeWire();

    [[nodiscard]] static bool installed();
    /// What `pactl` prints.
    std::string pactl(std::vector<std::string> arguments) const;

  private:
    [[nodiscard]] std::string socket() const { return dir_ / "run/pulse/native"; }
    void run(std::vector<std::string> command, const std::string& readyPath);

    TempDir dir_;
    ScopedEnv server_;
    std::vector<std::unique_ptr<TestProcess>> daemons_;
};

}  // namespace sonra::test
