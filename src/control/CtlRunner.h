#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frame/ChildProcess.h"
#include "frame/CtlInvocation.h"

namespace sonra {

using CtlTool = std::function<std::optional<CtlInvocation::Resolved>()>;

/// The control tool of this user.
inline std::optional<CtlInvocation::Resolved> ownCtlTool() {
    return CtlInvocation::resolve();
}

/// Starts the control tool (`ctl.js`) with fixed words such as "stop-daemon" and doesn't wait for
/// it. Does nothing when TTS_DISABLE_CTL is "1". Any thread; a tool that can't be found or started
/// is logged and the call dropped. Null if no process was started.
std::unique_ptr<ChildProcess> startCtl(const std::vector<std::string>& arguments,
                                       const CtlTool& tool = ownCtlTool);

/// As `startCtl` for a caller that has no use for the process. True if one was started.
inline bool runCtl(const std::vector<std::string>& arguments, const CtlTool& tool = ownCtlTool) {
    return startCtl(arguments, tool) != nullptr;
}

}  // namespace sonra
