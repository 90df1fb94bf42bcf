#pragma once

#include <utility>

#include "search/SearchText.h"
#include "search/SessionMeta.h"

namespace sonra {

/// A session in memory with what the search needs of it, made once. Immutable; any thread.
struct SessionEntry {
    explicit SessionEntry(SessionMeta session) : meta(std::move(session)), text(meta) {}

    const SessionMeta meta;
    const SearchText text;
};

}  // namespace sonra
