#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sonra {

struct SessionMeta;

/// The fields of a session in which the search looks, in lower case and in the form in which it is
/// fastest: one after the other, a byte for each UTF-16 unit. A unit that isn't ASCII stands there
/// as `other`; its value is kept beside. Immutable; any thread.
class SearchText {
  public:
    static constexpr std::size_t fieldCount = 4;  ///< in HitField's order
    static constexpr unsigned char other = 0x80;
    /// What may be read behind the last field.
    static constexpr std::size_t padding = 64;

    explicit SearchText(const SessionMeta& meta);

    /// As they were written. They point into `meta`.
    static std::array<std::string_view, fieldCount> fieldsOf(const SessionMeta& meta);

    /// With the padding behind them.
    [[nodiscard]] const unsigned char* padded() const { return bytes_.data(); }
    [[nodiscard]] std::span<const unsigned char> bytes() const {
        return {bytes_.data(), bytes_.size() - padding};
    }
    /// Lengths of the fields, which follow each other.
    [[nodiscard]] const std::array<std::uint32_t, fieldCount>& lengths() const { return lengths_; }
    /// Which characters a field holds: see maskOf.
    [[nodiscard]] const std::array<std::uint64_t, fieldCount>& masks() const { return masks_; }
    /// The units if there are any that aren't ASCII, else nothing.
    [[nodiscard]] std::u16string_view units() const { return units_; }

    /// A bit for each letter and digit; other ASCII characters share the rest.
    static std::uint64_t maskOf(unsigned char byte);

  private:
    std::vector<unsigned char> bytes_;
    std::array<std::uint32_t, fieldCount> lengths_{};
    std::array<std::uint64_t, fieldCount> masks_{};
    std::u16string units_;
};

}  // namespace sonra
