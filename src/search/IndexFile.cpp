#include "search/IndexFile.h"

#include <simdjson.h>

#include <array>
#include <cmath>
#include <cstddef>

#include "frame/Json.h"
#include "frame/Text.h"
#include "search/FileName.h"

namespace sonra {
namespace {

using simdjson::dom::element;

constexpr std::size_t typicalRecordBytes = 800;

void appendString(std::string& out, std::string_view text) {
    constexpr unsigned char firstPrintable = 0x20;
    const auto isPlain = [](char c) {
        return c != '"' && c != '\\' && static_cast<unsigned char>(c) >= firstPrintable;
    };
    out += '"';
    while (!text.empty()) {
        std::size_t plain = 0;
        while (plain < text.size() && isPlain(text[plain])) ++plain;
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) break;
        const auto quoted = Json(std::string(text.substr(0, 1))).dump();
        out.append(quoted, 1, quoted.size() - 2);
        text.remove_prefix(1);
    }
    out += '"';
}

void appendMember(std::string& out, std::string_view key, std::string_view text) {
    out += key;
    appendString(out, text);
}

void appendRecord(std::string& out, const SessionRecord& record) {
    appendMember(out, R"({"cwd":)", record.cwd);
    appendMember(out, R"(,"firstUserPrompt":)", record.firstUserPrompt);
    appendMember(out, R"(,"gitBranch":)", record.gitBranch);
    appendMember(out, R"(,"id":)", record.id);
    appendMember(out, R"(,"lastSnippet":)", record.lastSnippet);
    out += R"(,"msgCount":)" + std::to_string(record.msgCount);
    out += R"(,"mtime":)" + text::decimal(record.mtime);
    appendMember(out, R"(,"path":)", FileName::escaped(record.path));
    appendMember(out, R"(,"project":)", record.project);
    out += R"(,"size":)" + std::to_string(record.size);
    appendMember(out, R"(,"source":)", record.source);
    out += '}';
}

/// A number without a fraction counts, however it was written.
bool readInteger(element value, std::int64_t& target) {
    if (value.get(target) == simdjson::SUCCESS) return true;
    constexpr double limit = 9223372036854775808.0;  // 2^63
    double number = 0;
    if (!value.is_double() || value.get(number) != simdjson::SUCCESS) return false;
    if (number != std::trunc(number) || number < -limit || number >= limit) return false;
    target = static_cast<std::int64_t>(number);
    return true;
}

bool readDouble(element value, double& target) {
    return value.is_number() && value.get(target) == simdjson::SUCCESS;
}

bool readString(element value, std::string& target) {
    std::string_view text;
    if (value.get(text) != simdjson::SUCCESS) return false;
    target = text;
    return true;
}

/// One field of a record, by its key.
struct Field {
    std::string_view key;
    bool (*read)(element value, SessionRecord& record);
};

constexpr std::array fields{
    Field{"cwd", [](element v, SessionRecord& r) { return readString(v, r.cwd); }},
    Field{"firstUserPrompt",
          [](element v, SessionRecord& r) { return readString(v, r.firstUserPrompt); }},
    Field{"gitBranch", [](element v, SessionRecord& r) { return readString(v, r.gitBranch); }},
    Field{"id", [](element v, SessionRecord& r) { return readString(v, r.id); }},
    Field{"lastSnippet", [](element v, SessionRecord& r) { return readString(v, r.lastSnippet); }},
    Field{"msgCount", [](element v, SessionRecord& r) { return readInteger(v, r.msgCount); }},
    Field{"mtime", [](element v, SessionRecord& r) { return readDouble(v, r.mtime); }},
    Field{"path", [](element v, SessionRecord& r) { return readString(v, r.path); }},
    Field{"project", [](element v, SessionRecord& r) { return readString(v, r.project); }},
    Field{"size", [](element v, SessionRecord& r) { return readInteger(v, r.size); }},
    Field{"source", [](element v, SessionRecord& r) { return readString(v, r.source); }},
};

/// The name of the first field that is missing or of another type, or nothing.
std::string_view readRecord(simdjson::dom::object object, SessionRecord& record) {
    std::array<bool, fields.size()> present{};
    std::size_t expected = 0;  // keys usually come in the order of the table
    for (const auto [key, value] : object) {
        std::size_t at = expected;
        if (at == fields.size() || fields[at].key != key)
            for (at = 0; at < fields.size() && fields[at].key != key;) ++at;
        if (at == fields.size()) continue;
        if (!fields[at].read(value, record)) return fields[at].key;
        present[at] = true;
        expected = at + 1;
    }
    for (std::size_t i = 0; i < fields.size(); ++i)
        if (!present[i]) return fields[i].key;
    record.path = FileName::unescaped(record.path);
    return {};
}

bool readSessions(element value, std::vector<SessionRecord>& sessions, std::string& error) {
    simdjson::dom::array list;
    if (value.get(list) != simdjson::SUCCESS) {
        error = "sessions isn't a list";
        return false;
    }
    sessions.clear();
    sessions.reserve(list.size());
    for (const auto item : list) {
        simdjson::dom::object object;
        std::string_view wrong = "it";
        if (item.get(object) == simdjson::SUCCESS)
            wrong = readRecord(object, sessions.emplace_back());
        if (wrong.empty()) continue;
        error = "session " + std::to_string(sessions.size()) + ": " + std::string(wrong) +
                " is missing or of another type";
        return false;
    }
    return true;
}

bool readDocument(simdjson::dom::object document, IndexFile& file, std::string& error) {
    bool hasVersion = false, hasSessions = false;
    for (const auto [key, value] : document) {
        if (key == "v") {
            hasVersion = readInteger(value, file.v);
        } else if (key == "sessions") {
            hasSessions = true;
            if (!readSessions(value, file.sessions, error)) return false;
        }
    }
    if (hasVersion && hasSessions) return true;
    error = hasVersion ? "sessions is missing" : "v is missing or of another type";
    return false;
}

}  // namespace

std::string IndexFile::encoded() const {
    std::string out = R"({"sessions":[)";
    out.reserve(sessions.size() * typicalRecordBytes);
    for (const auto& record : sessions) {
        if (out.back() == '}') out += ',';
        appendRecord(out, record);
    }
    return out + R"(],"v":)" + std::to_string(v) + "}";
}

std::optional<IndexFile> IndexFile::decoded(std::string_view bytes, std::string& error) {
    simdjson::dom::parser parser;
    simdjson::dom::object document;
    if (const auto failed = parser.parse(bytes.data(), bytes.size()).get(document)) {
        error = simdjson::error_message(failed);
        return std::nullopt;
    }
    IndexFile file;
    if (!readDocument(document, file, error)) return std::nullopt;
    return file;
}

}  // namespace sonra
