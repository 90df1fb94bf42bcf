#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "frame/WorkerPool.h"
#include "search/SessionIndex.h"
#include "support/ComesTrue.h"
#include "support/FakeTreeWatcher.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra::test {

/// A projects directory, a cache and an index of it.
class IndexTest : public testing::Test {
  protected:
    IndexTest() { std::filesystem::create_directories(root_ + "/p"); }
    ~IndexTest() override {
        index_.reset();
        pool_.drain();
    }

    std::string addSession(const std::string& name, const std::string& prompt = "hello") {
        auto path = root_ + "/" + name;
        writeFile(path, R"({"type":"user","cwd":"/src/tts","message":{"role":"user","content":")" +
                            prompt + "\"}}\n");
        return path;
    }
    std::unique_ptr<SessionIndex> makeIndex() {
        return std::make_unique<SessionIndex>(loop_, pool_, watcher_,
                                              SessionIndexStore(dir_ / "cache"));
    }
    /// Starts a reconcile and waits for its completion.
    void reconcile() {
        auto done = std::make_shared<std::promise<void>>();
        index_->reconcile(root_, [done] { done->set_value(); });
        ASSERT_EQ(done->get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    }
    /// Starts watching and waits until the index has looked at what was there before.
    void watch() {
        const auto seed = addSession("p/seed.jsonl");
        index_->startWatching(root_);
        ASSERT_TRUE(comesTrue([&] { return index_->lookup("seed").has_value(); }));
        pool_.drain();
    }
    std::vector<std::string> paths() const {
        std::vector<std::string> all;
        for (const auto& meta : index_->snapshot()) all.push_back(meta.jsonlPath);
        std::ranges::sort(all);
        return all;
    }

    TempDir dir_;
    const std::string root_ = SessionIndex::canonicalize(dir_.path()) + "/projects";
    ManualLoop loop_;
    WorkerPool pool_;
    FakeTreeWatcher watcher_;
    std::unique_ptr<SessionIndex> index_ = makeIndex();
};

}  // namespace sonra::test
