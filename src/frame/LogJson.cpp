#include "frame/LogJson.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "frame/Sha256.h"
#include "frame/Text.h"

namespace sonra::logjson {
namespace {

constexpr std::size_t headCharacters = 40;
constexpr std::size_t digestBytes = 4;
constexpr std::array<std::string_view, 5> secretKeys{"token", "bridgeToken", "pairCode",
                                                     "magicToken", "authorization"};
constexpr std::string_view redacted = "\"[redacted]\"";
constexpr char hexDigits[] = "0123456789abcdef";

bool isSecret(std::string_view key) {
    return std::find(secretKeys.begin(), secretKeys.end(), key) != secretKeys.end();
}

bool isPlain(char c) {
    return static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\';
}

void appendEscape(std::string& out, char c) {
    switch (c) {
        case '"':
            out += "\\\"";
            return;
        case '\\':
            out += "\\\\";
            return;
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        case '\b':
            out += "\\b";
            return;
        case '\f':
            out += "\\f";
            return;
        default:
            out += {'\\', 'u', '0', '0', hexDigits[c >> 4], hexDigits[c & 15]};
    }
}

void appendEmail(std::string& out, const Json& value) {
    const auto* address = value.get_ptr<const std::string*>();
    const auto at = address == nullptr ? std::string::npos : address->rfind('@');
    if (at == std::string::npos || at == 0) {
        out += redacted;
    } else {
        appendString(out, "***" + address->substr(at));
    }
}

/// Writes values, counting how deep they nest.
class ValueWriter {
  public:
    ValueWriter(std::string& out, bool verbose) : out_(out), verbose_(verbose) {}

    bool append(std::string_view key, const Json& value) {
        if (value.is_object()) return appendObject(value);
        if (value.is_array()) return appendArray(key, value);
        if (isSecret(key)) {
            out_ += redacted;
        } else if (key == "email") {
            appendEmail(out_, value);
        } else if (key == "text" && value.is_string() && !verbose_) {
            out_ += json::dump(summarizeText(value.get_ref<const std::string&>()));
        } else {
            return appendScalar(value);
        }
        return true;
    }

  private:
    bool appendObject(const Json& value) {
        if (++depth_ > json::maxDepth) return false;
        char before = '{';
        for (const auto& [key, member] : value.get_ref<const Json::object_t&>()) {
            out_ += std::exchange(before, ',');
            appendString(out_, key);
            out_ += ':';
            if (!append(key, member)) return false;
        }
        out_ += value.empty() ? "{}" : "}";
        --depth_;
        return true;
    }

    bool appendArray(std::string_view key, const Json& value) {
        if (++depth_ > json::maxDepth) return false;
        char before = '[';
        for (const auto& element : value) {
            out_ += std::exchange(before, ',');
            if (!append(key, element)) return false;
        }
        out_ += value.empty() ? "[]" : "]";
        --depth_;
        return true;
    }

    bool appendScalar(const Json& value) {
        switch (value.type()) {
            case Json::value_t::null:
                out_ += "null";
                return true;
            case Json::value_t::boolean:
                out_ += value.get<bool>() ? "true" : "false";
                return true;
            case Json::value_t::string:
                appendString(out_, value.get_ref<const std::string&>());
                return true;
            case Json::value_t::number_integer:
                return appendNumber(value.get<std::int64_t>());
            case Json::value_t::number_unsigned:
                return appendNumber(value.get<std::uint64_t>());
            case Json::value_t::number_float:
                return appendDouble(value.get<double>());
            default:
                return false;
        }
    }

    template <typename Number>
    bool appendNumber(Number number) {
        std::array<char, 32> buffer{};
        const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
        out_.append(buffer.data(), end);
        return true;
    }

    bool appendDouble(double number) {
        if (!std::isfinite(number)) return false;
        const auto start = out_.size();
        appendNumber(number);
        if (out_.find_first_of(".e", start) == std::string::npos) out_ += ".0";
        return true;
    }

    std::string& out_;
    const bool verbose_;
    int depth_ = 0;
};

}  // namespace

void appendString(std::string& out, std::string_view text) {
    const bool isAscii =
        std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
    if (!isAscii && !text::isUtf8(text)) {
        out += json::dump(Json(text));
        return;
    }
    out += '"';
    while (!text.empty()) {
        const auto plain = static_cast<std::size_t>(
            std::find_if_not(text.begin(), text.end(), isPlain) - text.begin());
        out += text.substr(0, plain);
        if (plain == text.size()) break;
        appendEscape(out, text[plain]);
        text.remove_prefix(plain + 1);
    }
    out += '"';
}

bool appendRedacted(std::string& out, std::string_view key, const Json& value, bool verbose) {
    return ValueWriter(out, verbose).append(key, value);
}

Json summarizeText(std::string_view text) {
    const auto digest = sha256(text);
    std::string hex;
    for (std::size_t i = 0; i < digestBytes; ++i)
        hex += {hexDigits[digest[i] >> 4], hexDigits[digest[i] & 15]};
    return {{"length", text::characterCount(text)},
            {"sha256_8", hex},
            {"head40", std::string(text::prefix(text, headCharacters))}};
}

}  // namespace sonra::logjson
