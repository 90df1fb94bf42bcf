#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/TreeWatcher.h"

namespace sonra::test {

/// A tree watcher whose events the test fires by hand. Any thread.
class FakeTreeWatcher : public TreeWatcher {
  public:
    [[nodiscard]] std::unique_ptr<TreeWatch> watch(const std::string& root,
                                                   Callback onEvents) override {
        const std::lock_guard lock(shared_->mutex);
        shared_->roots.push_back(root);
        if (refuse_) return nullptr;
        shared_->callback = std::move(onEvents);
        ++shared_->running;
        return std::make_unique<Watch>(shared_);
    }

    void refuse() { refuse_ = true; }
    /// False if nobody watches.
    bool fire(TreeEvents events) {
        const std::lock_guard lock(shared_->mutex);
        if (shared_->running == 0) return false;
        shared_->callback(std::move(events));
        return true;
    }
    /// What was asked for, in order.
    [[nodiscard]] std::vector<std::string> roots() const {
        const std::lock_guard lock(shared_->mutex);
        return shared_->roots;
    }
    [[nodiscard]] int running() const {
        const std::lock_guard lock(shared_->mutex);
        return shared_->running;
    }

  private:
    struct Shared {
        std::mutex mutex;
        std::vector<std::string> roots;
        Callback callback;
        int running = 0;
    };
    class Watch : public TreeWatch {
      public:
        explicit Watch(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}
        ~Watch() override {
            const std::lock_guard lock(shared_->mutex);
            --shared_->running;
            shared_->callback = nullptr;
        }
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;

      private:
        const std::shared_ptr<Shared> shared_;
    };

    const std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
    bool refuse_ = false;
};

}  // namespace sonra::test
