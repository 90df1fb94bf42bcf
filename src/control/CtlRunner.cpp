#include "control/CtlRunner.h"

#include <stdexcept>
#include <utility>

#include "frame/Log.h"

namespace sonra {
namespace {

ChildProcess::Request shellRequest(const std::string& command) {
    ChildProcess::Request request;
    request.executable = "/bin/sh";
    request.arguments = {"-c", command};
    request.environment = ownEnvironment();
    request.error = ChildProcess::ErrorStream::null;
    return request;
}

/// The words aren't quoted: all callers pass fixed ones.
std::string joined(const std::vector<std::string>& words) {
    std::string line;
    for (const auto& word : words) line += " " + word;
    return line;
}

}  // namespace

std::unique_ptr<ChildProcess> startCtl(const std::vector<std::string>& arguments,
                                       const CtlTool& tool) {
    const auto log = Log::shared().child({{"class", "AppCoordinator"}, {"method", "runCtl"}});
    const std::string subcommand = arguments.empty() ? "(empty)" : arguments.front();
    const Json call{{"input", {{"subcommand", subcommand}, {"argCount", arguments.size()}}}};
    if (CtlInvocation::ctlSpawnDisabled()) {
        log.info("ctl spawn disabled; dropping", call);
        return nullptr;
    }
    const auto resolved = tool();
    if (!resolved) {
        log.warn("ctl.js + node not resolvable; dropping", call);
        return nullptr;
    }
    auto spawned = ChildProcess::spawn(shellRequest(resolved->shellCommand() + joined(arguments)));
    if (!spawned.process) {
        log.error("ctl spawn failed", std::runtime_error(spawned.error),
                  {{"input", {{"subcommand", subcommand}}}});
        return nullptr;
    }
    return std::move(spawned.process);
}

}  // namespace sonra
