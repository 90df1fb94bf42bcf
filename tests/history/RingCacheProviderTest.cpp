#include "history/RingCacheProvider.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "HistoryFixture.h"

namespace sonra::test {
namespace {

namespace fs = std::filesystem;

constexpr auto copyFailed = "ring copy failed; message will be cold on replay";
constexpr std::size_t large = 5UL << 20;

/// No file of this process grows past so many bytes for a scope, as on a disk that is full.
class FullDisk {
  public:
    explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

  private:
    void (*handler_)(int);
    rlimit before_{};
};

class RingCacheProviderTest : public HistoryTest {
  protected:
    RingCacheProvider& ring(int maxMessages = 20, std::int64_t maxBytes = 1000) {
        ring_ = std::make_unique<RingCacheProvider>(
            loop_, RingCacheProvider::Config{maxMessages, maxBytes, ringDir()});
        ring_->directory()->drain();
        return *ring_;
    }
    AudioChunk store(const std::string& id, std::size_t bytes = 10) {
        return ring_->store(id, chunk(id, "s", bytes)).value_or(AudioChunk());
    }
    std::vector<std::string> names() const {
        ring_->directory()->drain();
        return ringNames();
    }
    MessageChunkProvider::Request request(const std::string& id) {
        return {.ref = {id, "s", MessageRef::LiveTail{}},
                .generation = 1,
                .isCurrent = [this](int generation) { return generation == generation_; },
                .onChunk = [this](const AudioChunk& chunk) { emitted_.push_back(chunk); },
                .onDone = [this] { ++done_; }};
    }

    std::unique_ptr<RingCacheProvider> ring_;
    int generation_ = 1;
    std::vector<AudioChunk> emitted_;
    int done_ = 0;
};

TEST_F(RingCacheProviderTest, StoreReturnsADurableChunkInTheRing) {
    ring();
    const auto original = chunk("m");
    const auto content = readFile(original.url);
    const auto durable = *ring_->store("m", original);
    EXPECT_FALSE(durable.ephemeral);
    EXPECT_EQ(durable.url, ringDir() + "/m/1.wav");
    EXPECT_EQ(durable.text, original.text);
    fs::remove(original.url);
    EXPECT_EQ(readFile(durable.url), content);
}

TEST_F(RingCacheProviderTest, CopiesWhatIsNotTheQueuesOwn) {
    ring();
    auto original = chunk("m");
    original.ephemeral = false;
    const auto durable = *ring_->store("m", original);
    const auto before = readFile(durable.url);
    appendFile(original.url, "changed later");
    EXPECT_EQ(readFile(durable.url), before);
}

TEST_F(RingCacheProviderTest, CachedChunksHitAndTotalBytesCountAfterAStore) {
    ring();
    const auto durable = store("m", 70);
    EXPECT_EQ(ring_->cachedChunks("m"), std::vector{durable});
    EXPECT_EQ(ring_->totalBytes(), 70);
    EXPECT_FALSE(ring_->cachedChunks("other"));
}

TEST_F(RingCacheProviderTest, ASecondStoreOfAnIdCoalesces) {
    ring();
    store("m");
    store("other");
    store("m");
    EXPECT_EQ(ring_->messageIdOrder(), (std::deque<std::string>{"other", "m"}));
    EXPECT_EQ(ring_->cachedChunks("m")->size(), 2U);
    EXPECT_EQ(ring_->totalBytes(), 30);
}

TEST_F(RingCacheProviderTest, OfFiveMessagesThreeStayInARingOfThree) {
    ring(3);
    for (const auto& id : ids(5)) store(id);
    EXPECT_EQ(ring_->messageIdOrder(), (std::deque<std::string>{"m2", "m3", "m4"}));
    EXPECT_FALSE(ring_->cachedChunks("m0"));
    EXPECT_FALSE(ring_->cachedChunks("m1"));
    EXPECT_EQ(names(), (std::vector<std::string>{"m2", "m3", "m4"}));
    EXPECT_EQ(ringFiles().size(), 3U);
    EXPECT_EQ(ring_->totalBytes(), 30);
}

TEST_F(RingCacheProviderTest, LogsEvictions) {
    const LogWatch log;
    ring(1);
    store("a-long-message-id");
    store("m");
    const auto records = log.records("evicted message from hot ring");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0]["input"]["messageId"], "a-long-m");
    EXPECT_EQ(records[0]["result"]["remaining"], 1);
}

