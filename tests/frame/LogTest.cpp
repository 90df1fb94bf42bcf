#include "frame/Log.h"

#include "frame/FileSink.h"
#include "frame/LogTime.h"
#include "platform/SystemLog.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <regex>
#include <set>
#include <system_error>
#include <vector>

namespace sonra {
namespace {

/// A machine log that keeps what it is given.
class KeptLog : public SystemLog {
  public:
    struct Entry {
        Severity severity;
        std::string category;
        std::string line;
    };

    void write(Severity severity, std::string_view category, std::string_view line) override {
        entries.push_back({severity, std::string(category), std::string(line)});
    }
    void flush() override { ++flushes; }

    std::vector<Entry> entries;
    int flushes = 0;
};

class LogTest : public testing::Test {
  protected:
    Log::Options options() {
        Log::Options result;
        result.service = "sonra-mac";
        result.version = "1.2.3";
        result.host = "desk";
        result.systemLog = kept_;
        return result;
    }
    std::string lastLine() const { return kept_->entries.back().line; }
    Json last() const { return json::parse(lastLine()).value_or(Json()); }
    /// The record of `fields` as `log` writes it.
    Json written(const Log& log, const Json& fields) const {
        log.info("m", fields);
        return last();
    }
    Json written(const Json& fields) { return written(Log(options()), fields); }

