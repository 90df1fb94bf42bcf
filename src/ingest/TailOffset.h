#pragma once

#include <cstdint>

namespace sonra {

/// A cursor into a transcript: how much of it has been seen, counted as the agent's storage
/// demands.
///
/// A plain value, any thread. Payloads are absolute, never deltas. Only `intValue` is ever stored;
/// which kind it was is known from the transcript's source.
class TailOffset {
  public:
    enum class Kind : std::uint8_t {
        byte,          ///< position in an append-only file, always just behind a complete line
        messageIndex,  ///< elements consumed of a document that is rewritten whole
        unixMs,  ///< largest modification time consumed of a directory with a file per message
    };

    static constexpr TailOffset byte(std::int64_t value) { return {Kind::byte, value}; }
    static constexpr TailOffset messageIndex(std::int64_t value) {
        return {Kind::messageIndex, value};
    }
    static constexpr TailOffset unixMs(std::int64_t value) { return {Kind::unixMs, value}; }

    static constexpr TailOffset of(Kind kind, std::int64_t value) { return {kind, value}; }

    constexpr Kind kind() const { return kind_; }
    constexpr std::int64_t intValue() const { return value_; }

    /// A time of day in thousandths of milliseconds, as some readers count it. Told by its size: as
    /// milliseconds it would lie thousands of years ahead.
    constexpr bool isInThousandths() const {
        return kind_ == Kind::unixMs && value_ >= leastThousandths;
    }
    /// A time in thousandths, or not, whatever it was in; all of a millisecond has been seen. Of
    /// other kinds, and of no time, the cursor itself.
    constexpr TailOffset inThousandths(bool wanted) const {
        if (kind_ != Kind::unixMs || value_ <= 0 || isInThousandths() == wanted) return *this;
        return unixMs(wanted ? value_ * 1000 + 999 : value_ / 1000);
    }

    /// The cursor after `other` was reached: `other` itself, except that time never runs backward.
    constexpr TailOffset advanced(TailOffset other) const {
        const bool bothTimes = kind_ == Kind::unixMs && other.kind_ == Kind::unixMs;
        const auto mine = inThousandths(isInThousandths() || other.isInThousandths());
        const auto others = other.inThousandths(mine.isInThousandths());
        return bothTimes && others.value_ <= mine.value_ ? *this : other;
    }

    constexpr bool operator==(const TailOffset&) const = default;

  private:
    static constexpr std::int64_t leastThousandths = 100'000'000'000'000;

    constexpr TailOffset(Kind kind, std::int64_t value) : kind_(kind), value_(value) {}

    Kind kind_;
    std::int64_t value_;
};

}  // namespace sonra
