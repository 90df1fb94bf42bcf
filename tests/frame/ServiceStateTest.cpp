#include "frame/ServiceState.h"

#include "support/ComesTrue.h"
#include "support/ForkedProcess.h"
#include "support/LogWatch.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <random>
#include <thread>
#include <vector>

namespace sonra {
namespace {

using namespace std::chrono_literals;

/// A home whose state document the test writes and reads.
class ServiceStateTest : public testing::Test {
  protected:
    void write(std::string_view content) const { test::writeFile(ServiceState::path(), content); }
    std::optional<Json> document() const {
        return json::parseObject(test::readFile(ServiceState::path()));
    }
    bool isLocked() const { return std::filesystem::exists(ServiceState::path() + ".lock"); }

    test::TempHome home_;
};

TEST_F(ServiceStateTest, TheDocumentStandsBelowTheHome) {
    EXPECT_EQ(ServiceState::path(), home_.path() + "/.claude/tts/state.json");
}

TEST_F(ServiceStateTest, AnEmptyDocumentGivesTheDefaults) {
    const auto state = ServiceState::from(Json::object());
    EXPECT_EQ(state.voice, "af_heart");
    EXPECT_EQ(state.speed, 1.5);
    EXPECT_EQ(state.player, "afplay");
    EXPECT_EQ(state.volume, 100);
    EXPECT_FALSE(state.muted || state.paused || state.captions || state.synthesizing);
    EXPECT_EQ(state.lastSpeakError, "");
    EXPECT_EQ(state.lastSpeakErrorAt, 0);
    EXPECT_TRUE(state.duckOnDictation && state.voiceCommandsEnabled);
    EXPECT_FALSE(state.autoSubmitEnabled);
}

TEST_F(ServiceStateTest, ReadsEverySetting) {
    write(R"({"voice":"bf_emma","speed":1.25,"player":"mpv","volume":40,"muted":true,"paused":true,
              "captions":true,"synthesizing":true,"lastSpeakError":"oops","lastSpeakErrorAt":12.5,
              "duckOnDictation":false,"voiceCommandsEnabled":false,"autoSubmitEnabled":true})");
    ServiceState expected;
    expected.voice = "bf_emma";
    expected.speed = 1.25;
    expected.player = "mpv";
    expected.volume = 40;
    expected.muted = expected.paused = expected.captions = expected.synthesizing = true;
    expected.lastSpeakError = "oops";
    expected.lastSpeakErrorAt = 12.5;
    expected.duckOnDictation = expected.voiceCommandsEnabled = false;
    expected.autoSubmitEnabled = true;
    EXPECT_EQ(ServiceState::read(), expected);
}

TEST_F(ServiceStateTest, AWrongTypeGivesThatKeysDefault) {
    const Json wrong[] = {{{"voice", 5}},           {{"voice", nullptr}},
                          {{"speed", "2.0"}},       {{"speed", true}},
                          {{"volume", "40"}},       {{"volume", 40.5}},
                          {{"volume", false}},      {{"volume", Json::array()}},
                          {{"muted", 1}},           {{"paused", "true"}},
                          {{"captions", 1.0}},      {{"lastSpeakErrorAt", "1"}},
                          {{"duckOnDictation", 0}}, {{"lastSpeakError", Json::object()}}};
    for (const auto& document : wrong)
        EXPECT_EQ(ServiceState::from(document), ServiceState()) << document;
}

TEST_F(ServiceStateTest, AnyJsonNumberConvertsToSpeedAndAWholeOneToVolume) {
    EXPECT_EQ(ServiceState::from({{"speed", 2}}).speed, 2.0);
    EXPECT_EQ(ServiceState::from({{"volume", 40.0}}).volume, 40);
    EXPECT_EQ(ServiceState::from({{"volume", 100.5}}).volume, 100);
    EXPECT_EQ(ServiceState::from({{"volume", 1e300}}).volume, 100);
    EXPECT_EQ(ServiceState::from({{"lastSpeakErrorAt", 7}}).lastSpeakErrorAt, 7.0);
}

TEST_F(ServiceStateTest, AnOlderDocumentWithoutSynthesizingReadsAsFalse) {
    write(R"({"voice":"am_adam","paused":true})");
    EXPECT_FALSE(ServiceState::read().synthesizing);
    EXPECT_TRUE(ServiceState::read().paused);
}

TEST_F(ServiceStateTest, WhatIsNoDocumentReadsAsTheDefaultsInSilence) {
    const test::LogWatch log;
    EXPECT_EQ(ServiceState::read(), ServiceState());
    for (const auto* content :
         {"", "{", "[]", "5", "null", "\"x\"", "{\"voice\":\"a\"} x", "\xff\xfe"}) {
        write(content);
        EXPECT_EQ(ServiceState::read(), ServiceState()) << content;
    }
    EXPECT_EQ(ServiceState::read("/proc/self"), ServiceState());
    EXPECT_TRUE(log.records().empty());
}

TEST_F(ServiceStateTest, ReadsAnotherFile) {
    test::writeFile(home_ / "other.json", R"({"volume":3})");
    EXPECT_EQ(ServiceState::read(home_ / "other.json").volume, 3);
}

TEST_F(ServiceStateTest, AnUpdateKeepsKeysThatItDoesNotTouchAndLeavesNoLock) {
    write(R"({"voice":"x","daemon":{"deep":[1,{"k":null}]},"sessions":[{"id":"a"}]})");
    EXPECT_TRUE(ServiceState::update([](Json& state) { state["paused"] = true; }));
    EXPECT_EQ(document(),
              Json::parse(R"({"voice":"x","daemon":{"deep":[1,{"k":null}]},"sessions":[{"id":"a"}],
                                          "paused":true})"));
    EXPECT_FALSE(isLocked());
    EXPECT_FALSE(std::filesystem::exists(ServiceState::path() + ".tmp"));
}

TEST_F(ServiceStateTest, WritesPrettyWithSortedKeysForTheUserAlone) {
    EXPECT_TRUE(ServiceState::update([](Json& state) {
        state["b"] = "/x";
        state["a"] = 1;
    }));
    EXPECT_EQ(test::readFile(ServiceState::path()), "{\n  \"a\": 1,\n  \"b\": \"/x\"\n}");
    struct stat status {};
    ASSERT_EQ(stat(ServiceState::path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(ServiceStateTest, AnEmptyFileBeginsAnewWithNothingToSetAside) {
    write("");
    EXPECT_TRUE(ServiceState::update([](Json& state) { state["volume"] = 7; }));
    EXPECT_EQ(document(), Json({{"volume", 7}}));
    EXPECT_FALSE(std::filesystem::exists(ServiceState::path() + ".unreadable"));
}

TEST_F(ServiceStateTest, ADocumentThatIsNoObjectBeginsAnewAndIsSetAside) {
    for (const auto* content :
         {"{\"voice\":", "[1]", "5", "\xff", R"({"sessions":[],"beyond":1e999})"}) {
        write(content);
        test::LogWatch log;
        log.expect("state document is no JSON object; beginning anew");
        EXPECT_TRUE(ServiceState::update([](Json& state) {
            EXPECT_EQ(state, Json::object());
            state["volume"] = 7;
        }));
        EXPECT_EQ(document(), Json({{"volume", 7}})) << content;
        EXPECT_EQ(test::readFile(ServiceState::path() + ".unreadable"), content);
    }
}

TEST_F(ServiceStateTest, SurprisingTypesSurviveAnUpdate) {
    const auto surprising =
        Json::parse(R"({"volume":"loud","sessions":{"not":"a list"},"voice":[1],"muted":0})");
    write(surprising.dump());
    EXPECT_TRUE(ServiceState::update([](Json& state) { state["speed"] = 2.0; }));
    auto expected = surprising;
    expected["speed"] = 2.0;
    EXPECT_EQ(document(), expected);
}

TEST_F(ServiceStateTest, ADocumentThatCannotBeReadIsNotReplaced) {
    // What stands there isn't a file, so that nothing can be read from it: not even for the
    // superuser.
    ASSERT_EQ(mkfifo(ServiceState::path().c_str(), 0600), 0);
    bool called = false;
    EXPECT_TRUE(ServiceState::update([&](Json&) { called = true; }));
    EXPECT_TRUE(called);
    EXPECT_TRUE(std::filesystem::is_fifo(ServiceState::path()));
}

TEST_F(ServiceStateTest, AFailureToWriteIsDroppedInSilence) {
    const test::LogWatch log;
    write(R"({"voice":"x"})");
    std::filesystem::create_directory(ServiceState::path() + ".tmp");
    EXPECT_TRUE(ServiceState::update([](Json& state) { state["voice"] = "y"; }));
    EXPECT_EQ(ServiceState::read().voice, "x");
    EXPECT_FALSE(isLocked());
    EXPECT_TRUE(log.records().empty());
}

TEST_F(ServiceStateTest, ABusyLockSkipsTheWriteWithAWarning) {
    test::LogWatch log;
    log.expect("state-lock timeout; skipping write");
    ASSERT_TRUE(StateLock::tryAcquire(ServiceState::path()));
    EXPECT_FALSE(
        ServiceState::update([](Json&) { ADD_FAILURE() << "mutated without the lock"; }, 60ms));
    const auto records = log.records("state-lock timeout; skipping write");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0]["level"], 40);
    EXPECT_EQ(records[0]["class"], "ServiceState");
    EXPECT_EQ(records[0]["method"], "update");
    EXPECT_EQ(records[0]["input"], Json({{"path", ServiceState::path()}, {"timeoutMs", 60}}));
    EXPECT_EQ(records[0]["cause"]["name"], "StateLockError");
    EXPECT_EQ(records[0]["cause"]["message"],
              "state-lock: lock timeout (" + ServiceState::path() + ".lock)");
}

TEST_F(ServiceStateTest, AMissingDirectoryTimesOut) {
    test::LogWatch log;
    log.expect("state-lock timeout; skipping write");
    std::filesystem::remove_all(home_.shared());
    EXPECT_FALSE(ServiceState::update([](Json&) {}, 0ms));
}

TEST_F(ServiceStateTest, AFailingMutationReachesTheCallerAndChangesNothing) {
    write(R"({"voice":"x"})");
    const auto failing = [](Json& state) {
        state["voice"] = "y";
        throw std::runtime_error("mutation");
    };
    EXPECT_THROW(ServiceState::update(failing), std::runtime_error);
    EXPECT_EQ(ServiceState::read().voice, "x");
    EXPECT_FALSE(isLocked());
}

TEST_F(ServiceStateTest, AFailureOfAnotherDocumentsLockIsTheMutationsOwn) {
    const auto failing = [](Json&) { throw StateLockError("/other.lock"); };
    EXPECT_THROW(ServiceState::update(failing), StateLockError);
    EXPECT_FALSE(isLocked());
}

TEST_F(ServiceStateTest, ThreadsLoseNoUpdate) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 20; ++i)
                EXPECT_TRUE(ServiceState::update(
                    [&](Json& state) {
                        auto& rows = state["sessions"];
                        rows.push_back({{"id", std::to_string(t) + "-" + std::to_string(i)}});
                    },
                    60s));
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(document().value()["sessions"].size(), 80U);
}

