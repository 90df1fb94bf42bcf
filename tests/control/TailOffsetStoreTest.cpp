#include "control/TailOffsetStore.h"

#include <gtest/gtest.h>

#include "frame/ServiceState.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

class TailOffsets : public testing::Test {
  protected:
    void write(const Json& document) { test::writeFile(ServiceState::path(), document.dump()); }
    Json document() { return json::parse(test::readFile(ServiceState::path())).value_or(Json()); }

    test::TempHome home;
    test::ManualLoop loop;
    TailOffsetStore store;
};

TEST_F(TailOffsets, ReachTheRowOfTheirSessionOnly) {
    write({{"sessions", {{{"id", "a"}, {"offset", 1}}, {{"id", "b"}, {"offset", 2}}}}, {"k", 1}});
    store.report("b", 77);
    store.drain();
    EXPECT_EQ(document(),
              (Json{{"sessions", {{{"id", "a"}, {"offset", 1}}, {{"id", "b"}, {"offset", 77}}}},
                    {"k", 1}}));
}

TEST_F(TailOffsets, UnchangedValuesAreNotWritten) {
    store.seed("a", 5);
    store.report("a", 5);
    store.drain();
    EXPECT_FALSE(std::filesystem::exists(ServiceState::path()));
    write({{"sessions", {{{"id", "a"}}}}});
    store.report("a", 6);
    store.drain();
    std::filesystem::remove(ServiceState::path());
    store.report("a", 6);
    store.drain();
    EXPECT_FALSE(std::filesystem::exists(ServiceState::path()));
}

TEST_F(TailOffsets, TheLastOfManyStands) {
    write({{"sessions", {{{"id", "a"}}}}});
    for (int i = 0; i <= 500; ++i) store.report("a", i);
    store.drain();
    EXPECT_EQ(document()["sessions"][0]["offset"], 500);
}

TEST_F(TailOffsets, ElementsThatAreNoRowsStayAsTheyAre) {
    const Json odd{{"sessions", {7, "x", nullptr, {{"id", 3}}, {{"id", "a"}}}}};
    write(odd);
    store.report("", 5);
    store.drain();
    EXPECT_EQ(document(), odd);
    store.report("a", 6);
    store.drain();
    EXPECT_EQ(document()["sessions"][4]["offset"], 6);
}

TEST_F(TailOffsets, NoSuchRowOrNoListChangesNothing) {
    for (const auto& content :
         {Json{{"sessions", {{{"id", "b"}}}}}, Json{{"sessions", 7}}, Json{{"x", 1}}}) {
        write(content);
        store.forget("a");
        store.report("a", 9);
        store.drain();
        EXPECT_EQ(document(), content);
    }
}

}  // namespace
}  // namespace sonra
