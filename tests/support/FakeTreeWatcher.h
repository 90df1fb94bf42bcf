#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/TreeWatcher.h"

namespace sonra::test {

/// Remembers what is watched, and reports what the test says has happened. Any thread.
class FakeTreeWatcher : public TreeWatcher {
  public:
    std::unique_ptr<TreeWatch> watch(const std::string& root, Callback onEvents) override {
        const std::lock_guard lock(state_->mutex);
        if (state_->refuses) return nullptr;
        state_->roots.push_back(root);
        state_->callback = std::move(onEvents);
        return std::make_unique<Watch>(state_);
    }

    void refuse() {
        const std::lock_guard lock(state_->mutex);
        state_->refuses = true;
    }
    /// Every root that was ever watched.
    [[nodiscard]] std::vector<std::string> roots() const {
        const std::lock_guard lock(state_->mutex);
        return state_->roots;
    }
    [[nodiscard]] bool isWatching() const {
        const std::lock_guard lock(state_->mutex);
        return state_->callback != nullptr;
    }
    /// Nothing happens where nobody watches.
    void report(TreeEvents events) {
        const std::lock_guard lock(state_->mutex);
        if (state_->callback) state_->callback(std::move(events));
    }

  private:
    struct State {
        std::mutex mutex;
        std::vector<std::string> roots;
        Callback callback;
        bool refuses = false;
    };
    struct Watch : TreeWatch {
        explicit Watch(std::shared_ptr<State> watched) : state(std::move(watched)) {}
        ~Watch() override {
            const std::lock_guard lock(state->mutex);
            state->callback = nullptr;
        }
        const std::shared_ptr<State> state;
    };

    const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace sonra::test
