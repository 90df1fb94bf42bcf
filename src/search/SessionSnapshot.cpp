#include "search/SessionSnapshot.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

#include "search/SearchTable.h"

namespace sonra {

struct SessionSnapshot::Data {
    explicit Data(Entries all) : entries(std::move(all)) {}

    const Entries entries;
    mutable std::once_flag tableMade;
    mutable std::optional<SearchTable> table;
    mutable std::atomic<bool> isPrepared = false;
};

namespace {

SessionSnapshot::Entries entriesOf(std::vector<SessionMeta> sessions) {
    SessionSnapshot::Entries entries;
    entries.reserve(sessions.size());
    for (auto& meta : sessions)
        entries.push_back(std::make_shared<const SessionMeta>(std::move(meta)));
    return entries;
}

}  // namespace

SessionSnapshot::SessionSnapshot() : SessionSnapshot(Entries()) {}

SessionSnapshot::SessionSnapshot(std::vector<SessionMeta> sessions)
    : SessionSnapshot(entriesOf(std::move(sessions))) {}

SessionSnapshot::SessionSnapshot(Entries entries)
    : data_(std::make_shared<const Data>(std::move(entries))) {}

std::size_t SessionSnapshot::size() const {
    return data_->entries.size();
}

const SessionMeta& SessionSnapshot::operator[](std::size_t index) const {
    return *data_->entries[index];
}

std::shared_ptr<const SessionMeta> SessionSnapshot::shared(std::size_t index) const {
    return data_->entries[index];
}

const SearchTable& SessionSnapshot::table() const {
    std::call_once(data_->tableMade, [this] {
        data_->table.emplace(data_->entries);
        data_->isPrepared = true;
    });
    return *data_->table;
}

bool SessionSnapshot::isPrepared() const {
    return data_->isPrepared;
}

bool SessionSnapshot::operator==(const SessionSnapshot& other) const {
    return std::equal(begin(), end(), other.begin(), other.end());
}

}  // namespace sonra
