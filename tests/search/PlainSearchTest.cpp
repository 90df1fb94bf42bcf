// The search beside one that does what is said of it, word for word and without haste.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "PlainSearch.h"
#include "search/FieldScan.h"

namespace sonra {
namespace {

constexpr double now = 1'760'000'000;

/// Random sessions and queries from few characters, so that much of it matches.
class Generator {
  public:
    explicit Generator(unsigned seed) : random_(seed) {}

    std::string text(std::size_t longest) {
        static const std::vector<std::string> pieces{"a",
                                                     "b",
                                                     "a",
                                                     "b",
                                                     "t",
                                                     "t",
                                                     "s",
                                                     "T",
                                                     "-",
                                                     "_",
                                                     "/",
                                                     ".",
                                                     " ",
                                                     "\t",
                                                     ":",
                                                     "1",
                                                     "\xC3\xA4",
                                                     "\xC3\x84",
                                                     "\xC4\xB0",
                                                     "\xE2\x80\x94",
                                                     "\xF0\x9F\x98\x80",
                                                     "\xCE\xA3",
                                                     "\xE2\x84\xAA",
                                                     "k",
                                                     "ab",
                                                     "tts"};
        std::string result;
        // Most sessions are ASCII only, and take another path.
        const auto kinds = below(2) == 0 ? 16 : pieces.size();
        for (auto length = below(longest); length > 0; --length) result += pieces[below(kinds)];
        return result;
    }
    SessionSnapshot snapshot() {
        std::vector<SessionMeta> sessions(below(40));
        for (auto& meta : sessions) {
            meta.sessionId = text(8);
            meta.cwd = "/" + text(6);
            meta.firstUserPrompt = text(below(5) == 0 ? 300 : 30);
            meta.lastAssistantSnippet = text(below(5) == 0 ? 300 : 30);
            meta.mtime = now - static_cast<double>(below(5)) * 200'000;
            meta.jsonlPath = "/" + std::to_string(serial_++);
        }
        if (below(2) == 0) std::ranges::stable_sort(sessions, std::greater(), &SessionMeta::mtime);
        return SessionSnapshot(std::move(sessions));
    }
    std::string query() {
        std::string result = text(7);
        if (below(4) == 0) result += " " + text(4);
        if (below(6) == 0) result += " project:" + text(2);
        if (below(6) == 0) result += " cwd:" + text(3);
        if (below(6) == 0) result += " session:" + text(2);
        return result;
    }
    std::size_t below(std::size_t limit) { return random_() % limit; }

  private:
    std::mt19937 random_;
    int serial_ = 0;
};

TEST(PlainSearch, GivesTheSame) {
    Generator generator(11);
    std::size_t found = 0;
    for (int round = 0; round < 3000; ++round) {
        const auto snapshot = generator.snapshot();
        const auto query = generator.query();
        if (parseQuery(query).empty()) continue;
        std::set<std::string> attached;
        for (const auto& meta : snapshot)
            if (generator.below(4) == 0) attached.insert(meta.sessionId);
        const auto hits = test::described(Searcher::search(snapshot, query, attached, now));
        ASSERT_EQ(hits, test::described(test::plainSearch(snapshot, query, attached, now)))
            << query;
        found += hits.size();
    }
    EXPECT_GT(found, 3000U);
}

TEST(PlainSearch, ScoresEachFieldTheSameAndNeverMoreThanWasSaid) {
    Generator generator(12);
    std::size_t matches = 0;
    for (int round = 0; round < 20'000; ++round) {
        SessionMeta meta;
        meta.firstUserPrompt = generator.text(generator.below(4) == 0 ? 400 : 20);
        const auto token = text::lowered(generator.text(5));
        if (token.empty()) continue;
        const SearchText text(meta);
        const FieldScan scan(token);
        const std::size_t field = 2;
        const auto plain = Scorer::match(token, meta.firstUserPrompt);
        const int expected = plain ? plain->score : FieldScan::noMatch;
        ASSERT_LE(expected, scan.highestScore());
        if (!scan.mayMatch(text.masks()[field], text.lengths()[field])) {
            ASSERT_FALSE(plain);
        } else if (scan.isAscii()) {
            ASSERT_EQ(scan.scoreBytes(text.padded(), text.lengths()[field]), expected)
                << token << " in " << meta.firstUserPrompt;
        } else {
            ASSERT_EQ(scan.scoreUnits(text.units()), expected);
        }
        matches += plain ? 1 : 0;
    }
    EXPECT_GT(matches, 2000U);
}

}  // namespace
}  // namespace sonra
