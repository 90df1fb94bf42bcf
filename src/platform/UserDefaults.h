#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sonra {

/// Small settings of the user's by name, which outlive the process. Main thread only. A value of
/// another type than asked for counts as absent; a failure to store is logged and dropped.
class UserDefaults {
  public:
    virtual ~UserDefaults() = default;

    [[nodiscard]] virtual std::optional<double> number(std::string_view key) const = 0;
    [[nodiscard]] virtual std::optional<bool> boolean(std::string_view key) const = 0;
    [[nodiscard]] virtual std::optional<std::string> string(std::string_view key) const = 0;
    virtual void set(std::string_view key, double value) = 0;
    virtual void set(std::string_view key, bool value) = 0;
    virtual void set(std::string_view key, const std::string& value) = 0;
    virtual void remove(std::string_view key) = 0;
};

}  // namespace sonra
