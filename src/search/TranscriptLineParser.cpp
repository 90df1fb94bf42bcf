#include "search/TranscriptLineParser.h"

#include <simdjson.h>

#include "frame/Json.h"

namespace sonra {
namespace {

using simdjson::dom::element;

std::string_view stringIn(element value) {
    std::string_view text;
    return value.get(text) == simdjson::SUCCESS ? text : std::string_view();
}

bool isTrue(element value) {
    bool flag = false;
    return value.get(flag) == simdjson::SUCCESS && flag;
}

/// A text block's text; absent for other blocks.
std::optional<std::string_view> textOfBlock(element value) {
    simdjson::dom::object block;
    if (value.get(block) != simdjson::SUCCESS) return std::nullopt;
    std::string_view type;
    std::optional<std::string_view> text;
    for (const auto [key, member] : block) {
        if (key == "type") type = stringIn(member);
        if (key == "text")
            text = member.is_string() ? std::optional(stringIn(member)) : std::nullopt;
    }
    return type == "text" ? text : std::nullopt;
}

void readContent(element content, TranscriptLine& line) {
    line.content = TranscriptLine::Content::none;
    line.texts.clear();
    simdjson::dom::array blocks;
    if (content.is_string()) {
        line.content = TranscriptLine::Content::text;
        line.texts.push_back(stringIn(content));
    } else if (content.get(blocks) == simdjson::SUCCESS) {
        line.content = TranscriptLine::Content::list;
        for (const auto block : blocks)
            if (const auto text = textOfBlock(block)) line.texts.push_back(*text);
    }
}

void readMessage(element value, TranscriptLine& line) {
    line.content = TranscriptLine::Content::none;
    line.texts.clear();
    simdjson::dom::object message;
    if (value.get(message) != simdjson::SUCCESS) return;
    for (const auto [key, member] : message)
        if (key == "content") readContent(member, line);
}

void readLine(simdjson::dom::object object, TranscriptLine& line) {
    line = {};
    for (const auto [key, value] : object) {
        if (key == "type") line.type = stringIn(value);
        if (key == "cwd") line.cwd = stringIn(value);
        if (key == "gitBranch") line.gitBranch = stringIn(value);
        if (key == "isSidechain") line.isSidechain = isTrue(value);
        if (key == "message") readMessage(value, line);
    }
}

}  // namespace

const std::size_t TranscriptLineParser::padding = simdjson::SIMDJSON_PADDING;

struct TranscriptLineParser::Parser {
    simdjson::dom::parser dom;
};

TranscriptLineParser::TranscriptLineParser() : parser_(std::make_unique<Parser>()) {}
TranscriptLineParser::~TranscriptLineParser() = default;

const TranscriptLine* TranscriptLineParser::parse(std::string_view line) {
    simdjson::dom::object object;
    const auto error = parser_->dom.parse(line.data(), line.size(), false).get(object);
    if (error == simdjson::INCORRECT_TYPE) return nullptr;
    if (error != simdjson::SUCCESS) return parseAgain(line);
    readLine(object, line_);
    return &line_;
}

/// simdjson refuses what every other program's reader takes: escapes of lone surrogates, which
/// agents write where they cut a text, and numbers beyond 64 bits.
const TranscriptLine* TranscriptLineParser::parseAgain(std::string_view line) {
    const auto last = line.find_last_not_of(" \t\r");
    if (last == std::string_view::npos || line[last] != '}') return nullptr;
    const auto json = json::parseObject(line);
    if (!json) return nullptr;
    rewritten_ = json::dump(*json);
    simdjson::dom::object object;
    if (parser_->dom.parse(rewritten_).get(object) != simdjson::SUCCESS) return nullptr;
    readLine(object, line_);
    return &line_;
}

}  // namespace sonra
