#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "search/SessionRecord.h"

namespace sonra {

/// The document in which the catalogue outlives the program. A value; any thread.
struct IndexFile {
    static constexpr std::int64_t currentVersion = 2;

    std::int64_t v = currentVersion;
    std::vector<SessionRecord> sessions;

    /// One JSON object with sorted keys. A path that isn't UTF-8 is escaped so that it can be read
    /// back (see FileName).
    [[nodiscard]] std::string encoded() const;
    /// Absent if the bytes aren't such a document, with the reason in `error`. Keys that aren't
    /// known are passed over; all that are known must be there.
    static std::optional<IndexFile> decoded(std::string_view bytes, std::string& error);

    bool operator==(const IndexFile&) const = default;
};

}  // namespace sonra
