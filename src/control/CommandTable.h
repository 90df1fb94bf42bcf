#pragma once

#include <functional>
#include <map>
#include <string>

#include "frame/Json.h"

namespace sonra {

/// The socket's commands by name. Main thread. A message without a command, or with an unknown one,
/// is ignored, and so is one whose arguments have the wrong type: the handlers see to that.
class CommandTable {
  public:
    using Handler = std::function<void(const Json& message)>;

    /// Names are compared exactly; a later handler of a name replaces the earlier one.
    void add(const std::string& name, Handler handler) { handlers_[name] = std::move(handler); }

    void handle(const Json& message) const {
        const auto name = json::stringAt(message, "cmd");
        if (!name) return;
        const auto found = handlers_.find(*name);
        if (found != handlers_.end()) found->second(message);
    }

  private:
    std::map<std::string, Handler> handlers_;
};

}  // namespace sonra
