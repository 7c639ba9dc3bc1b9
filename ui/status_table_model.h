// The status table as the window's table view reads it: columns File, Status, Percent.
#pragma once

#include "queue/upload_queues.h"

#include <QAbstractTableModel>
#include <vector>

namespace quenmoor {

// Main thread only. Rows are told of one by one and never reset, so the view keeps its selection
// and its place, and a change costs the same in a table of any length.
class StatusTableModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { File, Status, Percent, ColumnCount };

    // The bare number of per cent, for whoever draws it.
    static constexpr int PercentRole = Qt::UserRole;

    // The queues outlive the model.
    explicit StatusTableModel(const UploadQueues& queues, QObject* parent = nullptr);

    // The table has got its next row, for `file`; its path becomes the row's tool tip, as the row
    // itself knows the name only.
    void appendRow(const FileUrl& file);

    // The row of the file under upload was replaced.
    void refreshCurrentRow();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const UploadQueues& queues_;
    std::vector<FileUrl> files_; // one for each row that the view knows
};

} // namespace quenmoor
