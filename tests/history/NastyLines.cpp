#include "NastyLines.h"

#include <random>

namespace sonra::test {
namespace {

std::string reply(const std::string& content, const std::string& more = "") {
    return R"({"type":"assistant","uuid":"u-1","message":{"id":"m-1","content":)" + content + "}" +
           more + "}";
}

std::string words(const std::string& text) {
    return R"([{"type":"text","text":")" + text + "\"}]";
}

std::string nested(int depth) {
    return std::string(static_cast<std::size_t>(depth), '[') + "1" +
           std::string(static_cast<std::size_t>(depth), ']');
}

void addKeys(std::vector<std::string>& lines) {
    const std::string hi = words("Hi.");
    lines.insert(
        lines.end(),
        {R"({"\u0074ype":"assistant","uuid":"u","message":{"content":)" + hi + "}}",
         R"({"type":"\u0061ssistant","uuid":"u","message":{"content":)" + hi + "}}",
         R"({"type":"assist\u0061nt","uuid":"u","message":{"content":)" + hi + "}}",
         (R"({"type":"assistant","uuid":"u","message":{"content":[{"type":"te\u0078t",)"
          R"("te\u0078t":"Hi."}]}})"),
         (R"({"type":"assistant","uuid":"u","message":{"content":[{"t\u0079pe":"text",)"
          R"("\u0074\u0065\u0078\u0074":"Hi."}]}})"),
         R"({"type":"assistant","u\u0075id":"u","message":{"content":)" + hi + "}}",
         R"({"Type":"assistant","uuid":"u","message":{"content":)" + hi + "}}",
         R"({"type":"user","uuid":"u","type":"assistant","message":{"content":)" + hi + "}}",
         R"({"type":"assistant","uuid":"u","type":"user","message":{"content":)" + hi + "}}",
         R"({"type":"user","message":{"type":"assistant","uuid":"n","content":)" + hi + "}}",
         reply(hi, R"(,"uuid":"u-2")"),
         reply(hi, R"(,"uuid":7)"),
         reply(hi, R"(,"uuid":"")"),
         reply(hi, R"(,"isSidechain":true)"),
         reply(hi, R"(,"isSidechain":true,"isSidechain":false)"),
         reply(hi, R"(,"isSidechain":false,"isSidechain":true)"),
         reply(hi, R"(,"isSidechain":1)"),
         reply(hi, R"(,"isSidechain":"true")"),
         reply(hi, R"(,"message":{"content":[]})"),
         reply(hi, R"(,"message":5)"),
         reply(hi, R"(,"uuid":null)"),
         reply(hi, R"(,"uuid":"\u0000")"),
         reply(hi, R"(,"uuid":"a\u0000b")"),
         reply(hi, R"(,"uuid":"\ud83d\ude00")"),
         reply(hi, R"(,"uuid":"\ud83d")"),
         reply(hi, R"(,"uuid":"\ude00\ud83d")"),
         reply(hi, R"(,"uuid":"\ud83d\u0041")"),
         reply(hi, R"(,"\ud83d":1)"),
         reply(hi, R"(,"":{"":[{}]})")});
}

void addContents(std::vector<std::string>& lines) {
    for (const std::string content :
         {R"([])",
          R"({})",
          R"("Hi.")",
          R"(null)",
          R"(["Hi."])",
          R"([{"type":"text","text":"Hi."},null])",
          R"([{"type":"text","text":"Hi."},[]])",
          R"([{"type":"text","text":""}])",
          R"([{"type":"text","text":" \n\t\u00a0\u2028\u3000"}])",
          R"([{"type":"text","text":"\u200b"}])",
          R"([{"type":"text","text":"\u0000"}])",
          R"([{"type":"text","text":"\u007f"}])",
          R"([{"type":"text","text":" "},{"type":"text","text":"a"}])",
          R"([{"type":"text","text":5}])",
          R"([{"type":"text","text":5,"text":"Hi."}])",
          R"([{"type":"text","text":"Hi.","text":5}])",
          R"([{"type":"tool_use","text":"Hi.","type":"text"}])",
          R"([{"type":"text","text":"Hi.","type":"tool_use"}])",
          R"([{"type":"thinking","text":"Hi."}])",
          R"([{"type":"tool_use","input":{"type":"text","text":"Hi."}}])",
          R"([{"type":"text","text":"A \ud83d B"}])",
          R"([{"type":"text","text":"\ude00"}])",
          R"([{"type":"text","text":"\"assistant\" \\u0061"}])"})
        lines.push_back(reply(content));
}

