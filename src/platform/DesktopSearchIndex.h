#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sonra {

/// One thing that the desktop's own search can find.
struct SearchableItem {
    std::string uniqueIdentifier;  ///< also the address that is opened when it is chosen
    std::string domainIdentifier;  ///< the group it belongs to
    std::string contentType = "text/plain";
    std::string title;
    std::string contentDescription;
    std::vector<std::string> keywords;
    double contentModificationDate = 0;  ///< seconds since 1970

    bool operator==(const SearchableItem&) const = default;
};

/// What the desktop's search knows of this program.
///
/// Any thread. Changes take effect in the order of the calls. Each calls its completion, if there
/// is one, exactly once, later and on the main thread, with a text for the log where it failed and
/// nothing where it worked.
class DesktopSearchIndex {
  public:
    using Completion = std::function<void(const std::optional<std::string>& error)>;

    virtual ~DesktopSearchIndex() = default;

    /// Adds the items; each takes the place of one with the same identifier.
    virtual void indexSearchableItems(std::vector<SearchableItem> items, Completion completion) = 0;
    /// Identifiers that aren't there are no error.
    virtual void deleteSearchableItems(const std::vector<std::string>& identifiers,
                                       Completion completion) = 0;
    virtual void deleteSearchableItemsInDomains(const std::vector<std::string>& domains,
                                                Completion completion) = 0;
    virtual void deleteAllSearchableItems(Completion completion) = 0;
};

}  // namespace sonra
