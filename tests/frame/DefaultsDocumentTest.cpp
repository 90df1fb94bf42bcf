#include "frame/DefaultsDocument.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <limits>

#include "support/LogWatch.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

class DefaultsDocumentTest : public testing::Test {
  protected:
    std::optional<Json> document() const { return json::parseObject(test::readFile(path_)); }
    void write(std::string_view content) const {
        std::filesystem::create_directories(directory_ / "Sonra");
        test::writeFile(path_, content);
    }
    static unsigned mode(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(0, stat(path.c_str(), &status));
        return status.st_mode & 07777U;
    }
    ino_t inode() const {
        struct stat status {};
        EXPECT_EQ(0, stat(path_.c_str(), &status));
        return status.st_ino;
    }
    std::size_t filesBeside() const {
        const std::filesystem::directory_iterator files(directory_ / "Sonra");
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }

    test::TempDir directory_;
    const std::string path_ = directory_ / "Sonra/defaults.json";
    DefaultsDocument defaults_{path_};
};

TEST_F(DefaultsDocumentTest, StandsInTheConfigurationDirectory) {
    const test::TempHome home;
    const test::ScopedEnv config("XDG_CONFIG_HOME", "/somewhere/config");
    EXPECT_EQ("/somewhere/config/Sonra/defaults.json", DefaultsDocument::defaultPath());
    const auto below = home.path() + "/.config/Sonra/defaults.json";
    const test::ScopedEnv empty("XDG_CONFIG_HOME", "");
    EXPECT_EQ(below, DefaultsDocument::defaultPath());
    const test::ScopedEnv relative("XDG_CONFIG_HOME", "config");
    EXPECT_EQ(below, DefaultsDocument::defaultPath());
}

TEST_F(DefaultsDocumentTest, AMissingDocumentHasNoSettingsAndIsNotMade) {
    EXPECT_EQ(std::nullopt, defaults_.number("a"));
    EXPECT_EQ(std::nullopt, defaults_.boolean("a"));
    EXPECT_EQ(std::nullopt, defaults_.string("a"));
    defaults_.remove("a");
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(DefaultsDocumentTest, WhatIsSetOutlivesTheObject) {
    defaults_.set("size", 22.5);
    defaults_.set("on", true);
    defaults_.set("where", std::string("{1, 2}"));
    const DefaultsDocument again(path_);
    EXPECT_EQ(22.5, again.number("size"));
    EXPECT_EQ(true, again.boolean("on"));
    EXPECT_EQ("{1, 2}", again.string("where"));
}

TEST_F(DefaultsDocumentTest, AValueOfAnotherTypeCountsAsAbsent) {
    write(R"({"number":1,"boolean":true,"string":"1","null":null,"list":[1]})");
    for (const auto* key : {"boolean", "string", "null", "list"})
        EXPECT_EQ(std::nullopt, defaults_.number(key)) << key;
    for (const auto* key : {"number", "string", "null", "list"})
        EXPECT_EQ(std::nullopt, defaults_.boolean(key)) << key;
    for (const auto* key : {"number", "boolean", "null", "list"})
        EXPECT_EQ(std::nullopt, defaults_.string(key)) << key;
    EXPECT_EQ(1, defaults_.number("number"));
}

TEST_F(DefaultsDocumentTest, UnknownKeysStay) {
    write(R"({"theirs":{"deep":[1,2]},"mine":1})");
    defaults_.set("mine", 2.0);
    EXPECT_EQ(json::parse(R"({"theirs":{"deep":[1,2]},"mine":2.0})"), document());
    defaults_.remove("mine");
    EXPECT_EQ(json::parse(R"({"theirs":{"deep":[1,2]}})"), document());
}

TEST_F(DefaultsDocumentTest, ChangesOfAnotherProcessAreSeenAndKept) {
    defaults_.set("mine", 1.0);
    DefaultsDocument other(path_);
    other.set("theirs", 2.0);
    EXPECT_EQ(2.0, defaults_.number("theirs"));
    defaults_.set("mine", 3.0);
    EXPECT_EQ(json::parse(R"({"mine":3.0,"theirs":2.0})"), document());
}

TEST_F(DefaultsDocumentTest, OnlyTheOwnerMayReadIt) {
    defaults_.set("a", 1.0);
    EXPECT_EQ(0600U, mode(path_));
    EXPECT_EQ(0700U, mode(directory_ / "Sonra"));
    EXPECT_EQ(1U, filesBeside());
}

TEST_F(DefaultsDocumentTest, MakesTheDirectoriesAbove) {
    DefaultsDocument deep(directory_ / "x/y/Sonra/defaults.json");
    deep.set("a", 1.0);
    EXPECT_EQ(1.0, deep.number("a"));
    EXPECT_EQ(0700U, mode(directory_ / "x"));
}

TEST_F(DefaultsDocumentTest, AnUnchangedValueIsNotWritten) {
    defaults_.set("a", 1.0);
    defaults_.set("b", std::string("x"));
    const auto before = inode();
    defaults_.set("a", 1.0);
    defaults_.set("b", std::string("x"));
    defaults_.remove("c");
    EXPECT_EQ(before, inode());
    defaults_.set("a", true);  // another type is another value
    EXPECT_EQ(true, defaults_.boolean("a"));
}

TEST_F(DefaultsDocumentTest, ABrokenDocumentIsSetAsideAndBegunAnew) {
    for (const std::string broken : {"{\"a\":1", "[1,2]", "\xFF\xFE", "null"}) {
        test::LogWatch log;
        log.expect("settings are no JSON object; beginning anew");
        write(broken);
        EXPECT_EQ(std::nullopt, defaults_.number("a"));
        defaults_.set("b", 2.0);
        EXPECT_EQ(json::parse(R"({"b":2.0})"), document());
        EXPECT_EQ(broken, test::readFile(path_ + ".unreadable"));
        EXPECT_EQ(0600U, mode(path_ + ".unreadable"));
    }
}

TEST_F(DefaultsDocumentTest, AnEmptyFileIsNotWorthSettingAside) {
    write("");
    defaults_.set("a", 1.0);
    EXPECT_EQ(1.0, defaults_.number("a"));
    EXPECT_EQ(1U, filesBeside());
}

TEST_F(DefaultsDocumentTest, WhatCanNotBeStoredIsLoggedAndDropped) {
    test::LogWatch log;
    log.expect("settings can't be stored");
    test::writeFile(directory_ / "file", "");
    DefaultsDocument below(directory_ / "file/Sonra/defaults.json");
    below.set("a", 1.0);
    EXPECT_EQ(std::nullopt, below.number("a"));
}

TEST_F(DefaultsDocumentTest, WhatStandsThereAndCanNotBeReadIsNotReplaced) {
    test::LogWatch log;
    log.expect("settings can't be read; change dropped");
    std::filesystem::create_directories(path_);
    defaults_.set("a", 1.0);
    EXPECT_TRUE(std::filesystem::is_directory(path_));
}

TEST_F(DefaultsDocumentTest, ANumberThatJsonCanNotHoldIsDropped) {
    test::LogWatch log;
    log.expect("no finite number; setting dropped");
    defaults_.set("a", 1.0);
    defaults_.set("a", std::numeric_limits<double>::infinity());
    EXPECT_EQ(1.0, defaults_.number("a"));
}

}  // namespace
}  // namespace sonra
