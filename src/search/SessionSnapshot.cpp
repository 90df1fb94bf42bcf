#include "search/SessionSnapshot.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

#include "search/SearchTable.h"
#include "search/SessionEntry.h"

namespace sonra {

struct SessionSnapshot::Data {
    explicit Data(Entries all) : entries(std::move(all)) {}

    const Entries entries;
    mutable std::once_flag tableMade;
    mutable std::optional<SearchTable> table;
};

namespace {

SessionSnapshot::Entries entriesOf(std::vector<SessionMeta> sessions) {
    SessionSnapshot::Entries entries;
    entries.reserve(sessions.size());
    for (auto& meta : sessions)
        entries.push_back(std::make_shared<const SessionEntry>(std::move(meta)));
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
    return data_->entries[index]->meta;
}

const SearchText& SessionSnapshot::text(std::size_t index) const {
    return data_->entries[index]->text;
}

std::shared_ptr<const SessionMeta> SessionSnapshot::shared(std::size_t index) const {
    return {data_, &(*this)[index]};
}

const SearchTable& SessionSnapshot::table() const {
    std::call_once(data_->tableMade, [this] { data_->table.emplace(data_->entries); });
    return *data_->table;
}

bool SessionSnapshot::operator==(const SessionSnapshot& other) const {
    return std::equal(begin(), end(), other.begin(), other.end());
}

}  // namespace sonra
