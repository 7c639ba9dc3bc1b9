// One row per file that ever entered the upload queue, in the same order.
//
// Rows are replaced, never modified and never removed: a fetched row does not change.
#pragma once

#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace quenmoor {

struct TableContainer {
    std::string filename; // for display: see toValidUtf8()
    std::string status;
    std::int32_t percent = 0; // 0 to 100
};

// Any thread. Readers do not block each other.
class StatusTable {
public:
    using Row = std::shared_ptr<const TableContainer>;

    std::size_t count() const;

    // Returns the row at `index`, or nullptr past the end.
    Row objectAtIndex(std::size_t index) const;

    void addObject(TableContainer row);

    // Inserts `row` before the one at `index`, or appends it if `index` is past the end.
    void insertObject(TableContainer row, std::size_t index);

    // Replaces the row at `index` by one with the same file name and the new values; a negative
    // `percent` keeps the old percentage. Returns false, without a replacement, if there is no such
    // row or if both values are equal to the row's.
    bool replace(std::size_t index, std::string_view status, std::int32_t percent);

    // Returns the text of `row` in the column "File", "Status" or "Percent" ("45%"). The text of
    // any other column is the percentage without a sign. Empty past the end.
    std::string cell(std::string_view column, std::size_t row) const;

private:
    mutable std::shared_mutex gate_;

    // Guarded by gate_.
    std::vector<Row> tableList_;
};

} // namespace quenmoor
