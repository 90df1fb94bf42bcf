#include "linux/JournalLog.h"

#include "support/TempDir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace sonra {
namespace {

using namespace std::chrono_literals;
using Severity = SystemLog::Severity;
using Entry = std::vector<std::string>;

/// Keeps the entries that are sent; may be made to wait, as a busy journal does.
class KeptEntries {
  public:
    JournalLog::Send send() {
        return [this](const iovec* fields, int count) {
            if (gate.valid()) gate.wait();
            Entry entry;
            for (int i = 0; i < count; ++i)
                entry.emplace_back(static_cast<const char*>(fields[i].iov_base), fields[i].iov_len);
            const std::lock_guard lock(mutex_);
            entries_.push_back(std::move(entry));
            return 0;
        };
    }
    std::vector<Entry> all() {
        const std::lock_guard lock(mutex_);
        return entries_;
    }
    std::shared_future<void> gate;

  private:
    std::mutex mutex_;
    std::vector<Entry> entries_;
};

class JournalLogTest : public testing::Test {
  protected:
    JournalLogTest() { test::writeFile(socket_, ""); }
    /// What was sent before an entry that begins with `last`, waiting for that.
    std::vector<Entry> entriesBefore(const std::string& last) {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (std::chrono::steady_clock::now() < deadline) {
            auto entries = kept_.all();
            const auto end = std::ranges::find_if(
                entries, [&](const Entry& entry) { return entry[0].ends_with(last); });
            if (end != entries.end()) return {entries.begin(), end + 1};
            std::this_thread::sleep_for(1ms);
        }
        ADD_FAILURE() << "never sent: " << last;
        return {};
    }
    std::vector<Entry> entriesOf(JournalLog& log) {
        log.write(Severity::debug, "", "end");
        auto entries = entriesBefore("=end");
        if (!entries.empty()) entries.pop_back();
        return entries;
    }

    test::TempDir directory_;
    std::string socket_ = directory_ / "socket";
    KeptEntries kept_;
};

TEST_F(JournalLogTest, SendsTheRecordWithItsPriorityAndItsSource) {
    JournalLog log(socket_, kept_.send());
    EXPECT_TRUE(log.isAvailable());
    log.write(Severity::info, "IPCServer", R"({"msg":"hi"})");
    const Entry expected = {R"(MESSAGE={"msg":"hi"})", "PRIORITY=6", "SYSLOG_IDENTIFIER=sonra",
                            "SONRA_SUBSYSTEM=dev.sonra", "SONRA_CATEGORY=IPCServer"};
    EXPECT_EQ(entriesOf(log), std::vector<Entry>{expected});
}

TEST_F(JournalLogTest, MapsEachSeverityToAPriority) {
    const std::pair<Severity, const char*> rows[] = {{Severity::debug, "PRIORITY=7"},
                                                     {Severity::info, "PRIORITY=6"},
                                                     {Severity::notice, "PRIORITY=5"},
                                                     {Severity::error, "PRIORITY=3"},
                                                     {Severity::fault, "PRIORITY=2"}};
    JournalLog log(socket_, kept_.send());
    for (const auto& [severity, priority] : rows) log.write(severity, "c", "m");
    const auto entries = entriesOf(log);
    ASSERT_EQ(entries.size(), std::size(rows));
    for (std::size_t i = 0; i < entries.size(); ++i) EXPECT_EQ(entries[i][1], rows[i].second);
}

TEST_F(JournalLogTest, LeavesTheCategoryOutWhereThereIsNone) {
    JournalLog log(socket_, kept_.send());
    log.write(Severity::info, "", "m");
    const auto entries = entriesOf(log);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].size(), 4U);
}

TEST_F(JournalLogTest, KeepsEntriesApartWhateverIsInThem) {
    JournalLog log(socket_, kept_.send());
    log.write(Severity::info, "a\nb", "one\ntwo");
    log.write(Severity::info, "", "");
    log.write(Severity::error, "", "three");
    const auto entries = entriesOf(log);
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0][0], "MESSAGE=one two");
    EXPECT_EQ(entries[0][4], "SONRA_CATEGORY=a b");
    EXPECT_EQ(entries[1][0], "MESSAGE=");
    EXPECT_EQ(entries[2][0], "MESSAGE=three");
}

TEST_F(JournalLogTest, IsSkippedInSilenceWhereThereIsNoJournal) {
    JournalLog log(directory_ / "missing", kept_.send());
    EXPECT_FALSE(log.isAvailable());
    log.write(Severity::fault, "c", "m");
    log.flush();
    EXPECT_TRUE(kept_.all().empty());
}

TEST_F(JournalLogTest, ABusyJournalNeverHoldsTheCallerAndLearnsWhatItMissed) {
    std::promise<void> moves;
    kept_.gate = moves.get_future().share();
    JournalLog log(socket_, kept_.send());
    constexpr std::size_t sent = 10'000;
    for (std::size_t i = 0; i < sent; ++i) log.write(Severity::info, "c", std::string(1000, 'x'));
    log.flush();
    EXPECT_TRUE(kept_.all().empty());
    moves.set_value();
    const auto entries = entriesBefore(" log records dropped");
    ASSERT_FALSE(entries.empty());
    const auto dropped = std::stoul(entries.back()[0].substr(sizeof "MESSAGE=" - 1));
    EXPECT_EQ(entries.size() - 1 + dropped, sent);
}

TEST_F(JournalLogTest, AFlushSeesWhatWasWrittenBefore) {
    JournalLog log(socket_, kept_.send());
    log.write(Severity::fault, "c", "last words");
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    // Where the machine is too busy for the flush's limit, another one comes to its end.
    do {
        log.flush();
    } while (kept_.all().empty() && std::chrono::steady_clock::now() < deadline);
    EXPECT_EQ(kept_.all().size(), 1U);
}

/// Mounts an empty directory over /run, for this process alone, and listens where the journal
/// would.
int listenAsJournal() {
    if (unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0) return -1;
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return -1;
    if (mount("none", "/run", "tmpfs", 0, nullptr) != 0) return -1;
    std::filesystem::create_directories("/run/systemd/journal");
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "/run/systemd/journal/socket"};
    const timeval limit{20, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
}

/// Ends the process with status 0 if a record arrives in the journal's own form.
[[noreturn]] void speakAndListen() {
    const int journal = listenAsJournal();
    if (journal < 0) std::perror("no private journal");
    JournalLog log;
    log.write(Severity::notice, "IPCServer", "through the library");
    std::array<char, 4096> buffer{};
    const auto size = recv(journal, buffer.data(), buffer.size(), 0);
    const std::string datagram(buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    for (const auto* field :
         {"MESSAGE=through the library\n", "PRIORITY=5\n", "SYSLOG_IDENTIFIER=sonra\n",
          "SONRA_SUBSYSTEM=dev.sonra\n", "SONRA_CATEGORY=IPCServer\n"})
        if (datagram.find(field) == std::string::npos) {
            std::fprintf(stderr, "no %s in: %s", field, datagram.c_str());
            ::_exit(1);
        }
    ::_exit(0);
}

TEST(JournalLogDeathTest, SpeaksToTheMachinesJournal) {
    // Started anew, because a process must have one thread to leave its user namespace.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(speakAndListen(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace sonra