/// Counts up in a document that takes several writes' time to be told apart from half of one.
void updateForEver() {
    for (int i = 0;; ++i)
        ServiceState::update([i](Json& state) {
            state["count"] = i;
            state["filler"] = std::string(static_cast<std::size_t>(50'000 + i % 1000), 'x');
        });
}

TEST_F(ServiceStateTest, AWriterKilledAtAnyMomentLeavesTheDocumentWhole) {
    write(R"({"daemonKey":"kept","count":-1})");
    std::mt19937 random(20261121);
    std::uniform_int_distribution<int> microseconds(0, 12'000);
    for (int round = 0; round < 25; ++round) {
        test::ForkedProcess writer(updateForEver);
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
        writer.killNow();
        const auto left = document();
        ASSERT_TRUE(left) << "round " << round;
        EXPECT_EQ(left->at("daemonKey"), "kept");
        EXPECT_TRUE(ServiceState::update([&](Json& state) { state["rounds"] = round; }));
        EXPECT_EQ(document().value()["rounds"], round);
    }
    // All of those may have died before they came to write. This one doesn't.
    ASSERT_TRUE(ServiceState::update([](Json& state) { state["count"] = -1; }));
    test::ForkedProcess writer(updateForEver);
    EXPECT_TRUE(test::comesTrue([&] { return document().value_or(Json())["count"] > -1; }));
    writer.killNow();
    ASSERT_TRUE(document());
    EXPECT_EQ(document()->at("daemonKey"), "kept");
    EXPECT_TRUE(ServiceState::update([](Json& state) { state["rounds"] = "over"; }));
}

}  // namespace
}  // namespace sonra
