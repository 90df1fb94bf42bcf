#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/Mutex.h"
#include "platform/DesktopSearchIndex.h"
#include "platform/MainLoop.h"

namespace sonra {

/// What the desktop's search can find, in memory, and the search itself.
///
/// Any thread; a change that is made while somebody searches waits a few milliseconds at most. The
/// loop must outlive it. Only an item without an identifier is an error, and the others of its call
/// are taken nevertheless. Not kept on disk: a new process starts empty.
class DesktopSearchItems : public DesktopSearchIndex {
  public:
    struct Match {
        SearchableItem item;
        double relevance = 0;  ///< above 0, at most 1
    };

    explicit DesktopSearchItems(MainLoop& loop) : loop_(loop) {}

    void indexSearchableItems(std::vector<SearchableItem> items, Completion completion) override;
    void deleteSearchableItems(const std::vector<std::string>& identifiers,
                               Completion completion) override;
    void deleteSearchableItemsInDomains(const std::vector<std::string>& domains,
                                        Completion completion) override;
    void deleteAllSearchableItems(Completion completion) override;

    /// Items that have all words of the terms, in any case: best first, newer ones before older
    /// ones. A title or keyword counts more than a description, a whole word more than a part,
    /// words that stand together more than scattered ones. A single letter finds nothing.
    [[nodiscard]] std::vector<Match> search(const std::vector<std::string>& terms,
                                            std::size_t limit) const;
    [[nodiscard]] std::optional<SearchableItem> item(const std::string& identifier) const;

  private:
    struct Entry {
        SearchableItem item;
        std::string text;      ///< title, keywords, description, in lower case
        std::size_t head = 0;  ///< where the description begins in it
    };
    using Shared = std::shared_ptr<const Entry>;

    static Shared prepared(SearchableItem item);
    static double relevance(const Entry& entry, const std::vector<std::string>& words,
                            const std::string& phrase);
    void complete(Completion completion, std::optional<std::string> error = std::nullopt);

    MainLoop& loop_;
    mutable Mutex mutex_;
    std::map<std::string, Shared, std::less<>> entries_ SONRA_GUARDED_BY(mutex_);
};

}  // namespace sonra
