#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "search/SearchText.h"
#include "search/SessionSnapshot.h"

namespace sonra {

/// A snapshot's sessions as the search walks them: by time, the newest first and of equal times the
/// one that stands first in the snapshot, each with all that decides whether its text is looked at.
/// The texts lie one after the other in that order, too: a walk that had to gather them from
/// everywhere would spend half of its time waiting for the memory. Sub-agents aren't among them.
/// Points into the snapshot's entries. Immutable; any thread.
class SearchTable {
  public:
    /// One line of the processor's cache.
    struct Row {
        const unsigned char* text;
        double mtime;
        std::array<std::uint64_t, SearchText::fieldCount> masks;
        std::array<std::uint32_t, SearchText::fieldCount> lengths;
    };
    static_assert(sizeof(Row) == 64);

    /// Sessions whose folders have the same name.
    struct Project {
        std::string_view name;  ///< as it was written
        std::string lowered;
    };

    explicit SearchTable(const SessionSnapshot::Entries& entries);
    /// Rows point into it.
    SearchTable(const SearchTable&) = delete;
    SearchTable& operator=(const SearchTable&) = delete;

    [[nodiscard]] const std::vector<Row>& rows() const { return rows_; }
    /// Where a row's session stands in the snapshot.
    [[nodiscard]] std::uint32_t sessionOf(std::size_t row) const { return sessions_[row]; }
    [[nodiscard]] const std::vector<Project>& projects() const { return projects_; }
    [[nodiscard]] std::uint32_t projectOf(std::size_t row) const { return projectOf_[row]; }
    /// One bit of a digest of the session's id: an id with another bit is another id.
    [[nodiscard]] std::uint64_t idBit(std::size_t row) const {
        return std::uint64_t{1} << idBits_[row];
    }
    static std::uint64_t idBit(std::string_view sessionId);
    /// The field's units if the session has any that aren't ASCII, else nothing.
    [[nodiscard]] std::u16string_view units(std::size_t row, std::size_t field) const;

  private:
    void readTexts(const SessionSnapshot::Entries& entries);
    void addText(const SessionMeta& meta);
    void sortByTime(const SessionSnapshot::Entries& entries);
    void groupByProject(const SessionSnapshot::Entries& entries);

    std::vector<std::uint32_t> sessions_;
    std::vector<unsigned char> bytes_;
    std::u16string units_;
    std::vector<std::size_t> unitsAt_;  ///< where a row's begin; npos for one that is ASCII
    std::vector<Row> rows_;
    std::vector<std::uint32_t> projectOf_;
    std::vector<Project> projects_;
    std::vector<std::uint8_t> idBits_;
};

}  // namespace sonra
