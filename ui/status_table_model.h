// The item model of the status table: columns File, Status and Percent.
#pragma once

#include "queue/upload_queues.h"
#include "ui/indicators.h"
#include "ui/row_details.h"

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

    // For the delegates: the percentage as an int, and the row's UploadState as an int. For the
    // context menu: RowHistory::details() and uriOf() the file.
    enum Role { PercentRole = Qt::UserRole, StateRole, DetailsRole, UrlRole };

    // The queues must outlive the model.
    explicit StatusTableModel(const UploadQueues& queues, QObject* parent = nullptr);

    // Announces the row that was just appended to the table.
    void appendRow(const FileUrl& file);

    // Announces that the row of the file under upload changed.
    void refreshCurrentRow();

    // Takes the state and the details of the event's row from the event.
    void attemptChanged(const AttemptEvent& event);

    UploadState state(int row) const { return states_[static_cast<std::size_t>(row)]; }

    // The row of the latest event, -1 before the first.
    int latestRow() const { return latestRow_; }

    // How many uploads have ended, for example "37 of 200 finished, 1 canceled". Empty without
    // rows.
    QString summary() const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

Q_SIGNALS:
    // An upload is the first one with an event or follows another one.
    void latestRowChanged(int row);
    // A row was appended or has another state.
    void summaryChanged();

private:
    const UploadQueues& queues_;

    // One for each announced row.
    std::vector<FileUrl> files_;
    std::vector<UploadState> states_;
    std::vector<RowHistory> histories_;

    int latestRow_ = -1;
    int finished_ = 0; // rows in the state Done
    int canceled_ = 0;
};

} // namespace quenmoor
