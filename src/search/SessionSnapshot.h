#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <vector>

#include "search/SessionMeta.h"

namespace sonra {

class SearchTable;

/// The catalogue at one moment: a list of sessions that never changes. Copying it costs a pointer;
/// any thread. What the search needs beside the sessions is made once and kept: by `prepare`, or
/// else by the first search.
class SessionSnapshot {
  public:
    using Entries = std::vector<std::shared_ptr<const SessionMeta>>;

    class Iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = SessionMeta;
        using difference_type = std::ptrdiff_t;
        using pointer = const SessionMeta*;
        using reference = const SessionMeta&;

        Iterator() = default;
        Iterator(const SessionSnapshot* snapshot, std::size_t at) : snapshot_(snapshot), at_(at) {}
        reference operator*() const { return (*snapshot_)[at_]; }
        pointer operator->() const { return &(*snapshot_)[at_]; }
        Iterator& operator++() {
            ++at_;
            return *this;
        }
        Iterator operator++(int) { return {snapshot_, at_++}; }
        bool operator==(const Iterator&) const = default;

      private:
        const SessionSnapshot* snapshot_ = nullptr;
        std::size_t at_ = 0;
    };

    SessionSnapshot();
    /// In the given order.
    explicit SessionSnapshot(std::vector<SessionMeta> sessions);
    explicit SessionSnapshot(Entries entries);

    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] bool empty() const { return size() == 0; }
    const SessionMeta& operator[](std::size_t index) const;
    [[nodiscard]] Iterator begin() const { return {this, 0}; }
    [[nodiscard]] Iterator end() const { return {this, size()}; }

    /// The session at `index`; it outlives the snapshot.
    [[nodiscard]] std::shared_ptr<const SessionMeta> shared(std::size_t index) const;
    /// What the search walks.
    [[nodiscard]] const SearchTable& table() const;
    /// Makes the table, so that no search has to. Takes a millisecond for a thousand sessions: for
    /// a thread for which nobody waits.
    void prepare() const { (void)table(); }
    [[nodiscard]] bool isPrepared() const;

    bool operator==(const SessionSnapshot& other) const;

  private:
    struct Data;

    std::shared_ptr<const Data> data_;
};

}  // namespace sonra
