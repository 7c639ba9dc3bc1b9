#include "ui/upload_line.h"

#include "ui/appearance.h"
#include "ui/indicators.h"
#include "ui/status_table_model.h"

#include <QHBoxLayout>

namespace quenmoor {

UploadLine::UploadLine(QWidget* parent)
    : QWidget(parent),
      glyph_(new StateGlyph),
      name_(new ElidedLabel),
      status_(new QLabel),
      summary_(new QLabel)
{
    status_->setTextFormat(Qt::PlainText);
    summary_->setForegroundRole(QPalette::PlaceholderText);
    const int gap = fontMetrics().height() / 2;
    auto* const row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(gap);
    row->addWidget(glyph_);
    row->addWidget(name_);
    row->addWidget(status_);
    row->addStretch(1);
    row->addWidget(summary_);
}

void UploadLine::setModel(const StatusTableModel& model)
{
    model_ = &model;
    connect(&model, &StatusTableModel::summaryChanged, this, &UploadLine::showRow);
    connect(&model, &StatusTableModel::dataChanged, this, [this](const QModelIndex& cell) {
        if (cell.column() == StatusTableModel::Status && cell.row() == model_->latestRow())
            showRow();
    });
    showRow();
}

void UploadLine::showRow()
{
    summary_->setText(model_->summary());
    const int row = std::max(model_->latestRow(), 0);
    if (row >= model_->rowCount())
        return;
    const auto cell = [this, row](int column, int role = Qt::DisplayRole) {
        return model_->index(row, column).data(role).toString();
    };
    glyph_->setState(model_->state(row));
    glyph_->setAccessibleName(stateText(model_->state(row)));
    name_->setElidedText(cell(StatusTableModel::File),
                         cell(StatusTableModel::File, Qt::ToolTipRole));
    status_->setText(cell(StatusTableModel::Status));
}

} // namespace quenmoor
