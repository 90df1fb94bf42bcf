#include "search/Catalogue.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using Walked = std::unordered_map<std::string, StatAttr>;

class CatalogueTest : public testing::Test {
  protected:
    void publish(const std::string& path, double mtime = 1) {
        SessionMeta meta;
        meta.sessionId = path;
        meta.jsonlPath = path;
        meta.mtime = mtime;
        catalogue.publish(std::make_shared<const SessionMeta>(meta));
    }
    /// The paths of all that is there.
    std::vector<std::string> paths() {
        std::vector<std::string> all;
        for (const auto& meta : catalogue.snapshot()) all.push_back(meta.jsonlPath);
        return all;
    }
    using Paths = std::vector<std::string>;

    Catalogue catalogue;
};

TEST_F(CatalogueTest, AWalkThatDidntFindASessionDropsIt) {
    publish("a");
    publish("b");
    const auto difference = catalogue.adopt(Walked{{"b", {1, 0}}}, catalogue.now());
    EXPECT_TRUE(difference.hasLost);
    EXPECT_EQ(difference.toRead, Paths{});
    EXPECT_EQ(paths(), Paths{"b"});
}

TEST_F(CatalogueTest, ASessionThatCameDuringTheWalkStays) {
    publish("old");
    const auto walkBegan = catalogue.now();
    publish("new");
    const auto difference = catalogue.adopt(Walked{{"old", {1, 0}}}, walkBegan);
    EXPECT_FALSE(difference.hasLost);
    EXPECT_EQ(paths(), (Paths{"new", "old"}));
    EXPECT_TRUE(catalogue.adopt(Walked{{"old", {1, 0}}}, catalogue.now()).hasLost);
    EXPECT_EQ(paths(), Paths{"old"});
}

TEST_F(CatalogueTest, ASessionThatWasReadAgainDuringTheWalkStays) {
    publish("a");
    const auto walkBegan = catalogue.now();
    publish("a", 2);
    EXPECT_FALSE(catalogue.adopt({}, walkBegan).hasLost);
    ASSERT_TRUE(catalogue.withId("a"));
    EXPECT_EQ(catalogue.withId("a")->mtime, 2);
}

TEST_F(CatalogueTest, WhatTheWalkFoundOtherwiseIsToBeRead) {
    publish("same");
    publish("changed");
    const Walked walked{{"same", {1, 0}}, {"changed", {1, 7}}};
    EXPECT_EQ(catalogue.adopt(walked, catalogue.now()).toRead, Paths{"changed"});
}

}  // namespace
}  // namespace sonra
