#include "ingest/CleaningRules.h"

#include <gtest/gtest.h>
#include <unicode/regex.h>

#include <array>
#include <map>
#include <memory>
#include <random>
#include <span>

#include "frame/Text.h"
#include "ingest/ClaudeCodeReader.h"
#include "ingest/TextCleaner.h"
#include "support/Transcripts.h"

namespace sonra {
namespace {

/// One rule beside the regular expression that it must equal, run by ICU.
struct Reference {
    CleaningRules::Find find;
    const char16_t* pattern;
    uint32_t flags;
    const char16_t* replacement;
};

constexpr std::array<Reference, 10> references{{
    {CleaningRules::reFencedCode, uR"(```[\s\S]*?```)", 0, u" code block. "},
    {CleaningRules::reInlineCode, uR"(`[^`]*`)", 0, u""},
    {CleaningRules::reImage, uR"(!\[[^\]]*\]\([^)]*\))", 0, u""},
    {CleaningRules::reLink, uR"(\[([^\]]+)\]\([^)]*\))", 0, u"$1"},
    {CleaningRules::reURL, uR"(https?://\S+)", 0, u""},
    {CleaningRules::reBold, uR"(\*\*([^*]+)\*\*)", 0, u"$1"},
    {CleaningRules::reItalic, uR"((?<!\*)\*([^*\n]+)\*(?!\*))", 0, u"$1"},
    {CleaningRules::reHeading, uR"(^#+\s+)", UREGEX_MULTILINE, u""},
    {CleaningRules::reBullet, uR"(^[-*+]\s+)", UREGEX_MULTILINE, u""},
    {CleaningRules::reExtraNewlines, uR"(\n{3,})", 0, u"\n\n"},
}};

/// Compiled once; compiling costs more than a short text does.
icu::RegexMatcher& matcherOf(const Reference& rule) {
    static std::map<const Reference*, std::unique_ptr<icu::RegexMatcher>> matchers;
    auto& matcher = matchers[&rule];
    if (!matcher) {
        UErrorCode status = U_ZERO_ERROR;
        matcher = std::make_unique<icu::RegexMatcher>(icu::UnicodeString(rule.pattern), rule.flags,
                                                      status);
        EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
    }
    return *matcher;
}

std::string byIcu(const Reference& rule, const std::string& text) {
    UErrorCode status = U_ZERO_ERROR;
    const auto subject = icu::UnicodeString::fromUTF8(text);
    auto& matcher = matcherOf(rule);
    matcher.reset(subject);
    std::string result;
    matcher.replaceAll(icu::UnicodeString(rule.replacement), status).toUTF8String(result);
    EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
    return result;
}

std::string byScanner(CleaningRules::Find find, const std::string& text) {
    std::string result;
    std::size_t done = 0;
    for (auto match = find(text, 0); match; match = find(text, done)) {
        EXPECT_TRUE(match->begin >= done && match->end > match->begin && match->end <= text.size());
        result.append(text, done, match->begin - done).append(match->replacement);
        done = match->end;
    }
    return result.append(text, done);
}

std::string allByIcu(std::string text) {
    for (const auto& rule : references) text = byIcu(rule, text);
    return std::string(text::trimmed(text));
}

/// Random texts of what the rules look at: marks, scraps of marks, every kind of line end and of
/// space.
class RandomText {
  public:
    std::string next() {
        std::string text;
        const std::size_t count = rng_() % 24;
        for (std::size_t i = 0; i < count; ++i) text += pieces[rng_() % pieces.size()];
        return text;
    }
    std::string nextOf(std::span<const std::string_view> alphabet) {
        std::string text;
        const std::size_t count = rng_() % 16;
        for (std::size_t i = 0; i < count; ++i) text += alphabet[rng_() % alphabet.size()];
        return text;
    }

