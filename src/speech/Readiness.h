#pragma once

#include <optional>
#include <string>
#include <utility>

namespace sonra {

/// Whether an engine can speak now, and if not, what is missing.
class Readiness {
  public:
    static Readiness ready() { return Readiness(std::nullopt); }
    static Readiness unavailable(std::string reason) { return Readiness(std::move(reason)); }

    [[nodiscard]] bool isReady() const { return !reason_; }
    /// For the user; absent when ready.
    [[nodiscard]] const std::optional<std::string>& reason() const { return reason_; }

    bool operator==(const Readiness&) const = default;

  private:
    explicit Readiness(std::optional<std::string> reason) : reason_(std::move(reason)) {}

    std::optional<std::string> reason_;
};

}  // namespace sonra
