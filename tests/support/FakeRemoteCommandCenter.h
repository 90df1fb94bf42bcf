#pragma once

#include <optional>
#include <utility>

#include "platform/RemoteCommandCenter.h"

namespace sonra::test {

/// The desktop's media controls: the test presses them, and sees what they would show.
class FakeRemoteCommandCenter : public RemoteCommandCenter {
  public:
    void setHandlers(Handlers newHandlers) override { handlers = std::move(newHandlers); }
    void setCanNavigate(bool can) override { canNavigate = can; }
    void setVolume(double gain) override { volume = gain; }
    void retire() override { ++retirements; }

    Handlers handlers;
    std::optional<bool> canNavigate;
    double volume = -1;  ///< below 0 until it is set
    int retirements = 0;
};

}  // namespace sonra::test
