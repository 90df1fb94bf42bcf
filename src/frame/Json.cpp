#include "frame/Json.h"

#include <cctype>
#include <cmath>

namespace sonra::json {
namespace {

constexpr std::string_view replacementEscape = "\\ufffd";

/// The code unit of a \uXXXX escape at `at`, or -1.
int unicodeEscape(std::string_view text, std::size_t at) {
    if (at + 6 > text.size() || text[at] != '\\' || text[at + 1] != 'u') return -1;
    int value = 0;
    for (std::size_t i = at + 2; i < at + 6; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (std::isxdigit(c) == 0) return -1;
        value = value * 16 + (std::isdigit(c) != 0 ? c - '0' : std::tolower(c) - 'a' + 10);
    }
    return value;
}

bool isHighSurrogate(int unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(int unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// One pass over the raw text: how deep it nests, and where escapes of lone surrogates stand.
struct Survey {
    int depth = 0;
    std::vector<std::size_t> loneSurrogates;
};

/// Steps over the escape at `at` inside a string; returns the first position behind it.
std::size_t surveyEscape(std::string_view text, std::size_t at, Survey& survey) {
    const int unit = unicodeEscape(text, at);
    if (unit < 0) return at + 2;
    if (isHighSurrogate(unit) && isLowSurrogate(unicodeEscape(text, at + 6))) return at + 12;
    if (isHighSurrogate(unit) || isLowSurrogate(unit)) survey.loneSurrogates.push_back(at);
    return at + 6;
}

std::size_t surveyString(std::string_view text, std::size_t at, Survey& survey) {
    while (at < text.size()) {
        at = text.find_first_of("\"\\", at);
        if (at == std::string_view::npos) return text.size();
        if (text[at] == '"') return at + 1;
        at = surveyEscape(text, at, survey);
    }
    return at;
}

Survey surveyText(std::string_view text) {
    Survey survey;
    int depth = 0;
    for (std::size_t i = text.find_first_of("\"[]{}"); i < text.size();
         i = text.find_first_of("\"[]{}", i)) {
        const char c = text[i++];
        if (c == '"') {
            i = surveyString(text, i, survey);
        } else if (c == '[' || c == '{') {
            survey.depth = std::max(survey.depth, ++depth);
        } else {
            --depth;
        }
    }
    return survey;
}

std::string withReplacements(std::string_view text, const std::vector<std::size_t>& places) {
    std::string result(text);
    for (const auto at : places) result.replace(at, replacementEscape.size(), replacementEscape);
    return result;
}

std::optional<Json> parseStrict(std::string_view text) {
    Json value = Json::parse(text, nullptr, false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}

}  // namespace

std::optional<Json> parse(std::string_view text) {
    // The library would take a zero byte for the end of the text and pass whatever stands behind
    // it.
    if (text.find('\0') != std::string_view::npos) return std::nullopt;
    const Survey survey = surveyText(text);
    if (survey.depth > maxDepth) return std::nullopt;
    if (survey.loneSurrogates.empty()) return parseStrict(text);
    return parseStrict(withReplacements(text, survey.loneSurrogates));
}

std::optional<Json> parseObject(std::string_view text) {
    auto value = parse(text);
    if (value && !value->is_object()) return std::nullopt;
    return value;
}

std::string dump(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string dumpPretty(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace);
}

const Json* find(const Json& object, std::string_view key) {
    if (!object.is_object()) return nullptr;
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::optional<std::string> asString(const Json* value) {
    if (value == nullptr || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

std::optional<bool> asBool(const Json* value) {
    if (value == nullptr || !value->is_boolean()) return std::nullopt;
    return value->get<bool>();
}

std::optional<std::int64_t> asInt(const Json* value) {
    if (value == nullptr || !value->is_number()) return std::nullopt;
    if (value->is_number_unsigned()) {
        const auto number = value->get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
        return static_cast<std::int64_t>(number);
    }
    if (value->is_number_integer()) return value->get<std::int64_t>();
    const auto number = value->get<double>();
    if (number != std::floor(number) || number < -9223372036854775808.0 ||
        number >= 9223372036854775808.0)
        return std::nullopt;
    return static_cast<std::int64_t>(number);
}

std::optional<double> asDouble(const Json* value) {
    if (value == nullptr || !value->is_number()) return std::nullopt;
    return value->get<double>();
}

std::optional<std::string> stringAt(const Json& object, std::string_view key) {
    return asString(find(object, key));
}
std::optional<bool> boolAt(const Json& object, std::string_view key) {
    return asBool(find(object, key));
}
std::optional<std::int64_t> intAt(const Json& object, std::string_view key) {
    return asInt(find(object, key));
}
std::optional<double> doubleAt(const Json& object, std::string_view key) {
    return asDouble(find(object, key));
}

}  // namespace sonra::json
