#include "ui/status_table_model.h"

#include "ui/appearance.h"
#include "ui/desktop_bus.h"

#include <array>

namespace quenmoor {
namespace {

constexpr std::array<std::string_view, StatusTableModel::ColumnCount> kColumns{"File", "Status",
                                                                               "Percent"};

std::string_view columnName(int column)
{
    return kColumns.at(static_cast<std::size_t>(column));
}

} // namespace

StatusTableModel::StatusTableModel(const UploadQueues& queues, QObject* parent)
    : QAbstractTableModel(parent), queues_(queues)
{
}

void StatusTableModel::appendRow(const FileUrl& file)
{
    const int row = rowCount();
    beginInsertRows({}, row, row);
    files_.push_back(file);
    states_.push_back(UploadState::Waiting);
    histories_.emplace_back();
    endInsertRows();
    Q_EMIT summaryChanged();
}

void StatusTableModel::refreshCurrentRow()
{
    // Completed files leave the queue and keep their rows. So the last rows are those of the queued
    // files, and the first of them belongs to the head of the queue.
    const std::size_t queued = queues_.uploadCount();
    if (queued == 0 || queued > files_.size())
        return;
    const int row = static_cast<int>(files_.size() - queued);
    // One signal per cell: for a range, the view also repaints the row below.
    for (const int column : {Status, Percent}) {
        const QModelIndex cell = index(row, column);
        Q_EMIT dataChanged(cell, cell);
    }
}

void StatusTableModel::attemptChanged(const AttemptEvent& event)
{
    if (event.row >= states_.size())
        return;
    histories_[event.row].add(event);
    const int row = static_cast<int>(event.row);
    const UploadState state = stateAfter(event.kind);
    const UploadState before = std::exchange(states_[event.row], state);
    if (std::exchange(latestRow_, row) != row)
        Q_EMIT latestRowChanged(row);
    if (state == before)
        return;
    finished_ += (state == UploadState::Done ? 1 : 0) - (before == UploadState::Done ? 1 : 0);
    canceled_ +=
        (state == UploadState::Canceled ? 1 : 0) - (before == UploadState::Canceled ? 1 : 0);
    const QModelIndex cell = index(row, Status);
    Q_EMIT dataChanged(cell, cell);
    Q_EMIT summaryChanged();
}

QString StatusTableModel::summary() const
{
    if (files_.empty())
        return {};
    QString text = QStringLiteral("%1 of %2 finished").arg(finished_).arg(rowCount());
    if (canceled_ > 0)
        text += QStringLiteral(", %1 canceled").arg(canceled_);
    return text;
}

int StatusTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(files_.size());
}

int StatusTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant StatusTableModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const auto row = static_cast<std::size_t>(index.row());
    const StatusTable& table = queues_.tableList();
    switch (role) {
    case Qt::DisplayRole: return printableQString(table.cell(columnName(index.column()), row));
    case PercentRole: {
        const StatusTable::Row object = table.objectAtIndex(row);
        return object != nullptr ? object->percent : 0;
    }
    case StateRole: return static_cast<int>(states_[row]);
    case Qt::AccessibleDescriptionRole:
        return index.column() == Status ? stateText(states_[row])
                                        : histories_[row].details(files_[row]);
    case Qt::ToolTipRole: return plainToolTip(histories_[row].details(files_[row]));
    case DetailsRole: return histories_[row].details(files_[row]);
    case UrlRole: return uriOf(files_[row]);
    default: return {};
    }
}

QVariant StatusTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= ColumnCount)
        return {};
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue((section == Percent ? Qt::AlignRight : Qt::AlignLeft) |
                                   Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return {};
    const std::string_view name = columnName(section);
    return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
}

} // namespace quenmoor
