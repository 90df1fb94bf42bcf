#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <unordered_set>

#include "history/HistorySource.h"

namespace sonra {

/// Finds the ids of all messages in a transcript: those that a SessionHistory read to its start
/// would hand out, for less time and memory.
///
/// A job for the background: it opens the file for itself and takes as long as the disk and the
/// file's size need. No instances; any thread. It never throws; a file that can't be read has no
/// messages, and one that shrinks those that were read.
struct MessageCounter {
    using Ids = std::unordered_set<std::string>;

    /// Absent if `cancelled` was set meanwhile.
    static std::optional<Ids> messageIds(const std::string& transcript, HistorySource source,
                                         const std::atomic<bool>& cancelled);
};

}  // namespace sonra
