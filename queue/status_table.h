// One row per file that ever entered the upload queue, in the same order.
//
// Rows are replaced, never changed: a row once fetched stays as it was. The table only grows.
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

// Any thread. Readers do not hold each other up; no lock outlives a call.
class StatusTable {
public:
    using Row = std::shared_ptr<const TableContainer>;

    std::size_t count() const;

    // The row at `index`; nullptr past the end.
    Row objectAtIndex(std::size_t index) const;

    void addObject(TableContainer row);

    // Later rows move down by one. An `index` past the end appends.
    void insertObject(TableContainer row, std::size_t index);

    // Puts a row with the same file name and a new status in place of the one at `index`. A
    // negative `percent` keeps the old row's. False when there is no such row or nothing differs:
    // then the old row object stays.
    bool replace(std::size_t index, std::string_view status, std::int32_t percent);

    // What the cell of `row` shows in the column "File", "Status" or "Percent" ("45%"). Any other
    // column shows the bare number of per cent. Empty past the end.
    std::string cell(std::string_view column, std::size_t row) const;

private:
    mutable std::shared_mutex gate_;

    // Guarded by gate_.
    std::vector<Row> tableList_;
};

} // namespace quenmoor
