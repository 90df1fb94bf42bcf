#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sonra {

/// One line of the speech worker, as far as it matters here.
struct WorkerMessage {
    enum class Type { ready, result };

    Type type = Type::ready;
    /// Of `ready`: at least 1.
    std::optional<std::int32_t> pid{};
    /// Of `ready`: what speaks; empty if the worker doesn't say.
    std::string backend{};
    /// Of `result`: absent if the worker gave none, or no integer.
    std::optional<std::int64_t> id{};
    /// Of `result`: only a true boolean is true.
    bool ok = false;

    bool operator==(const WorkerMessage&) const = default;

    /// Absent for every line that is to be ignored.
    static std::optional<WorkerMessage> parse(std::string_view line);
};

}  // namespace sonra