TEST_F(RingCacheProviderTest, BytesEvictTheOldestAndKeepTheNewest) {
    ring(20, 100);
    store("a", 60);
    store("b", 40);
    store("c", 10);
    EXPECT_EQ(ring_->messageIdOrder(), (std::deque<std::string>{"b", "c"}));
    store("b", 60);
    EXPECT_EQ(ring_->messageIdOrder(), (std::deque<std::string>{"b"}));
}

TEST_F(RingCacheProviderTest, KeepsALoneMessageLargerThanTheCap) {
    ring(0, 100);
    const auto durable = store("m", 500);
    store("m", 500);
    EXPECT_EQ(ring_->cachedChunks("m")->size(), 2U);
    EXPECT_EQ(readFile(durable.url).size(), 500U);
}

TEST_F(RingCacheProviderTest, AsksTheGivenSizer) {
    RingCacheProvider ring(loop_, {20, 100, ringDir()}, [](const std::string&) { return 60; });
    ring.store("a", chunk("a"));
    EXPECT_EQ(ring.totalBytes(), 60);
    ring.store("b", chunk("b"));
    EXPECT_EQ(ring.totalBytes(), 60);
    EXPECT_EQ(RingCacheProvider::defaultFileSizer(directory_ / "missing"), 0);
}

TEST_F(RingCacheProviderTest, ResolveReplaysTheChunksAndIsDone) {
    ring();
    const std::vector stored{store("m"), store("m")};
    ring_->resolveChunks(request("m"));
    EXPECT_EQ(emitted_, stored);
    EXPECT_EQ(done_, 1);
}

TEST_F(RingCacheProviderTest, ASupersededResolveEmitsNothing) {
    ring();
    store("m");
    generation_ = 2;
    ring_->resolveChunks(request("m"));
    EXPECT_TRUE(emitted_.empty());
    EXPECT_EQ(done_, 0);
}

TEST_F(RingCacheProviderTest, AResolveSupersededInTheMiddleStops) {
    ring();
    store("m");
    store("m");
    auto between = request("m");
    between.onChunk = [this](const AudioChunk& chunk) {
        emitted_.push_back(chunk);
        generation_ = 2;
    };
    ring_->resolveChunks(between);
    EXPECT_EQ(emitted_.size(), 1U);
    EXPECT_EQ(done_, 0);
}

TEST_F(RingCacheProviderTest, AColdResolveIsDoneWithoutChunks) {
    ring().resolveChunks(request("m"));
    EXPECT_TRUE(emitted_.empty());
    EXPECT_EQ(done_, 1);
}

TEST_F(RingCacheProviderTest, ClearAllEmptiesEverything) {
    ring();
    store("a");
    store("b");
    ring_->clearAll();
    EXPECT_TRUE(ring_->messageIdOrder().empty());
    EXPECT_EQ(ring_->totalBytes(), 0);
    EXPECT_FALSE(ring_->cachedChunks("a"));
    EXPECT_TRUE(names().empty());
    EXPECT_TRUE(ringFiles().empty());
}

TEST_F(RingCacheProviderTest, AStoreRightAfterAClearingSurvivesIt) {
    ring();
    for (int round = 0; round < 50; ++round) {
        store("m");
        ring_->clearAll();
        const auto durable = store("m");
        EXPECT_EQ(durable.url, ringDir() + "/m/1.wav");
        ring_->directory()->drain();
        EXPECT_EQ(readFile(durable.url).size(), 10U);
        EXPECT_EQ(ringFiles().size(), 1U);
        ring_->clearAll();
    }
}

TEST_F(RingCacheProviderTest, LeftoversGoAtTheStart) {
    fs::create_directories(ringDir() + "/old/deeper");
    writeFile(ringDir() + "/old/1.wav", "old");
    writeFile(ringDir() + "/stray", "old");
    fs::create_directories(ringDir() + "/.discarded-0-1");
    ring();
    EXPECT_TRUE(names().empty());
    EXPECT_TRUE(fs::is_empty(ringDir()));
    EXPECT_FALSE(ring_->cachedChunks("old"));
}

