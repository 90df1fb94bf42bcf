#include "history/ChainProvider.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

class FakeProvider : public MessageChunkProvider {
  public:
    std::optional<std::vector<AudioChunk>> cachedChunks(const std::string&) const override {
        return cached;
    }
    void resolveChunks(Request request) override {
        ++resolved;
        request.onDone();
    }
    std::optional<std::vector<AudioChunk>> cached;
    int resolved = 0;
};

std::vector<AudioChunk> chunks(const std::string& url) {
    AudioChunk chunk;
    chunk.url = url;
    return {chunk};
}

class ChainProviderTest : public testing::Test {
  protected:
    void resolve(MessageChunkProvider& chain) {
        chain.resolveChunks({.ref = {"m", "s", MessageRef::LiveTail{}},
                             .generation = 1,
                             .isCurrent = [](int) { return true; },
                             .onChunk = [](const AudioChunk&) {},
                             .onDone = [this] { ++done_; }});
    }
    const std::shared_ptr<FakeProvider> first_ = std::make_shared<FakeProvider>();
    const std::shared_ptr<FakeProvider> last_ = std::make_shared<FakeProvider>();
    ChainProvider chain_{{first_, last_}};
    int done_ = 0;
};

TEST_F(ChainProviderTest, AnswersWithTheFirstThatHasChunks) {
    last_->cached = chunks("last");
    EXPECT_EQ(chain_.cachedChunks("m")->front().url, "last");
    first_->cached = chunks("first");
    EXPECT_EQ(chain_.cachedChunks("m")->front().url, "first");
}

TEST_F(ChainProviderTest, CountsAnEmptyArrayAsAnAnswer) {
    first_->cached = std::vector<AudioChunk>();
    last_->cached = chunks("last");
    EXPECT_TRUE(chain_.cachedChunks("m")->empty());
    resolve(chain_);
    EXPECT_EQ(first_->resolved, 1);
    EXPECT_EQ(last_->resolved, 0);
}

TEST_F(ChainProviderTest, LeavesToTheLastWhatNobodyHas) {
    EXPECT_FALSE(chain_.cachedChunks("m"));
    resolve(chain_);
    EXPECT_EQ(first_->resolved, 0);
    EXPECT_EQ(last_->resolved, 1);
    EXPECT_EQ(done_, 1);
}

TEST_F(ChainProviderTest, CallsNothingWithoutProviders) {
    ChainProvider empty({});
    resolve(empty);
    EXPECT_FALSE(empty.cachedChunks("m"));
    EXPECT_EQ(done_, 0);
}

}  // namespace
}  // namespace sonra
