// How the cells of the status table are drawn. What assistive technology reads is the model's
// text, whatever is drawn.
#pragma once

#include <QStyledItemDelegate>

namespace quenmoor {

// Text with room on both sides.
class CellDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

protected:
    // Draws into `area` of the cell, whose background stands already.
    virtual void paintContent(QPainter& painter, const QStyleOptionViewItem& cell,
                              const QRect& area, const QModelIndex& index) const;

    static void paintText(QPainter& painter, const QStyleOptionViewItem& cell, const QRect& area,
                          Qt::Alignment alignment);
};

// A calm bar with the text beside it.
class PercentDelegate : public CellDelegate {
    Q_OBJECT

public:
    using CellDelegate::CellDelegate;

protected:
    void paintContent(QPainter& painter, const QStyleOptionViewItem& cell, const QRect& area,
                      const QModelIndex& index) const override;
};

} // namespace quenmoor