TEST_F(RingCacheProviderTest, AStoreAtOnceIsNotTakenForALeftover) {
    for (const auto& id : ids(40)) {
        fs::create_directories(ringDir() + "/" + id);
        writeFile(ringDir() + "/" + id + "/7.wav", "old");
    }
    RingCacheProvider ring(loop_, {40, 100000, ringDir()});
    std::vector<AudioChunk> durable;
    for (const auto& id : ids(40)) durable.push_back(*ring.store(id, chunk(id)));
    ring.directory()->drain();
    for (const auto& each : durable) EXPECT_EQ(readFile(each.url).size(), 10U);
    EXPECT_EQ(ringFiles().size(), 40U);
}

TEST_F(RingCacheProviderTest, RemovesLinksAndNotWhatTheyLeadTo) {
    const auto elsewhere = directory_ / "elsewhere";
    fs::create_directories(elsewhere);
    writeFile(elsewhere + "/1.wav", "somebody's");
    fs::create_directories(ringDir());
    fs::create_directory_symlink(elsewhere, ringDir() + "/m");
    ring();
    EXPECT_TRUE(names().empty());
    // Planted while the ring is in use.
    fs::create_directory_symlink(elsewhere, ringDir() + "/m");
    EXPECT_EQ(readFile(store("m").url).size(), 10U);
    ring_->clearAll();
    EXPECT_TRUE(names().empty());
    EXPECT_EQ(readFile(elsewhere + "/1.wav"), "somebody's");
}

TEST_F(RingCacheProviderTest, InALinkedRingOnlyItsOwnFilesGo) {
    const auto elsewhere = directory_ / "elsewhere";
    fs::create_directories(elsewhere + "/music");
    writeFile(elsewhere + "/music/1.wav", "somebody's");
    fs::create_directory_symlink(elsewhere, ringDir());
    ring(1);
    store("a");
    store("b");
    EXPECT_EQ(names(), (std::vector<std::string>{"b", "music"}));
    ring_->clearAll();
    EXPECT_EQ(names(), (std::vector<std::string>{"music"}));
    EXPECT_EQ(readFile(elsewhere + "/music/1.wav"), "somebody's");
}

TEST_F(RingCacheProviderTest, ASlashInAnIdMapsToOneLevel) {
    ring();
    EXPECT_EQ(store("a/b/c").url, ringDir() + "/a_b_c/1.wav");
    EXPECT_TRUE(ring_->cachedChunks("a/b/c"));
}

TEST_F(RingCacheProviderTest, IdsThatShareADirectoryKeepTheirFiles) {
    ring(1);
    store("a/b");
    const auto kept = store("a_b");
    EXPECT_EQ(ring_->messageIdOrder(), (std::deque<std::string>{"a_b"}));
    EXPECT_EQ(names(), (std::vector<std::string>{"a_b"}));
    EXPECT_EQ(ringFiles(), (std::vector<std::string>{kept.url}));
}

class RingIds : public RingCacheProviderTest, public testing::WithParamInterface<std::string> {};

TEST_P(RingIds, StayInsideTheRing) {
    ring();
    writeFile(directory_ / "beside", "somebody's");
    const auto durable = store(GetParam());
    EXPECT_EQ(readFile(durable.url).size(), 10U);
    const fs::path path(durable.url);
    EXPECT_EQ(fs::canonical(path).parent_path().parent_path(), fs::canonical(ringDir()));
    EXPECT_TRUE(ring_->cachedChunks(GetParam()));
    ring_->clearAll();
    EXPECT_TRUE(names().empty());
    EXPECT_TRUE(fs::is_directory(ringDir()));
    EXPECT_EQ(readFile(directory_ / "beside"), "somebody's");
}

INSTANTIATE_TEST_SUITE_P(RingCacheProvider, RingIds,
                         testing::Values(".", "..", "", "/", "../../beside", "with some spaces",
                                         std::string(300, 'x'), "line\nfeed", ".discarded-1-1",
                                         ".hidden", "ünïcode", "-rf"));

/// Each is thrown out by the next, and takes nobody else along.
TEST_F(RingCacheProviderTest, NastyIdsInARingOfOneLeaveOnlyTheLast) {
    ring(1);
    writeFile(directory_ / "beside", "somebody's");
    for (const auto* id : {".", "..", "a/b", "a_b", "../beside", " ", "\x01\n", "🙂", "plain"}) {
        const auto durable = store(id);
        EXPECT_EQ(names().size(), 1U) << id;
        EXPECT_EQ(ringFiles(), std::vector{durable.url}) << id;
    }
    EXPECT_EQ(readFile(directory_ / "beside"), "somebody's");
}

