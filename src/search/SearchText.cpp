#include "search/SearchText.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <vector>

#include "search/FileName.h"
#include "search/SessionMeta.h"

namespace sonra {
namespace {

constexpr unsigned char firstOther = 0x80;

bool isAscii(std::string_view text) {
    return std::ranges::all_of(text,
                               [](char c) { return static_cast<unsigned char>(c) < firstOther; });
}

unsigned char loweredAscii(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

std::u16string loweredUnits(std::string_view text) {
    auto units = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
    units.toLower(icu::Locale::getRoot());
    return {units.getBuffer(), static_cast<std::size_t>(units.length())};
}

/// A bit for each ASCII character.
std::array<std::uint64_t, 256> makeMasks() {
    constexpr unsigned digitBits = 26;
    constexpr unsigned sharedBits = 36;
    std::array<std::uint64_t, 256> masks{};
    for (unsigned byte = 0; byte < firstOther; ++byte) {
        unsigned bit = sharedBits + byte % (64 - sharedBits);
        if (byte >= 'a' && byte <= 'z') bit = byte - 'a';
        if (byte >= '0' && byte <= '9') bit = digitBits + byte - '0';
        masks[byte] = std::uint64_t{1} << bit;
    }
    return masks;
}

const std::array<std::uint64_t, 256> characterMasks = makeMasks();

std::uint64_t maskOfAll(const unsigned char* bytes, std::size_t count) {
    std::uint64_t mask = 0;
    for (std::size_t i = 0; i < count; ++i) mask |= characterMasks[bytes[i]];
    return mask;
}

}  // namespace

std::uint64_t SearchText::maskOf(unsigned char byte) {
    return characterMasks[byte];
}

SearchText::SearchText(const SessionMeta& meta) {
    const std::array<std::string_view, fieldCount> fields{FileName::lastComponent(meta.cwd),
                                                          meta.sessionId, meta.firstUserPrompt,
                                                          meta.lastAssistantSnippet};
    const bool plain = std::ranges::all_of(fields, isAscii);
    std::size_t total = 0;
    for (std::size_t i = 0; i < fieldCount; ++i) {
        if (!plain) units_ += loweredUnits(fields[i]);
        const std::size_t end = plain ? total + fields[i].size() : units_.size();
        lengths_[i] = static_cast<std::uint32_t>(end - total);
        total = end;
    }
    bytes_ = std::make_unique<unsigned char[]>(total + padding);
    auto* at = bytes_.get();
    if (plain) {
        for (const auto field : fields) at = std::ranges::transform(field, at, loweredAscii).out;
    } else {
        std::ranges::transform(units_, at, [](char16_t unit) {
            return unit < other ? static_cast<unsigned char>(unit) : other;
        });
    }
    at = bytes_.get();
    for (std::size_t i = 0; i < fieldCount; at += lengths_[i++])
        masks_[i] = maskOfAll(at, lengths_[i]);
}

std::u16string_view SearchText::units(std::size_t field) const {
    if (units_.empty()) return {};
    std::size_t start = 0;
    for (std::size_t i = 0; i < field; ++i) start += lengths_[i];
    return std::u16string_view(units_).substr(start, lengths_[field]);
}

}  // namespace sonra
