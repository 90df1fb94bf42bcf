#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "frame/CtlInvocation.h"

namespace sonra {

using CtlTool = std::function<std::optional<CtlInvocation::Resolved>()>;

/// The control tool of this user.
inline std::optional<CtlInvocation::Resolved> ownCtlTool() {
    return CtlInvocation::resolve();
}

/// Starts the control tool (`ctl.js`) with fixed words such as "stop-daemon" and doesn't wait for
/// it. Does nothing when TTS_DISABLE_CTL is "1". Main thread; a tool that can't be found or started
/// is logged and the call dropped. True if a process was started.
bool runCtl(const std::vector<std::string>& arguments, const CtlTool& tool = ownCtlTool);

}  // namespace sonra
