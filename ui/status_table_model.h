// The item model of the status table: columns File, Status and Percent.
#pragma once

#include "queue/upload_queues.h"

#include <QAbstractTableModel>
#include <vector>

namespace quenmoor {

// Main thread only. Rows are inserted and changed one by one and the model is never reset, so the
// view keeps its selection and scroll position, and the cost of a change does not depend on the
// length of the table.
class StatusTableModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { File, Status, Percent, ColumnCount };

    // The percentage as an int, for the delegate.
    static constexpr int PercentRole = Qt::UserRole;

    // The queues must outlive the model.
    explicit StatusTableModel(const UploadQueues& queues, QObject* parent = nullptr);

    // Announces the row that was just appended to the table. The path of `file` becomes its tool
    // tip.
    void appendRow(const FileUrl& file);

    // Announces that the row of the file under upload changed.
    void refreshCurrentRow();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const UploadQueues& queues_;
    std::vector<FileUrl> files_; // one for each announced row
};

} // namespace quenmoor