  private:
    static constexpr std::array<std::string_view, 62> pieces{"`",       "``",
                                                             "```",     "*",
                                                             "**",      "***",
                                                             "#",       "##",
                                                             "-",       "+",
                                                             "!",       "[",
                                                             "]",       "(",
                                                             ")",       "![",
                                                             "](",      "![a](b)",
                                                             "[a](b)",  "[]",
                                                             "()",      "http",
                                                             "https",   "://",
                                                             "http://", "https://",
                                                             "s",       "h",
                                                             "\n",      "\n\n",
                                                             "\r",      "\r\n",
                                                             "\v",      "\f",
                                                             "\t",      " ",
                                                             "  ",      "a",
                                                             "word",    ".",
                                                             "é",       "你",
                                                             "😀",       "e\u0301",
                                                             "\u0085",  "\u00a0",
                                                             "\u1680",  "\u180e",
                                                             "\u2003",  "\u200b",
                                                             "\u2028",  "\u2029",
                                                             "\u202f",  "\u205f",
                                                             "\u3000",  "\ufeff",
                                                             "\u001c",  "\u001f",
                                                             "\\",      "$1",
                                                             "_",       std::string_view("\0", 1)};

    std::mt19937 rng_{20260501};
};

void expectEqualRules(const std::string& text) {
    for (std::size_t i = 0; i < references.size(); ++i)
        ASSERT_EQ(byScanner(references[i].find, text), byIcu(references[i], text))
            << "rule " << i + 1 << " on " << testing::PrintToString(text);
}

TEST(CleaningRules, AreTheTenInTheirOrder) {
    for (std::size_t i = 0; i < references.size(); ++i)
        EXPECT_EQ(CleaningRules::inOrder[i], references[i].find) << i;
}

TEST(CleaningRules, EqualTheirExpressionsOnRandomTexts) {
    RandomText random;
    for (int i = 0; i < 8000 && !HasFatalFailure(); ++i) expectEqualRules(random.next());
}

TEST(CleaningRules, EqualTheirExpressionsOnRandomRunsOfAFewMarks) {
    using Alphabet = std::vector<std::string_view>;
    const std::array<Alphabet, 6> alphabets{
        Alphabet{"`", "a", "\n"},
        Alphabet{"[", "]", "(", ")", "!", "a"},
        Alphabet{"*", "a", "\n", " "},
        Alphabet{"#", "-", "*", " ", "\n", "\r", "\u0085", "\u2028"},
        Alphabet{"http", "s", "://", " ", "\u00a0", "a"},
        Alphabet{"\n", "\r", "a", "-", " "}};
    RandomText random;
    for (int i = 0; i < 12000 && !HasFatalFailure(); ++i)
        expectEqualRules(random.nextOf(alphabets[static_cast<std::size_t>(i) % alphabets.size()]));
}

TEST(CleaningRules, TogetherEqualTheExpressionsInOrder) {
    RandomText random;
    for (int i = 0; i < 8000; ++i) {
        const std::string text = random.next();
        ASSERT_EQ(TextCleaner::cleanForSpeech(text), allByIcu(text))
            << testing::PrintToString(text);
    }
}

TEST(CleaningRules, AgreeWithIcuOnWhatSpacesAndLineEndsAre) {
    for (UChar32 c = 1; c <= 0x3100 && !HasFatalFailure(); ++c) {
        std::string character;
        icu::UnicodeString(c).toUTF8String(character);
        expectEqualRules("https://x" + character + "y");
        expectEqualRules(character + "#" + character + "a");
    }
}

TEST(CleaningRules, EqualTheirExpressionsOnRealReplies) {
    const auto files = test::transcripts("claude-code", ".jsonl");
    if (files.empty()) GTEST_SKIP();
    const ClaudeCodeReader reader;
    std::size_t replies = 0;
    for (const auto& file : files) {
        for (const auto& record : reader.readSince(file.path, TailOffset::byte(0)).records) {
            const auto message = reader.parser().parse(record);
            if (!message) continue;
            ++replies;
            expectEqualRules(message->text);
            ASSERT_EQ(TextCleaner::cleanForSpeech(message->text), allByIcu(message->text));
        }
    }
    EXPECT_GT(replies, 50U);
}

}  // namespace
}  // namespace sonra
