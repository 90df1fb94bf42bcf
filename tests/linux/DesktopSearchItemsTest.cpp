#include "linux/DesktopSearchItems.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/ManualLoop.h"

namespace sonra {
namespace {

using Words = std::vector<std::string>;

SearchableItem session(const std::string& id, const std::string& folder,
                       const std::string& description, double date = 0) {
    SearchableItem item;
    item.uniqueIdentifier = "tts://session/" + id;
    item.domainIdentifier = "sessions";
    item.title = folder + " · " + id.substr(0, 8);
    item.contentDescription = description;
    item.keywords = {folder, "/home/ana/" + folder, id, id.substr(0, 8)};
    item.contentModificationDate = date;
    return item;
}

class DesktopSearchItemsTest : public testing::Test {
  protected:
    Words find(const Words& terms, std::size_t limit = 10) const {
        Words ids;
        for (const auto& match : items.search(terms, limit))
            ids.push_back(match.item.uniqueIdentifier.substr(sizeof "tts://session/" - 1));
        return ids;
    }
    void add(SearchableItem item) { items.indexSearchableItems({std::move(item)}, {}); }
    DesktopSearchIndex::Completion noting() {
        return [this](const auto& error) { completions.push_back(error.value_or("well")); };
    }

    test::ManualLoop loop;
    DesktopSearchItems items{loop};
    Words completions;
};

TEST_F(DesktopSearchItemsTest, FindsByTitleKeywordAndDescriptionInAnyCase) {
    add(session("aaaa1111-x", "Webshop", "The Café's prices are fixed."));
    for (const auto* const term :
         {"WEBSHOP", "webs", "shop", "ana", "AAAA1111", "café", "CAFÉ", "prices", "rice"})
        EXPECT_EQ(find({term}), Words{"aaaa1111-x"}) << term;
    EXPECT_EQ(find({"elsewhere"}), Words{});
}

TEST_F(DesktopSearchItemsTest, AllWordsMustBeThere) {
    add(session("a", "webshop", "prices"));
    add(session("b", "webshop", "taxes"));
    EXPECT_EQ(find({"webshop", "taxes"}), Words{"b"});
    EXPECT_EQ(find({"webshop  taxes "}), Words{"b"});
    EXPECT_EQ(find({"webshop", ""}), (Words{"a", "b"}));
    EXPECT_EQ(find({"prices", "taxes"}), Words{});
}

TEST_F(DesktopSearchItemsTest, BetterPlacesComeFirst) {
    add(session("e", "one", "an unparsers test", 5));
    add(session("d", "two", "the parsers test", 4));
    add(session("c", "unparsers", "", 3));
    add(session("b", "parsers", "", 2));
    add(session("a", "parser", "", 1));
    EXPECT_EQ(find({"parser"}), (Words{"a", "b", "c", "d", "e"}));
}

TEST_F(DesktopSearchItemsTest, TheBestPlaceOfAnItemCounts) {
    add(session("b", "unparser parser", "", 1));
    add(session("a", "unparser", "parser", 2));
    EXPECT_EQ(find({"parser"}), (Words{"b", "a"}));
}

TEST_F(DesktopSearchItemsTest, WordsThatStandTogetherComeBeforeScatteredOnes) {
    add(session("scattered", "x", "the index of a search", 2));
    add(session("together", "x", "a search index", 1));
    EXPECT_EQ(find({"search", "index"}), (Words{"together", "scattered"}));
}

TEST_F(DesktopSearchItemsTest, NewerOnesBreakTies) {
    add(session("old", "webshop", "", 100));
    add(session("new", "webshop", "", 300));
    add(session("mid", "webshop", "", 200));
    EXPECT_EQ(find({"webshop"}), (Words{"new", "mid", "old"}));
    EXPECT_EQ(find({"webshop"}, 2), (Words{"new", "mid"}));
    EXPECT_EQ(find({"webshop"}, 0), Words{});
}

TEST_F(DesktopSearchItemsTest, RelevanceIsBetweenZeroAndOne) {
    add(session("a", "webshop", "the prices"));
    EXPECT_EQ(items.search({"webshop"}, 1)[0].relevance, 1.0);
    const auto low = items.search({"rice"}, 1)[0].relevance;
    EXPECT_GT(low, 0);
    EXPECT_LT(low, 0.5);
}

TEST_F(DesktopSearchItemsTest, ASingleLetterFindsNothing) {
    add(session("a", "webshop x", ""));
    EXPECT_EQ(find({"x"}), Words{});
    EXPECT_EQ(find({" "}), Words{});
    EXPECT_EQ(find({}), Words{});
    add(session("b", "店", ""));
    EXPECT_EQ(find({"店"}), Words{"b"}) << "a word of one character";
}

TEST_F(DesktopSearchItemsTest, NastyTermsAreOnlyText) {
    add(session("a", "web.*shop", "100 % [sic] \\d"));
    EXPECT_EQ(find({".*"}), Words{"a"});
    EXPECT_EQ(find({"[sic]"}), Words{"a"});
    EXPECT_EQ(find({"\\d"}), Words{"a"});
    EXPECT_EQ(find({"\xff\xfe"}), Words{});
    EXPECT_EQ(find({std::string(100'000, 'x')}), Words{});
    EXPECT_EQ(find(Words(1'000, "web")), Words{"a"});
}

TEST_F(DesktopSearchItemsTest, AnItemTakesThePlaceOfItsNamesake) {
    add(session("a", "webshop", "prices"));
    add(session("a", "webshop", "taxes"));
    EXPECT_EQ(find({"prices"}), Words{});
    EXPECT_EQ(find({"taxes"}), Words{"a"});
    EXPECT_EQ(items.item("tts://session/a")->contentDescription, "taxes");
    EXPECT_FALSE(items.item("tts://session/b"));
}

TEST_F(DesktopSearchItemsTest, DeletesByIdentifierDomainAndWhole) {
    for (const auto* const id : {"a", "b", "c", "d"}) add(session(id, "webshop", ""));
    auto message = session("m", "webshop", "");
    message.domainIdentifier = "messages";
    add(message);
    items.deleteSearchableItems({"tts://session/a", "tts://session/none"}, noting());
    EXPECT_EQ(find({"webshop"}), (Words{"b", "c", "d", "m"}));
    items.deleteSearchableItemsInDomains({"messages", "none"}, noting());
    EXPECT_EQ(find({"webshop"}), (Words{"b", "c", "d"}));
    items.deleteAllSearchableItems(noting());
    EXPECT_EQ(find({"webshop"}), Words{});
    EXPECT_EQ(completions, Words{}) << "never inside the call";
    loop.runPosted();
    EXPECT_EQ(completions, (Words{"well", "well", "well"}));
}

TEST_F(DesktopSearchItemsTest, AnItemWithoutIdentifierIsAnErrorAndTheOthersAreTaken) {
    items.indexSearchableItems({SearchableItem{}, session("a", "webshop", "")}, noting());
    items.indexSearchableItems({}, noting());
    loop.runPosted();
    EXPECT_EQ(completions, (Words{"an item has no identifier", "well"}));
    EXPECT_EQ(find({"webshop"}), Words{"a"});
}

TEST_F(DesktopSearchItemsTest, ChangesAndSearchesMayComeFromSeveralThreads) {
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (int round = 0; round < 200; ++round) {
            items.indexSearchableItems({session("a", "webshop", ""), session("b", "webshop", "")},
                                       noting());
            items.deleteSearchableItems({"tts://session/a", "tts://session/b"}, {});
        }
        done = true;
    });
    while (!done) EXPECT_NE(find({"webshop"}).size(), 1U) << "a call's changes are seen as one";
    writer.join();
    loop.runPosted();
    EXPECT_EQ(completions.size(), 200U);
}

}  // namespace
}  // namespace sonra
