#include "ui/status_table_view.h"

#include "ui/appearance.h"
#include "ui/status_table_model.h"

#include <QApplication>
#include <QHeaderView>
#include <QPainter>
#include <QProxyStyle>

namespace quenmoor {
namespace {

constexpr double kRowHeightInLines = 2.0;
constexpr double kBarHeightInLines = 0.35;
constexpr int kPercentWidthInCharacters = 20;
constexpr float kTrackOpacity = 0.16F;

// The application's style with the table's cell margin in the column headers.
class HeaderStyle : public QProxyStyle {
public:
    int pixelMetric(PixelMetric metric, const QStyleOption* option,
                    const QWidget* widget) const override
    {
        if (metric == PM_HeaderMargin && widget != nullptr)
            return cellMargin(widget->fontMetrics());
        return QProxyStyle::pixelMetric(metric, option, widget);
    }
};

const QStyle* styleOf(const QStyleOptionViewItem& cell)
{
    return cell.widget != nullptr ? cell.widget->style() : QApplication::style();
}

QPalette::ColorRole textRole(const QStyleOptionViewItem& cell)
{
    // Some styles fill a selected cell with Highlight, others only tint it and keep the text
    // colour.
    const bool filled = cell.state.testFlag(QStyle::State_Selected) && cell.showDecorationSelected;
    return filled ? QPalette::HighlightedText : QPalette::Text;
}

void paintBar(QPainter& painter, const QStyleOptionViewItem& cell, const QRectF& bar, int percent)
{
    const bool selected = textRole(cell) == QPalette::HighlightedText;
    QColor track = cell.palette.color(textRole(cell));
    track.setAlphaF(kTrackOpacity);
    QRectF filled = bar;
    filled.setWidth(bar.width() * percent / 100);
    if (cell.direction == Qt::RightToLeft)
        filled.moveRight(bar.right());

    const double corner = bar.height() / 2;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(track);
    painter.drawRoundedRect(bar, corner, corner);
    painter.setClipRect(filled);
    painter.setBrush(selected ? cell.palette.color(QPalette::HighlightedText)
                              : accent(cell.palette, QPalette::Base));
    painter.drawRoundedRect(bar, corner, corner);
    painter.restore();
}

} // namespace

StatusTableView::StatusTableView(QWidget* parent) : QTableView(parent)
{
    auto* const style = new HeaderStyle;
    style->setParent(this);
    horizontalHeader()->setStyle(style);
    horizontalHeader()->setHighlightSections(false);
    setItemDelegate(new TextDelegate(this));
    setItemDelegateForColumn(StatusTableModel::Percent, new PercentDelegate(this));
    setAccessibleName(QStringLiteral("Uploads"));
    setSelectionBehavior(SelectRows);
    setEditTriggers(NoEditTriggers);
    setTabKeyNavigation(false); // the Tab key leaves the table
    setTextElideMode(Qt::ElideMiddle);
    setWordWrap(false);
    setShowGrid(false);
    setAlternatingRowColors(true);
    // With rows of one fixed height, the view measures none of them.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(
        static_cast<int>(fontMetrics().height() * kRowHeightInLines));
    verticalHeader()->hide();
}

void StatusTableView::setModel(QAbstractItemModel* model)
{
    QTableView::setModel(model);
    QHeaderView& columns = *horizontalHeader();
    columns.setSectionResizeMode(QHeaderView::Interactive);
    columns.setSectionResizeMode(StatusTableModel::File, QHeaderView::Stretch);
    columns.resizeSection(StatusTableModel::Status, fontMetrics().horizontalAdvance(QStringLiteral(
                                                        "  Uploading at 0000.000 MB/s  ")));
    columns.resizeSection(StatusTableModel::Percent,
                          fontMetrics().averageCharWidth() * kPercentWidthInCharacters);
}

void TextDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                         const QModelIndex& index) const
{
    QStyleOptionViewItem cell = option;
    initStyleOption(&cell, index);
    QStyleOptionViewItem background = cell;
    background.text.clear();
    styleOf(cell)->drawControl(QStyle::CE_ItemViewItem, &background, painter, cell.widget);
    const int margin = cellMargin(cell.fontMetrics);
    paintContent(*painter, cell, cell.rect.adjusted(margin, 0, -margin, 0), index);
}

void TextDelegate::paintContent(QPainter& painter, const QStyleOptionViewItem& cell,
                                const QRect& area, const QModelIndex& /*index*/) const
{
    paintText(painter, cell, area, Qt::AlignLeft);
}

void TextDelegate::paintText(QPainter& painter, const QStyleOptionViewItem& cell, const QRect& area,
                             Qt::Alignment alignment)
{
    const Qt::Alignment side =
        QStyle::visualAlignment(cell.direction, alignment | Qt::AlignVCenter);
    const QString text = cell.fontMetrics.elidedText(cell.text, cell.textElideMode, area.width());
    styleOf(cell)->drawItemText(&painter, area, static_cast<int>(side.toInt()), cell.palette,
                                cell.state.testFlag(QStyle::State_Enabled), text, textRole(cell));
}

void PercentDelegate::paintContent(QPainter& painter, const QStyleOptionViewItem& cell,
                                   const QRect& area, const QModelIndex& index) const
{
    const int textWidth = cell.fontMetrics.horizontalAdvance(QStringLiteral("100%"));
    QRect text = area;
    text.setLeft(area.right() - textWidth);
    QRect bar = area;
    bar.setRight(text.left() - cellMargin(cell.fontMetrics));
    bar.setHeight(static_cast<int>(cell.fontMetrics.height() * kBarHeightInLines));
    bar.moveTop(area.center().y() - bar.height() / 2);

    paintBar(painter, cell, QStyle::visualRect(cell.direction, area, bar),
             index.data(StatusTableModel::PercentRole).toInt());
    paintText(painter, cell, QStyle::visualRect(cell.direction, area, text), Qt::AlignRight);
}

} // namespace quenmoor
