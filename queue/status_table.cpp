#include "queue/status_table.h"

#include <algorithm>
#include <mutex>

namespace quenmoor {

std::size_t StatusTable::count() const
{
    const std::shared_lock shared(gate_);
    return tableList_.size();
}

StatusTable::Row StatusTable::objectAtIndex(std::size_t index) const
{
    const std::shared_lock shared(gate_);
    return index < tableList_.size() ? tableList_[index] : nullptr;
}

void StatusTable::addObject(TableContainer row)
{
    auto object = std::make_shared<const TableContainer>(std::move(row));
    const std::unique_lock exclusive(gate_);
    tableList_.push_back(std::move(object));
}

void StatusTable::insertObject(TableContainer row, std::size_t index)
{
    auto object = std::make_shared<const TableContainer>(std::move(row));
    const std::unique_lock exclusive(gate_);
    const auto place = static_cast<std::ptrdiff_t>(std::min(index, tableList_.size()));
    tableList_.insert(tableList_.begin() + place, std::move(object));
}

bool StatusTable::replace(std::size_t index, std::string_view status, std::int32_t percent)
{
    const std::unique_lock exclusive(gate_);
    if (index >= tableList_.size())
        return false;
    Row& place = tableList_[index];
    if (place->percent == percent && place->status == status)
        return false;
    place = std::make_shared<const TableContainer>(TableContainer{
        place->filename, std::string(status), percent >= 0 ? percent : place->percent});
    return true;
}

std::string StatusTable::cell(std::string_view column, std::size_t row) const
{
    const Row object = objectAtIndex(row);
    if (object == nullptr)
        return {};
    if (column == "File")
        return object->filename;
    if (column == "Status")
        return object->status;
    const std::string percent = std::to_string(object->percent);
    return column == "Percent" ? percent + "%" : percent;
}

} // namespace quenmoor
