#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace sonra::text {

/// Number of user-perceived characters (grapheme clusters) of UTF-8 `text`.
std::size_t characterCount(std::string_view text);

/// As characterCount, but stops counting at `limit`: for tests of length on long texts.
std::size_t characterCountUpTo(std::string_view text, std::size_t limit);

/// The first `count` user-perceived characters.
std::string_view prefix(std::string_view text, std::size_t count);

/// Where each of the first `limit` user-perceived characters ends, in bytes from the start.
std::vector<std::size_t> characterEnds(std::string_view text, std::size_t limit);

/// `text` without white space and newlines at both ends (Unicode categories Z*, U+0009 to U+000D,
/// U+0085).
std::string_view trimmed(std::string_view text);

/// `text` without spaces and tabs at both ends: category Zs and U+0009.
std::string_view trimmedHorizontally(std::string_view text);

/// Lower case by the root locale's rules.
std::string lowered(std::string_view text);

/// Length in UTF-16 code units.
std::size_t utf16Length(std::string_view text);

/// True if the bytes are well-formed UTF-8.
bool isUtf8(std::string_view bytes);

/// The shortest decimal form that reads back as the same number, with ".0" where it is whole.
std::string decimal(double value);

}  // namespace sonra::text
