#include "support/LogWatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <set>

#include "frame/Log.h"
#include "platform/SystemLog.h"
#include "support/TempDir.h"

namespace sonra::test {
namespace {

/// Everything that was logged in this process, as parsed records.
class Capture : public SystemLog {
  public:
    void write(Severity /*severity*/, std::string_view /*category*/,
               std::string_view line) override {
        auto record = json::parse(line).value_or(Json{{"msg", std::string(line)}, {"level", 50}});
        const std::lock_guard lock(mutex_);
        records_.push_back(std::move(record));
    }
    std::vector<Json> since(std::size_t start) const {
        const std::lock_guard lock(mutex_);
        return {records_.begin() + static_cast<std::ptrdiff_t>(start), records_.end()};
    }
    std::size_t size() const {
        const std::lock_guard lock(mutex_);
        return records_.size();
    }
    void announce(const std::string& message) {
        const std::lock_guard lock(mutex_);
        announced_.insert(message);
    }
    std::set<std::string> takeAnnounced() {
        const std::lock_guard lock(mutex_);
        return std::exchange(announced_, {});
    }

  private:
    mutable std::mutex mutex_;
    std::vector<Json> records_;
    std::set<std::string> announced_;
};

const std::shared_ptr<Capture>& capture() {
    static const auto instance = std::make_shared<Capture>();
    return instance;
}

/// Fails a test whose code warned without announcement.
class Guard : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*info*/) override {
        start_ = capture()->size();
        capture()->takeAnnounced();
    }
    void OnTestEnd(const testing::TestInfo& /*info*/) override {
        const auto announced = capture()->takeAnnounced();
        for (const auto& record : capture()->since(start_)) {
            if (record.value("level", 0) < 40 || announced.contains(record.value("msg", "")))
                continue;
            ADD_FAILURE() << "unannounced in the log: " << record.dump();
        }
    }
    std::size_t start_ = 0;
};

}  // namespace

LogWatch::LogWatch() : start_(capture()->size()) {}

LogWatch::~LogWatch() {
    for (const auto& message : expected_)
        EXPECT_GE(count(message), 1U) << "never logged: " << message;
}

void LogWatch::expect(const std::string& message) {
    capture()->announce(message);
    expected_.push_back(message);
}

std::vector<Json> LogWatch::records() const {
    return capture()->since(start_);
}

std::vector<Json> LogWatch::records(const std::string& message) const {
    auto all = records();
    std::erase_if(all, [&](const Json& record) { return record.value("msg", "") != message; });
    return all;
}

}  // namespace sonra::test

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // A home of its own, so that no test touches the real one.
    const sonra::test::TempHome home;
    sonra::Log::Options options;
    options.service = "sonra-test";
    options.version = SONRA_VERSION;
    options.systemLog = sonra::test::capture();
    options.level = sonra::LogLevel::trace;
    sonra::Log::setShared(sonra::Log(std::move(options)));
    testing::UnitTest::GetInstance()->listeners().Append(new sonra::test::Guard);
    return RUN_ALL_TESTS();
}
