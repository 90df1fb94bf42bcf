#include "search/SearchText.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>

#include "search/FileName.h"
#include "search/HitField.h"
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

void append(std::u16string& units, const icu::UnicodeString& more) {
    units.append(more.getBuffer(), static_cast<std::size_t>(more.length()));
}

/// The rules by which neighbours count and lengths change take their time. Most of what isn't ASCII
/// has no other case, and doesn't need them.
void appendLowered(std::u16string& units, std::string_view text) {
    auto field = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
    const auto start = units.size();
    append(units, field);
    for (std::size_t i = start; i < units.size(); ++i) {
        if (units[i] < firstOther) {
            units[i] = loweredAscii(static_cast<char>(units[i]));
        } else if (u_hasBinaryProperty(field.char32At(static_cast<std::int32_t>(i - start)),
                                       UCHAR_CHANGES_WHEN_LOWERCASED)) {
            units.resize(start);
            return append(units, field.toLower(icu::Locale::getRoot()));
        }
    }
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

std::array<std::string_view, SearchText::fieldCount> SearchText::fieldsOf(const SessionMeta& meta) {
    std::array<std::string_view, fieldCount> fields;
    const auto text = [&](HitField field) -> auto& {
        return fields[static_cast<std::size_t>(field)];
    };
    text(HitField::project) = FileName::lastComponent(meta.cwd);
    text(HitField::sessionId) = meta.sessionId;
    text(HitField::firstUserPrompt) = meta.firstUserPrompt;
    text(HitField::lastSnippet) = meta.lastAssistantSnippet;
    return fields;
}

SearchText::SearchText(const SessionMeta& meta) {
    const auto fields = fieldsOf(meta);
    const bool plain = std::ranges::all_of(fields, isAscii);
    std::size_t total = 0;
    for (std::size_t i = 0; i < fieldCount; ++i) {
        if (!plain) appendLowered(units_, fields[i]);
        const std::size_t end = plain ? total + fields[i].size() : units_.size();
        lengths_[i] = static_cast<std::uint32_t>(end - total);
        total = end;
    }
    bytes_.resize(total + padding);
    auto* at = bytes_.data();
    if (plain) {
        for (const auto field : fields) at = std::ranges::transform(field, at, loweredAscii).out;
    } else {
        std::ranges::transform(units_, at, [](char16_t unit) {
            return unit < other ? static_cast<unsigned char>(unit) : other;
        });
    }
    at = bytes_.data();
    for (std::size_t i = 0; i < fieldCount; at += lengths_[i++])
        masks_[i] = maskOfAll(at, lengths_[i]);
}

}  // namespace sonra
