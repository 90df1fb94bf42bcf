#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/DesktopSearchIndex.h"
#include "platform/MainLoop.h"

namespace sonra::test {

/// A desktop's search that may be used from several threads, and answers by the loop. It remembers
/// what it was asked to do, and fails on demand; its items are read while no other thread uses it.
class RecordedDesktopSearch : public DesktopSearchIndex {
  public:
    explicit RecordedDesktopSearch(MainLoop& loop) : loop_(loop) {}

    void indexSearchableItems(std::vector<SearchableItem> added, Completion completion) override {
        if (beforeIndexing) beforeIndexing();
        const std::lock_guard lock(mutex_);
        std::string call = "index";
        for (auto& item : added) {
            call += " " + item.uniqueIdentifier;
            if (!error) items[item.uniqueIdentifier] = item;
        }
        finish(std::move(call), std::move(completion));
    }
    void deleteSearchableItems(const std::vector<std::string>& identifiers,
                               Completion completion) override {
        const std::lock_guard lock(mutex_);
        std::string call = "delete";
        for (const auto& identifier : identifiers) {
            call += " " + identifier;
            items.erase(identifier);
        }
        finish(std::move(call), std::move(completion));
    }
    void deleteSearchableItemsInDomains(const std::vector<std::string>& domains,
                                        Completion completion) override {
        const std::lock_guard lock(mutex_);
        std::string call = "delete domain";
        for (const auto& domain : domains) {
            call += " " + domain;
            std::erase_if(
                items, [&](const auto& entry) { return entry.second.domainIdentifier == domain; });
        }
        finish(std::move(call), std::move(completion));
    }
    void deleteAllSearchableItems(Completion completion) override {
        const std::lock_guard lock(mutex_);
        items.clear();
        finish("delete all", std::move(completion));
    }

    /// What was asked for so far, in order, by any thread.
    std::vector<std::string> calls() {
        const std::lock_guard lock(mutex_);
        return calls_;
    }

    /// Called before items are taken in, by whoever brings them.
    std::function<void()> beforeIndexing;
    std::map<std::string, SearchableItem> items;
    std::optional<std::string> error;  ///< of every call from now on

  private:
    void finish(std::string call, Completion completion) {
        calls_.push_back(std::move(call));
        if (completion)
            loop_.post(
                [completion = std::move(completion), failure = error] { completion(failure); });
    }

    MainLoop& loop_;
    std::mutex mutex_;
    std::vector<std::string> calls_;
};

}  // namespace sonra::test