    std::shared_ptr<KeptLog> kept_ = std::make_shared<KeptLog>();
};

Json nested(int depth) {
    Json value = 1;
    for (int i = 0; i < depth; ++i) value = Json{{"in", std::move(value)}};
    return value;
}

TEST_F(LogTest, WritesOneJsonObjectWithNumericLevelAndIsoTime) {
    Log(options()).info("state tick", {{"path", "/a/b"}});
    const auto record = last();
    EXPECT_EQ(record["level"], 30);
    EXPECT_EQ(record["msg"], "state tick");
    EXPECT_EQ(record["service"], "sonra-mac");
    EXPECT_EQ(record["version"], "1.2.3");
    EXPECT_EQ(record["env"], "prod");
    EXPECT_EQ(record["host"], "desk");
    const std::regex isoTime(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)");
    EXPECT_TRUE(std::regex_match(record["time"].get<std::string>(), isoTime)) << record["time"];
}

TEST_F(LogTest, SortsItsKeysAndLeavesSlashesAlone) {
    Log(options()).child({{"class", "A"}}).info("x/y", {{"zulu", 1}, {"input", {{"p", "/q"}}}});
    auto line = lastLine();
    EXPECT_EQ(line, json::dump(last()));
    EXPECT_NE(line.find(R"("msg":"x/y")"), std::string::npos);
    EXPECT_EQ(line.find('\n'), std::string::npos);
}

TEST_F(LogTest, TheTimeIsThePresentOne) {
    using namespace std::chrono;
    const auto before = floor<seconds>(system_clock::now());
    std::tm parts{};
    int milliseconds = -1;
    const auto text = logTime();
    ASSERT_NE(strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts), nullptr);
    ASSERT_EQ(std::sscanf(text.c_str() + 19, ".%3dZ", &milliseconds), 1);
    const auto told = system_clock::from_time_t(timegm(&parts));
    EXPECT_GE(told, before);
    EXPECT_LE(told, system_clock::now());
}

TEST_F(LogTest, GivesEachLevelItsNumberAndSeverity) {
    using Severity = SystemLog::Severity;
    auto all = options();
    all.level = LogLevel::trace;
    const Log log(std::move(all));
    log.trace("m");
    log.debug("m");
    log.info("m");
    log.warn("m");
    log.error("m");
    log.fatal("m");
    const std::pair<int, Severity> expected[] = {{10, Severity::debug}, {20, Severity::debug},
                                                 {30, Severity::info},  {40, Severity::notice},
                                                 {50, Severity::error}, {60, Severity::fault}};
    ASSERT_EQ(kept_->entries.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(json::parse(kept_->entries[i].line)->at("level"), expected[i].first);
        EXPECT_EQ(kept_->entries[i].severity, expected[i].second);
    }
}

TEST_F(LogTest, AnEventBelowTheThresholdWritesNothing) {
    const test::TempDir directory;
    auto quiet = options();
    quiet.level = LogLevel::warn;
    quiet.fileSink = std::make_shared<FileSink>(directory / "log", 1000, 1);
    const Log log(std::move(quiet));
    log.info("no");
    log.debug("no");
    log.flush();
    EXPECT_TRUE(kept_->entries.empty());
    EXPECT_FALSE(std::filesystem::exists(directory / "log"));
    log.warn("yes");
    EXPECT_EQ(kept_->entries.size(), 1U);
}

TEST_F(LogTest, RedactsABridgeTokenUnderThreeLevels) {
    const auto record = written({{"a", {{"b", {{"c", {{"bridgeToken", "s3cret"}}}}}}}});
    EXPECT_EQ(record["a"]["b"]["c"]["bridgeToken"], "[redacted]");
    EXPECT_EQ(lastLine().find("s3cret"), std::string::npos);
}

TEST_F(LogTest, RedactsEverySecretKeyExactlyAsItIsSpelled) {
    for (const auto* key : {"token", "bridgeToken", "pairCode", "magicToken", "authorization"}) {
        EXPECT_EQ(written({{key, "s"}})[key], "[redacted]") << key;
        EXPECT_EQ(written({{key, 7}})[key], "[redacted]") << key;
        EXPECT_EQ(written({{key, nullptr}})[key], "[redacted]") << key;
    }
    for (const auto* key : {"Token", "tokens", "Authorization", "paircode"})
        EXPECT_EQ(written({{key, "s"}})[key], "s") << key;
}

TEST_F(LogTest, RedactsInListsUnderTheListsKeyAndInObjectsUnderTheirOwn) {
    const auto record =
        written({{"token", Json::array({"a", Json::array({"b"}), {{"plain", "c"}}})}});
    EXPECT_EQ(record["token"], Json::parse(R"(["[redacted]",["[redacted]"],{"plain":"c"}])"));
}

TEST_F(LogTest, KeepsOnlyTheDomainOfAnEmailAtDepthThree) {
    EXPECT_EQ(written({{"a", {{"b", {{"email", "ada@example.org"}}}}}})["a"]["b"]["email"],
              "***@example.org");
    const std::pair<Json, const char*> rows[] = {{"nobody", "[redacted]"},
                                                 {"@example.org", "[redacted]"},
                                                 {"", "[redacted]"},
                                                 {42, "[redacted]"},
                                                 {"\"a@b\"@example.org", "***@example.org"}};
    for (const auto& [value, expected] : rows)
        EXPECT_EQ(written({{"email", value}})["email"], expected) << value;
}

TEST_F(LogTest, SummarizesTheTextOfANarration) {
    const std::string spoken(50, 'x');
    const auto text = written({{"narration", {{"text", spoken}}}})["narration"]["text"];
    EXPECT_EQ(text,
              Json({{"length", 50}, {"sha256_8", "77cf1206"}, {"head40", std::string(40, 'x')}}));
    EXPECT_EQ(written({{"text", 5}})["text"], 5);
    EXPECT_EQ(written({{"text", {"a", "b"}}})["text"][1]["head40"], "b");
}

TEST_F(LogTest, KeepsTheTextWhenVerbose) {
    auto verbose = options();
    verbose.verbose = true;
    const auto record =
        written(Log(std::move(verbose)), {{"narration", {{"text", "aloud"}}}, {"token", "t"}});
    EXPECT_EQ(record["narration"]["text"], "aloud");
    EXPECT_EQ(record["token"], "[redacted]");
}

TEST_F(LogTest, SummaryCountsCharactersNotBytes) {
    const auto summary = Log::summarizeText("he\u0301llo \U0001F469\u200D\U0001F4BB");
    EXPECT_EQ(summary["length"], 7);
    EXPECT_EQ(summary["head40"], "he\u0301llo \U0001F469\u200D\U0001F4BB");
    EXPECT_EQ(Log::summarizeText("abc")["sha256_8"], "ba7816bf");
    EXPECT_EQ(Log::summarizeText("")["sha256_8"], "e3b0c442");
}

TEST_F(LogTest, AChildMergesItsFieldsAndTheNewOnesWin) {
    const auto parent = Log(options()).child({{"class", "A"}, {"token", "s"}, {"n", 1}});
    const auto record = written(parent.child({{"n", 2}, {"method", "run"}}), {{"method", "stop"}});
    EXPECT_EQ(record["class"], "A");
    EXPECT_EQ(record["n"], 2);
    EXPECT_EQ(record["method"], "stop");
    EXPECT_EQ(record["token"], "[redacted]");
    EXPECT_EQ(written(parent, Json::object())["n"], 1);
}

TEST_F(LogTest, AChildWithClassAloneHasNoModule) {
    const auto log = Log(options()).child({{"class", "IPCServer"}});
    EXPECT_FALSE(written(log, Json::object()).contains("module"));
    EXPECT_EQ(kept_->entries.back().category, "IPCServer");
}

TEST_F(LogTest, TheCategoryIsTheChildsClassOrModule) {
    const Log log(options());
    const auto categoryOf = [&](const Log& child) {
        child.info("m");
        return kept_->entries.back().category;
    };
    EXPECT_EQ(categoryOf(log), "");
    EXPECT_EQ(categoryOf(log.child({{"module", "frame"}})), "frame");
    EXPECT_EQ(categoryOf(log.child({{"module", "frame"}, {"class", "A"}})), "A");
    EXPECT_EQ(categoryOf(log.child({{"class", "A"}}).child({{"method", "m"}})), "A");
}

TEST_F(LogTest, FieldsCannotTakeTheFixedKeys) {
    const auto log = Log(options()).child({{"service", "other"}, {"level", "x"}});
    const auto record =
        written(log, {{"time", 1}, {"level", 99}, {"msg", "y"}, {"host", 2}, {"a", 3}});
    EXPECT_EQ(record["service"], "sonra-mac");
    EXPECT_EQ(record["level"], 30);
    EXPECT_EQ(record["msg"], "m");
    EXPECT_EQ(record["host"], "desk");
    EXPECT_TRUE(record["time"].is_string());
    EXPECT_EQ(record["a"], 3);
}

TEST_F(LogTest, CarriesTheCauseOfAnError) {
    const std::system_error cause(ENOENT, std::generic_category(), "open");
    Log(options()).error("failed", cause, {{"path", "/x"}});
    const auto record = last();
    EXPECT_EQ(record["cause"]["name"], "system_error");
    EXPECT_EQ(record["cause"]["message"], cause.what());
    EXPECT_EQ(record["cause"]["domain"], "generic");
    EXPECT_EQ(record["cause"]["code"], ENOENT);
    EXPECT_EQ(record["path"], "/x");
    Log(options()).warn("busy", std::runtime_error("why"));
    EXPECT_EQ(last()["cause"]["message"], "why");
    EXPECT_EQ(last()["cause"]["name"], "runtime_error");
}

TEST_F(LogTest, WithoutAnErrorAFieldNamedCauseIsRemoved) {
    const auto log = Log(options()).child({{"cause", "base"}});
    EXPECT_FALSE(written(log, {{"cause", "extra"}}).contains("cause"));
    log.error("failed", Json{{"cause", "extra"}});
    EXPECT_FALSE(last().contains("cause"));
}

TEST_F(LogTest, WhatCannotBeWrittenLeavesAFixedRecord) {
    const std::string fixed = R"({"level":50,"service":"sonra-mac","msg":"log encode failed"})";
    const Json rows[] = {{{"n", std::numeric_limits<double>::quiet_NaN()}},
                         {{"n", {{"deep", -std::numeric_limits<double>::infinity()}}}},
                         {{"n", Json::binary({1, 2})}},
                         {{"n", nested(600)}}};
    for (const auto& row : rows) {
        Log(options()).info("m", row);
        EXPECT_EQ(lastLine(), fixed);
    }
    const auto child = Log(options()).child({{"n", std::numeric_limits<double>::infinity()}});
    child.info("m");
    EXPECT_EQ(lastLine(), fixed);
    EXPECT_EQ(written(child, {{"n", 1}})["n"], 1);
}

TEST_F(LogTest, WritesEveryKindOfValueAsItIs) {
    const Json fields = {{"null", nullptr},
                         {"true", true},
                         {"int", -7},
                         {"big", std::numeric_limits<std::uint64_t>::max()},
                         {"whole", 1.0},
                         {"half", 0.5},
                         {"tiny", 1e-300},
                         {"huge", 1e300},
                         {"list", Json::array({1, "a", Json::array(), Json::object()})},
                         {"quote\"key", "\"\\/\b\f\n\r\t\x01\x1f\x7f"},
                         {"unicode", "\u00fc \u2028 \U0001F600"}};
    const auto record = written(fields);
    for (const auto& [key, value] : fields.items()) EXPECT_EQ(record.at(key), value) << key;
    EXPECT_NE(lastLine().find(R"("whole":1.0)"), std::string::npos);
    EXPECT_NE(lastLine().find(R"(\u0001\u001f)"), std::string::npos);
}

TEST_F(LogTest, ReplacesBytesThatAreNotUtf8) {
    const auto record = written({{"bytes", "a\xff\"b"}});
    EXPECT_EQ(record["bytes"], "a\ufffd\"b");
}

TEST_F(LogTest, ExtraThatIsNoObjectHasNoFields) {
    EXPECT_EQ(written(Json(5))["msg"], "m");
    EXPECT_EQ(written(Json::array({1, 2}))["msg"], "m");
}

TEST_F(LogTest, UsesTheMachinesNameWhenNoneIsGiven) {
    auto nameless = options();
    nameless.host.clear();
    char name[256] = {};
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
    EXPECT_EQ(written(Log(std::move(nameless)), Json::object())["host"], name);
}

TEST_F(LogTest, AUlidHas26CharactersOfTheAlphabet) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const auto id = Log::newRequestId();
        ASSERT_EQ(id.size(), 26U);
        ASSERT_EQ(id.find_first_not_of("0123456789ABCDEFGHJKMNPQRSTVWXYZ"), std::string::npos)
            << id;
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), 1000U);
}

