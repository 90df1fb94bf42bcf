#include "search/SearchRows.h"

#include <gtest/gtest.h>
#include <unicode/unistr.h>

#include "search/RelativeDate.h"
#include "search/Searcher.h"

namespace sonra::test {
namespace {

constexpr double now = 1'790'000'000;
constexpr double hour = 3600;
constexpr double day = 24 * hour;

SessionMeta meta(const std::string& id = "9f31c2aa-1111", const std::string& cwd = "/src/tts") {
    SessionMeta session;
    session.sessionId = id;
    session.cwd = cwd;
    session.firstUserPrompt = "Move the loop";
    session.lastAssistantSnippet = "Done.";
    session.source = "claude-code";
    session.mtime = now - 2 * hour;
    return session;
}

SessionHit hit(const SessionMeta& session, HitField field = HitField::project,
               std::vector<int> indices = {}) {
    return {std::make_shared<const SessionMeta>(session), field, std::move(indices), 0};
}

ProjectHit project(const std::string& name, const std::vector<SessionMeta>& sessions) {
    ProjectHit made{name, {}, 0};
    for (const auto& session : sessions)
        made.sessions.push_back(std::make_shared<const SessionMeta>(session));
    return made;
}

SearchRow rowOf(const SearchHit& content, const std::set<std::string>& attached = {}) {
    return SearchRows::row(content, attached, "", now);
}

/// The characters that are highlighted. The text must be of characters with one UTF-16 unit.
std::string lit(const SearchRow& row) {
    std::u16string units;
    for (const auto& piece : row.pieces)
        for (std::size_t i = 0; i < piece.text.size(); ++i) {
            const auto byte = static_cast<unsigned char>(piece.text[i]);
            if ((byte & 0xC0) != 0x80) units += byte < 0x80 ? byte : u'?';
        }
    std::string letters;
    for (const auto offset : row.highlights) letters += static_cast<char>(units.at(offset));
    return letters;
}

TEST(SearchRows, ASessionShowsItsIdItsFolderAndItsFirstPrompt) {
    EXPECT_EQ(rowOf(hit(meta())).text(), "9f31c2aa · tts · Move the loop");
    EXPECT_EQ(rowOf(hit(meta()), {"9f31c2aa-1111"}).text(), "● 9f31c2aa · tts · Move the loop");
    EXPECT_EQ(rowOf(hit(meta())).kind, SearchRow::Kind::session);
}

TEST(SearchRows, WithoutAPromptASessionShowsItsLastSnippet) {
    auto session = meta();
    session.firstUserPrompt.clear();
    EXPECT_EQ(rowOf(hit(session)).text(), "9f31c2aa · tts · Done.");
}

TEST(SearchRows, APromptIsCutAfter120Characters) {
    auto session = meta();
    session.firstUserPrompt.clear();
    for (int i = 0; i < 130; ++i) session.firstUserPrompt += "👩‍💻";
    std::string expected = "9f31c2aa · tts · ";
    for (int i = 0; i < 120; ++i) expected += "👩‍💻";
    EXPECT_EQ(rowOf(hit(session)).text(), expected);
}

TEST(SearchRows, AProjectShowsItsNameItsSessionsAndTheNewestOnesAge) {
    auto older = meta("a");
    older.mtime = now - 5 * day;
    const auto row = rowOf(project("tts-offload", {older, meta("b"), older, older}));
    EXPECT_EQ(row.text(), "tts-offload · 4 sessions · 2 hr. ago");
    EXPECT_EQ(row.kind, SearchRow::Kind::project);
    EXPECT_EQ(row.source, "claude-code");
}

TEST(SearchRows, TheWordStaysPluralForOneSession) {
    EXPECT_EQ(rowOf(project("tts", {meta()})).text(), "tts · 1 sessions · 2 hr. ago");
}

TEST(SearchRows, AProjectWithoutSessionsHasNoTime) {
    EXPECT_EQ(rowOf(project("tts", {})).text(), "tts · 0 sessions · ");
}

TEST(SearchRows, OnlyTheProjectOfThatNameIsExpanded) {
    EXPECT_TRUE(SearchRows::row(project("tts", {}), {}, "tts", now).isExpanded);
    EXPECT_FALSE(SearchRows::row(project("web", {}), {}, "tts", now).isExpanded);
    EXPECT_FALSE(SearchRows::row(project("", {}), {}, "", now).isExpanded);
}

TEST(SearchRows, WhatMatchedIsHighlightedWhereItsFieldStands) {
    const auto session = meta();
    EXPECT_EQ(rowOf(hit(session, HitField::sessionId, {0, 1})).highlights,
              (std::vector<std::size_t>{0, 1}));
    EXPECT_EQ(rowOf(hit(session, HitField::project, {0, 2})).highlights,
              (std::vector<std::size_t>{11, 13}));
    EXPECT_EQ(rowOf(hit(session, HitField::firstUserPrompt, {0, 5})).highlights,
              (std::vector<std::size_t>{17, 22}));
    EXPECT_EQ(lit(rowOf(hit(session, HitField::firstUserPrompt, {0, 5}))), "Mt");
}

TEST(SearchRows, TheMarkerShiftsWhatIsHighlighted) {
    const auto session = meta();
    const std::set<std::string> attached{session.sessionId};
    for (const auto field : {HitField::sessionId, HitField::project, HitField::firstUserPrompt}) {
        const auto plain = rowOf(hit(session, field, {1}));
        const auto marked = rowOf(hit(session, field, {1}), attached);
        EXPECT_EQ(marked.highlights.at(0), plain.highlights.at(0) + 2);
        EXPECT_EQ(lit(marked), lit(plain));
    }
}

TEST(SearchRows, ASnippetIsHighlightedWhereItIsShown) {
    auto session = meta();
    session.firstUserPrompt.clear();
    EXPECT_EQ(lit(rowOf(hit(session, HitField::lastSnippet, {0, 3}))), "De");
}

TEST(SearchRows, NoOtherTextIsHighlightedForASnippetThatIsNotShown) {
    EXPECT_TRUE(rowOf(hit(meta(), HitField::lastSnippet, {0, 3})).highlights.empty());
}

TEST(SearchRows, WhatMatchedBehindTheEndOfTheTextIsSkipped) {
    auto session = meta();
    session.firstUserPrompt = std::string(119, 'x') + "yz" + std::string(60, 'z');
    const auto row = rowOf(hit(session, HitField::firstUserPrompt, {0, 119, 120, 180}));
    EXPECT_EQ(lit(row), "xy");
}

TEST(SearchRows, OfAnIdOnlyWhatIsShownIsHighlighted) {
    EXPECT_EQ(lit(rowOf(hit(meta(), HitField::sessionId, {7, 8, 9}))), "a");
}

TEST(SearchRows, HighlightsCountUtf16Units) {
    auto session = meta("abc", "/src/😀x");
    session.firstUserPrompt = "go";
    // The folder's sign takes two units.
    EXPECT_EQ(rowOf(hit(session, HitField::firstUserPrompt, {0})).highlights,
              (std::vector<std::size_t>{3 + 3 + 3 + 3}));
}

std::u16string utf16(const std::string& text) {
    const auto units = icu::UnicodeString::fromUTF8(text);
    return {units.getBuffer(), static_cast<std::size_t>(units.length())};
}

/// What is highlighted of the prompt when the search looks for `token`.
std::u16string litInPrompt(const std::string& prompt, const std::string& token) {
    auto session = meta("abc", "/src");
    session.firstUserPrompt = prompt;
    const auto hits = Searcher::search(SessionSnapshot({session}), token, {}, now);
    const auto row = rowOf(hits.at(0));
    std::u16string units;
    for (const auto offset : row.highlights) units += utf16(row.text()).at(offset);
    return units;
}

TEST(SearchRows, LettersWhoseLowerCaseIsLongerShiftNothing) {
    EXPECT_EQ(litInPrompt("İstanbul", "stan"), u"stan");
    EXPECT_EQ(litInPrompt("İİİ to İstanbul", "bul"), u"bul");
    EXPECT_EQ(litInPrompt("İstanbul", "İst"), u"İst") << "both units of its lower case are it";
    EXPECT_EQ(litInPrompt("İstanbul", "ist"), u"İst");
    EXPECT_EQ(litInPrompt("STRAẞE nach İzmir, Ⱥb", "nach"), u"nach");
    EXPECT_EQ(litInPrompt("STRAẞE", "ße"), u"ẞE");
    EXPECT_EQ(litInPrompt("ΟΔΟΣ", "ς"), u"Σ");
}

TEST(SearchRows, MarksAndSignsAreHighlightedWhereTheyStand) {
    EXPECT_EQ(litInPrompt("Cafe\u0301 bar", "bar"), u"bar");
    EXPECT_EQ(litInPrompt("Cafe\u0301 bar", "fe\u0301"), u"fe\u0301");
    EXPECT_EQ(litInPrompt("😀 and İ😀 mend", "mend"), u"mend");
    EXPECT_EQ(litInPrompt("go 😀", "😀"), u"😀");
    EXPECT_EQ(litInPrompt("𐐀B", "𐐨b"), u"𐐀B");
}

/// Two of these signs begin with the same unit; half a sign can't be drawn.
TEST(SearchRows, ASignIsHighlightedAsAWhole) {
    EXPECT_EQ(litInPrompt("😀😁", "😁"), u"😀😁");
}

TEST(SearchRows, TheFooterNamesTheKeysOfTheSelectedRow) {
    const SearchHit aProject = project("tts", {});
    const SearchHit aSession = hit(meta());
    EXPECT_EQ(SearchRows::footer(&aProject), "↵ expand · esc dismiss");
    EXPECT_EQ(SearchRows::footer(&aSession), "↵ attach · ⌘C copy id · esc dismiss");
    EXPECT_EQ(SearchRows::footer(nullptr), "");
}

TEST(SearchRows, WithoutRowsThePanelSaysWhy) {
    struct Case {
        std::string query;
        bool isSnapshotEmpty;
        std::string text;
    };
    const Case cases[] = {
        {"project:tts x", false, "No matches for project:tts x. Try removing prefixes to widen."},
        {"cwd:/src", true, "No matches for cwd:/src. Try removing prefixes to widen."},
        {"session:9f", false, "No matches for session:9f. Try removing prefixes to widen."},
        {"zzz", false, "No matches for zzz."},
        {"project:", true, "No matches for project:."},
        {"foo:bar", false, "No matches for foo:bar."},
        {"", false, "Recents will appear here. Start typing to search."},
        {"", true, "No Claude sessions found in ~/.claude/projects"}};
    for (const auto& [query, isSnapshotEmpty, text] : cases)
        EXPECT_EQ(SearchRows::emptyState(query, isSnapshotEmpty), text);
}

TEST(SearchRows, TheStripCountsWhatIsDone) {
    EXPECT_EQ(SearchRows::scanningStrip({.total = 120, .done = 7, .inFlight = true}),
              "Indexing… (7 / 120)");
}

TEST(RelativeDate, NamesTheLargestUnitThatFits) {
    struct Case {
        double ago;
        std::string text;
    };
    const Case cases[] = {
        {0, "0 sec. ago"},         {1.9, "1 sec. ago"},       {59.9, "59 sec. ago"},
        {60, "1 min. ago"},        {hour - 1, "59 min. ago"}, {2 * hour + 59, "2 hr. ago"},
        {day - 1, "23 hr. ago"},   {day, "1 day ago"},        {3 * day, "3 days ago"},
        {7 * day, "1 wk. ago"},    {29 * day, "4 wk. ago"},   {31 * day, "1 mo. ago"},
        {364 * day, "11 mo. ago"}, {366 * day, "1 yr. ago"},  {-90, "in 1 min."},
        {-2 * day, "in 2 days"}};
    for (const auto& [ago, text] : cases) EXPECT_EQ(relativeDate(now - ago, now), text);
}

}  // namespace
}  // namespace sonra::test
