#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/DesktopSearchIndex.h"

namespace sonra::test {

/// Holds what it was given. Completions wait for `complete`, and the work with them fails if an
/// error was set. One thread at a time.
class FakeDesktopSearchIndex : public DesktopSearchIndex {
  public:
    std::map<std::string, SearchableItem> items;
    /// What was called, with the number of things it named.
    std::vector<std::pair<std::string, std::size_t>> calls;
    std::optional<std::string> error;  ///< all changes fail with this

    void indexSearchableItems(std::vector<SearchableItem> added, Completion completion) override {
        note("index", added.size(), std::move(completion));
        if (error) return;
        for (auto& item : added) items.insert_or_assign(item.uniqueIdentifier, item);
    }
    void deleteSearchableItems(const std::vector<std::string>& identifiers,
                               Completion completion) override {
        note("delete", identifiers.size(), std::move(completion));
        if (error) return;
        for (const auto& identifier : identifiers) items.erase(identifier);
    }
    void deleteSearchableItemsInDomains(const std::vector<std::string>& domains,
                                        Completion completion) override {
        note("delete domains", domains.size(), std::move(completion));
        if (error) return;
        std::erase_if(items, [&domains](const auto& entry) {
            return std::ranges::count(domains, entry.second.domainIdentifier) > 0;
        });
    }
    void deleteAllSearchableItems(Completion completion) override {
        note("delete all", items.size(), std::move(completion));
        if (!error) items.clear();
    }

    /// Calls the completions that are due.
    void complete() {
        for (const auto& [completion, result] : std::exchange(completions_, {})) completion(result);
    }

  private:
    void note(const char* call, std::size_t count, Completion completion) {
        calls.emplace_back(call, count);
        if (completion) completions_.emplace_back(std::move(completion), error);
    }

    std::vector<std::pair<Completion, std::optional<std::string>>> completions_;
};

}  // namespace sonra::test