TEST_F(LogTest, AUlidBeginsWithTheTime) {
    using namespace std::chrono;
    const auto present = [] {
        return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    };
    const std::string alphabet = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";
    const auto before = present();
    const auto id = Log::newRequestId();
    std::int64_t time = 0;
    for (const char c : id.substr(0, 10))
        time = time * 32 + static_cast<std::int64_t>(alphabet.find(c));
    EXPECT_GE(time, before);
    EXPECT_LE(time, present());
}

TEST_F(LogTest, ReadsItsLevelFromTheEnvironment) {
    const std::pair<const char*, LogLevel> rows[] = {
        {"trace", LogLevel::trace}, {"debug", LogLevel::debug},  {"info", LogLevel::info},
        {"warn", LogLevel::warn},   {"error", LogLevel::error},  {"fatal", LogLevel::fatal},
        {"WARN", LogLevel::info},   {"warning", LogLevel::info}, {"", LogLevel::info}};
    for (const auto& [label, level] : rows) {
        const test::ScopedEnv env("TTS_LOG_LEVEL", label);
        EXPECT_EQ(Log::sharedOptions().level, level) << label;
    }
}

TEST_F(LogTest, SharedOptionsFollowTheEnvironment) {
    const test::ScopedEnv verbose("TTS_LOG_VERBOSE", "1");
    const test::ScopedEnv env("SONRA_ENV", "dev");
    const auto told = Log::sharedOptions(kept_);
    EXPECT_TRUE(told.verbose);
    EXPECT_EQ(told.env, "dev");
    EXPECT_EQ(told.service, "sonra-mac");
    EXPECT_EQ(told.version, SONRA_VERSION);
    EXPECT_EQ(told.systemLog, kept_);
    const test::ScopedEnv other("TTS_LOG_VERBOSE", "true");
    const test::ScopedEnv none("SONRA_ENV", "");
    EXPECT_FALSE(Log::sharedOptions().verbose);
    EXPECT_EQ(Log::sharedOptions().env, "prod");
}

TEST_F(LogTest, WritesTheFileAndTheMachinesLogAlike) {
    const test::TempDir directory;
    auto both = options();
    both.fileSink = std::make_shared<FileSink>(directory / "log", 100'000, 1);
    const Log log(std::move(both));
    log.info("one");
    log.flush();
    EXPECT_EQ(test::readFile(directory / "log"), lastLine() + "\n");
    EXPECT_EQ(kept_->flushes, 1);
}

TEST_F(LogTest, WorksWithoutAnySink) {
    Log::Options bare;
    bare.service = "s";
    const Log log(std::move(bare));
    log.fatal("nobody hears");
    log.flush();
    SUCCEED();
}

}  // namespace
}  // namespace sonra
