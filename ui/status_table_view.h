// The status table in the window. Assistive technology reads the text of the model, independent of
// what the delegates draw.
#pragma once

#include <QStyledItemDelegate>
#include <QTableView>

namespace quenmoor {

// Main thread only. Shows a StatusTableModel. Keeps the row of the latest event in sight until the
// user scrolls it out of sight, and again after the user has scrolled back to it.
class StatusTableView : public QTableView {
    Q_OBJECT

public:
    explicit StatusTableView(QWidget* parent = nullptr);

    // `model` is a StatusTableModel. Also sets the widths of the columns.
    void setModel(QAbstractItemModel* model) override;

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void setSizes();
    int latestRow() const;
    void follow();
    void userScrolled();

    bool following_ = true;
    bool scrolling_ = false; // the view itself is scrolling or changing its size
};

// Draws a cell's text with a margin on both sides.
class TextDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

protected:
    // Draws into `area` of the cell, over its background.
    virtual void paintContent(QPainter& painter, const QStyleOptionViewItem& cell,
                              const QRect& area, const QModelIndex& index) const;

    static void paintText(QPainter& painter, const QStyleOptionViewItem& cell, const QRect& area,
                          Qt::Alignment alignment);
};

// Draws a glyph for the state of the row before its status.
class StatusDelegate : public TextDelegate {
    Q_OBJECT

public:
    using TextDelegate::TextDelegate;

protected:
    void paintContent(QPainter& painter, const QStyleOptionViewItem& cell, const QRect& area,
                      const QModelIndex& index) const override;

private:
    static void paintRate(QPainter& painter, const QStyleOptionViewItem& cell, const QRect& area);
};

// Draws a progress bar with the percentage beside it.
class PercentDelegate : public TextDelegate {
    Q_OBJECT

public:
    using TextDelegate::TextDelegate;

protected:
    void paintContent(QPainter& painter, const QStyleOptionViewItem& cell, const QRect& area,
                      const QModelIndex& index) const override;
};

} // namespace quenmoor
