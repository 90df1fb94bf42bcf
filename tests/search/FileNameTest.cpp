#include "search/FileName.h"

#include <gtest/gtest.h>

#include <random>

#include "frame/Text.h"

namespace sonra {
namespace {

TEST(FileName, LastComponents) {
    EXPECT_EQ(FileName::lastComponent("/a/b"), "b");
    EXPECT_EQ(FileName::lastComponent("/a/b//"), "b");
    EXPECT_EQ(FileName::lastComponent("b"), "b");
    EXPECT_EQ(FileName::lastComponent("/"), "/");
    EXPECT_EQ(FileName::lastComponent(""), "");
}

TEST(FileName, WhatStandsBefore) {
    EXPECT_EQ(FileName::withoutLastComponent("/a/b"), "/a");
    EXPECT_EQ(FileName::withoutLastComponent("/a"), "/");
    EXPECT_EQ(FileName::withoutLastComponent("a"), "");
}

TEST(FileName, Extensions) {
    EXPECT_EQ(FileName::withoutExtension("a.jsonl"), "a");
    EXPECT_EQ(FileName::withoutExtension("a.b.jsonl"), "a.b");
    EXPECT_EQ(FileName::withoutExtension(".jsonl"), ".jsonl");
    EXPECT_EQ(FileName::withoutExtension("a"), "a");
}

TEST(FileName, EveryNameCanBeWrittenAndReadBack) {
    std::mt19937 random(7);
    for (int round = 0; round < 20'000; ++round) {
        std::string bytes;
        for (auto length = random() % 12; length > 0; --length)
            bytes +=
                random() % 3 == 0 ? "\xEF\x9E\x80" : std::string(1, static_cast<char>(random()));
        const auto text = FileName::escaped(bytes);
        ASSERT_TRUE(text::isUtf8(text));
        ASSERT_EQ(FileName::unescaped(text), bytes);
    }
}

TEST(FileName, UsualNamesStayAsTheyAre) {
    EXPECT_EQ(FileName::escaped("Gr\xC3\xB6\xC3\x9F"
                                "e.jsonl"),
              "Gr\xC3\xB6\xC3\x9F"
              "e.jsonl");
}

}  // namespace
}  // namespace sonra
