#pragma once

#include <string>
#include <string_view>

#include "frame/Json.h"

namespace sonra::logjson {

/// Appends `text` as a JSON string, slashes as they are. Bytes that aren't UTF-8 become U+FFFD.
void appendString(std::string& out, std::string_view text);

/// Appends `value` with everything redacted that mustn't reach a log, at every depth, as the value
/// of `key`. False, with `out` in an unusable state, if the value can't be written as JSON: a
/// number that isn't finite, binary data, or deeper nesting than a document may have.
bool appendRedacted(std::string& out, std::string_view key, const Json& value, bool verbose);

/// `length`, `sha256_8` and `head40` of a text.
Json summarizeText(std::string_view text);

}  // namespace sonra::logjson
