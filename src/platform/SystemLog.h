#pragma once

#include <string_view>

namespace sonra {

/// The machine's own log. Called from any thread; never fails, must not block.
class SystemLog {
  public:
    enum class Severity { debug, info, notice, error, fault };

    virtual ~SystemLog() = default;

    /// `category` names the part of the program that speaks; `line` is one whole record.
    virtual void write(Severity severity, std::string_view category, std::string_view line) = 0;

    /// Gives records that wait inside a short, bounded time to leave: called before the process
    /// ends.
    virtual void flush() {}
};

}  // namespace sonra
