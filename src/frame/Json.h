#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace sonra {

/// Every shared document uses this type: objects with sorted keys, one convention for reading typed
/// values.
using Json = nlohmann::json;

namespace json {

/// Deepest nesting that `parse` accepts; deeper documents could exhaust the stack of code that
/// walks them.
inline constexpr int maxDepth = 512;

/// Reads one JSON text. Absent for anything that isn't valid JSON, isn't UTF-8, or nests deeper
/// than maxDepth. Of duplicate keys the last wins; the escape of a lone surrogate becomes U+FFFD.
std::optional<Json> parse(std::string_view text);

/// As `parse`, absent also when the top level isn't an object.
std::optional<Json> parseObject(std::string_view text);

/// One line, sorted keys, slashes as they are. Bytes that aren't UTF-8 become U+FFFD.
std::string dump(const Json& value);

/// Two blanks a level, sorted keys, for documents that people may read.
std::string dumpPretty(const Json& value);

/// The member `key` of an object, or null if `object` isn't one or has no such key.
const Json* find(const Json& object, std::string_view key);

/// Typed reads: absent when the value has another type. A boolean is never a number nor a number a
/// boolean; a number with no fractional part is an integer, however it was written.
std::optional<std::string> asString(const Json* value);
std::optional<bool> asBool(const Json* value);
std::optional<std::int64_t> asInt(const Json* value);
std::optional<double> asDouble(const Json* value);

std::optional<std::string> stringAt(const Json& object, std::string_view key);
std::optional<bool> boolAt(const Json& object, std::string_view key);
std::optional<std::int64_t> intAt(const Json& object, std::string_view key);
std::optional<double> doubleAt(const Json& object, std::string_view key);

}  // namespace json
}  // namespace sonra
