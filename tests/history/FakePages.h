#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "frame/Semaphore.h"
#include "history/HistoryPages.h"

namespace sonra::test {

/// A transcript in memory whose reading the test holds up. Shared by the test and the reading
/// thread.
class FakeTranscript : public std::enable_shared_from_this<FakeTranscript> {
  public:
    /// `ids` has the oldest first.
    explicit FakeTranscript(std::vector<std::string> ids) : ids_(std::move(ids)) {}

    /// From now on each page has to be let through.
    void hold() { held_ = true; }
    void letThrough(int pages = 1) {
        for (int i = 0; i < pages; ++i) gate_.signal();
    }
    void release() {
        held_ = false;
        letThrough();
    }
    void append(const std::string& id) {
        const std::lock_guard lock(mutex_);
        ids_.push_back(id);
    }
    /// Pages that were begun.
    [[nodiscard]] int reads() const { return reads_; }
    /// Waits until so many pages were begun: the ones before are then where they were wanted.
    [[nodiscard]] bool awaitReads(int count) {
        std::unique_lock lock(mutex_);
        return begun_.wait_for(lock, std::chrono::seconds(20), [&] { return reads_ >= count; });
    }

    OpenHistoryPages opener() {
        return [self = shared_from_this()](const std::string&, HistorySource) {
            return std::make_unique<Pages>(self);
        };
    }

  private:
    class Pages : public HistoryPages {
      public:
        explicit Pages(std::shared_ptr<FakeTranscript> transcript)
            : transcript_(std::move(transcript)), end_(transcript_->size()) {}
        std::vector<HistoryMessage> loadOlder(int limit) override {
            transcript_->pass();
            std::vector<HistoryMessage> page;
            for (; limit > 0 && end_ > 0; --limit) page.push_back(transcript_->at(--end_));
            return page;
        }
        [[nodiscard]] bool isExhausted() const override { return end_ == 0; }

      private:
        const std::shared_ptr<FakeTranscript> transcript_;
        std::size_t end_;
    };

    void pass() {
        {
            const std::lock_guard lock(mutex_);
            ++reads_;
            begun_.notify_all();
        }
        if (held_) gate_.wait();
    }
    std::size_t size() {
        const std::lock_guard lock(mutex_);
        return ids_.size();
    }
    HistoryMessage at(std::size_t index) {
        const std::lock_guard lock(mutex_);
        return {ids_[index], "body of " + ids_[index], Timestamp()};
    }

    std::mutex mutex_;
    std::condition_variable begun_;
    std::vector<std::string> ids_;
    std::atomic<bool> held_ = false;
    std::atomic<int> reads_ = 0;
    Semaphore gate_;
};

}  // namespace sonra::test
