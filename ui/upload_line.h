// One line about the latest upload, for the time in which the page covers the table.
#pragma once

#include <QWidget>

class QLabel;

namespace quenmoor {

class ElidedLabel;
class StateGlyph;
class StatusTableModel;

// Main thread only. Shows the row with the latest event and how many uploads have ended, so that
// a failure or a cancellation remains visible after the next upload has begun.
class UploadLine : public QWidget {
    Q_OBJECT

public:
    explicit UploadLine(QWidget* parent = nullptr);

    // The model must outlive the line.
    void setModel(const StatusTableModel& model);

private:
    void showRow();

    const StatusTableModel* model_ = nullptr;
    StateGlyph* glyph_;
    ElidedLabel* name_;
    QLabel* status_;
    QLabel* summary_;
};

} // namespace quenmoor