TEST_F(RingCacheProviderTest, ARingThatCannotBeWrittenLeavesMessagesCold) {
    LogWatch log;
    log.expect(copyFailed);
    writeFile(ringDir(), "a file in the way");
    ring();
    EXPECT_FALSE(ring_->store("a-long-message-id", chunk("m")));
    EXPECT_FALSE(ring_->cachedChunks("a-long-message-id"));
    EXPECT_TRUE(ring_->messageIdOrder().empty());
    EXPECT_EQ(ring_->totalBytes(), 0);
    ring_->clearAll();
    ring_->directory()->drain();
    EXPECT_EQ(readFile(ringDir()), "a file in the way");
    EXPECT_EQ(log.records(copyFailed)[0]["input"]["messageId"], "a-long-m");
}

TEST_F(RingCacheProviderTest, AFullDiskLeavesTheMessageCold) {
    LogWatch log;
    log.expect(copyFailed);
    ring(20, 1 << 30);
    auto original = chunk("m", "s", 1 << 20);
    original.ephemeral = false;
    const FullDisk full(100'000);
    EXPECT_FALSE(ring_->store("m", original));
    EXPECT_FALSE(ring_->cachedChunks("m"));
    EXPECT_EQ(ring_->totalBytes(), 0);
    EXPECT_TRUE(names().empty());
}

TEST_F(RingCacheProviderTest, ADiskThatIsFullForALargeFileLeavesItColdLater) {
    LogWatch log;
    log.expect(copyFailed);
    ring(20, 1 << 30);
    store("other");
    auto original = chunk("m", "s", large);
    original.ephemeral = false;
    const FullDisk full(100'000);
    EXPECT_TRUE(ring_->store("m", original));
    ring_->directory()->drain();
    loop_.runPosted();
    EXPECT_FALSE(ring_->cachedChunks("m"));
    EXPECT_EQ(ring_->messageIdOrder(), (std::deque<std::string>{"other"}));
    EXPECT_EQ(ring_->totalBytes(), 10);
    EXPECT_EQ(names(), (std::vector<std::string>{"other"}));
}

TEST_F(RingCacheProviderTest, AMissingOriginalLeavesNothingBehind) {
    LogWatch log;
    log.expect(copyFailed);
    ring();
    auto missing = chunk("m");
    fs::remove(missing.url);
    EXPECT_FALSE(ring_->store("m", missing));
    EXPECT_TRUE(names().empty());
    auto folder = chunk("m");
    folder.url = directory_.path();
    EXPECT_FALSE(ring_->store("m", folder));
    ASSERT_EQ(mkfifo((directory_ / "pipe").c_str(), 0600), 0);
    folder.url = directory_ / "pipe";
    EXPECT_FALSE(ring_->store("m", folder));
    EXPECT_TRUE(names().empty());
}

TEST_F(RingCacheProviderTest, ARingDirectoryThatWentComesBack) {
    ring();
    store("a");
    fs::remove_all(ringDir());
    EXPECT_EQ(readFile(store("a").url).size(), 10U);
    EXPECT_EQ(readFile(store("b").url).size(), 10U);
}

TEST_F(RingCacheProviderTest, ALargeFileIsThereAtOnceAndStays) {
    ring(20, 1 << 30);
    auto original = chunk("m", "s", large);
    original.ephemeral = false;
    const auto content = readFile(original.url);
    const auto durable = *ring_->store("m", original);
    fs::remove(original.url);
    EXPECT_EQ(ring_->totalBytes(), static_cast<std::int64_t>(large));
    EXPECT_EQ(readFile(durable.url), content);
    ring_->directory()->drain();
    EXPECT_FALSE(fs::is_symlink(durable.url));
    EXPECT_EQ(readFile(durable.url), content);
    EXPECT_EQ(ringFiles(), (std::vector<std::string>{durable.url}));
}

TEST_F(RingCacheProviderTest, ALargeFileClearedWhileItIsCopiedLeavesNothing) {
    ring(20, 1 << 30);
    auto original = chunk("m", "s", large);
    original.ephemeral = false;
    for (int round = 0; round < 5; ++round) {
        ring_->store("m", original);
        ring_->clearAll();
        const auto small = store("m");
        ring_->directory()->drain();
        EXPECT_EQ(readFile(small.url).size(), 10U);
        EXPECT_EQ(ringFiles().size(), 1U);
        ring_->clearAll();
    }
    EXPECT_TRUE(names().empty());
}

}  // namespace
}  // namespace sonra::test