void addNumbers(std::vector<std::string>& lines) {
    for (const std::string number : {"0",
                                     "-0",
                                     "-0.0",
                                     "01",
                                     "1.",
                                     ".5",
                                     "1e5",
                                     "1E+5",
                                     "1e",
                                     "--1",
                                     "+1",
                                     "1e400",
                                     "-1e400",
                                     "1e-400",
                                     "18446744073709551615",
                                     "18446744073709551616",
                                     "-9223372036854775808",
                                     "-9223372036854775809",
                                     "123456789012345678901234567890123456789012",
                                     "0x10",
                                     "NaN",
                                     "Infinity",
                                     "1_000",
                                     "tru",
                                     "True",
                                     "nul",
                                     "\x01"})
        lines.push_back(reply(words("Hi."), ",\"n\":" + number));
    for (const int depth : {100, 508, 509, 510, 511, 512, 513, 600, 3000})
        lines.push_back(reply(words("Hi."), ",\"n\":" + nested(depth)));
}

void addDamage(std::vector<std::string>& lines) {
    const std::string good = reply(words("Hi."));
    using namespace std::string_literals;
    for (const std::string& tail : {"x"s, ","s, "}"s, " "s, "\t"s, "\r"s, "\f"s, "\0"s, "\0x"s,
                                    "{}"s, " "s + good, "\xFF"s, "//"s})
        lines.push_back(good + tail);
    for (const std::string& head :
         {"\xEF\xBB\xBF"s, " \t"s, "\v"s, "\0"s, "["s, "null"s, "\xC2\xA0"s})
        lines.push_back(head + good);
    for (std::size_t cut = 0; cut < good.size(); ++cut) lines.push_back(good.substr(0, cut));
    for (const std::string& bytes :
         {"\xFF"s, "\xC0\x80"s, "\xED\xA0\x80"s, "\xF4\x90\x80\x80"s, "\xE2\x82"s, "\x80"s, "\x1F"s,
          "\x7F"s, "\0"s, "\t"s, "\\x"s, "\\u00"s, "\\u00g0"s, "\\"s, "\\\""s, "\xF0\x9F\x8E\x89"s,
          "\xEF\xBF\xBF"s}) {
        lines.push_back(reply(words("Hi " + bytes)));
        lines.push_back(reply(words("Hi."), R"(,"uuid":")" + bytes + "\""));
        lines.push_back(reply(words("Hi."), ",\"" + bytes + "\":1"));
    }
    for (const std::string line : {"", " ", "null", "true", "12", "\"assistant\"", "[]", "{}", "{",
                                   "\"type\":\"assistant\"", "assistant text \\u0061"})
        lines.push_back(line);
}

std::string longText(std::size_t size) {
    std::string text;
    while (text.size() < size) text += "All 214 tests pass, as they did before. ";
    return text;
}

}  // namespace

std::vector<std::string> nastyLines() {
    std::vector<std::string> lines;
    addKeys(lines);
    addContents(lines);
    addNumbers(lines);
    addDamage(lines);
    lines.push_back(reply(words(longText(300'000)), R"(,"uuid":"u-long")"));
    lines.push_back(reply(words(longText(3'000'000)), R"(,"uuid":"u-longer")"));
    lines.push_back(R"({"type":"user","text":")" + longText(2'500'000) + "\"}");
    lines.push_back(reply(words("Hi."), R"(,"uuid":"u-wide","n":")" + longText(2'200'000) + "\""));
    return lines;
}

std::vector<std::string> randomLines(std::uint32_t seed, int count) {
    static const std::vector<std::string> parts{"{",
                                                "}",
                                                "[",
                                                "]",
                                                ",",
                                                ":",
                                                R"("type")",
                                                R"("assistant")",
                                                R"("text")",
                                                R"("message")",
                                                R"("content")",
                                                R"("uuid")",
                                                R"("id")",
                                                R"("isSidechain")",
                                                "true",
                                                "null",
                                                "1e400",
                                                "12",
                                                R"("\ud83d")",
                                                R"("\u0061")",
                                                R"({"type":"text","text":"Hi."})",
                                                R"("u-1")",
                                                "\"",
                                                "\\",
                                                "\r",
                                                "\xC3"};
    static const std::string whole = reply(R"([{"type":"text","text":"Hi."},{"type":"tool_use"}])",
                                           R"(,"isSidechain":false,"uuid":"u-9")");
    std::mt19937 random(seed);
    const auto below = [&](std::size_t limit) { return random() % limit; };
    std::vector<std::string> lines;
    for (int i = 0; i < count; ++i) {
        std::string line = whole;
        for (std::size_t change = below(4); change > 0; --change) {
            const std::size_t at = below(line.size() + 1);
            line.replace(at, below(9), below(3) == 0 ? "" : parts[below(parts.size())]);
        }
        lines.push_back(line);
    }
    return lines;
}

}  // namespace sonra::test
