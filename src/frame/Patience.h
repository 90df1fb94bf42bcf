#pragma once

#include <algorithm>
#include <chrono>

namespace sonra {

/// A limit for waiting that counts only time in which an answer could have come.
///
/// One waits in parts. A part that took longer than it was meant to, because the machine or this
/// process stood still, counts no more than its length: who was to answer may have stood still as
/// well. A value; no thread of its own.
class Patience {
  public:
    using Duration = std::chrono::microseconds;

    explicit Patience(Duration limit) : left_(limit), part_(limit / parts) {}

    [[nodiscard]] bool isOver() const { return left_ <= Duration::zero(); }
    /// How long to wait now at most.
    [[nodiscard]] Duration nextPart() const { return std::min(part_, left_); }
    /// After a wait that began with a part and took so long.
    void spend(Duration waited) { left_ -= std::clamp(waited, Duration::zero(), nextPart()); }

  private:
    static constexpr int parts = 4;

    Duration left_;
    Duration part_;
};

}  // namespace sonra
