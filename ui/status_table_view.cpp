#include "ui/status_table_view.h"

#include "ui/appearance.h"
#include "ui/indicators.h"
#include "ui/status_table_model.h"

#include <QApplication>
#include <QHeaderView>
#include <QPainter>
#include <QProxyStyle>
#include <QScrollBar>

namespace quenmoor {
namespace {

constexpr double kRowHeightInLines = 2.0;
constexpr int kPercentWidthInCharacters = 20;
constexpr int kRowsBelow = 2; // that are shown below the row that is kept in sight

// The application's style with flat column headers and the table's cell margin in them.
class HeaderStyle : public QProxyStyle {
public:
    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override
    {
        if (element != CE_HeaderSection && element != CE_HeaderEmptyArea) {
            QProxyStyle::drawControl(element, option, painter, widget);
            return;
        }
        painter->fillRect(option->rect, option->palette.base());
        QRect line = option->rect;
        line.setTop(line.bottom());
        painter->fillRect(line, outline(option->palette));
    }

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

bool isFilled(const QStyleOptionViewItem& cell)
{
    return textRole(cell) == QPalette::HighlightedText;
}

BarColors barColors(const QStyleOptionViewItem& cell)
{
    const QPalette& palette = cell.palette;
    if (isFilled(cell)) {
        const QColor text = palette.color(QPalette::HighlightedText);
        return {text, text, palette.color(QPalette::Highlight)};
    }
    return {accent(palette, QPalette::Base), outline(palette), palette.color(QPalette::Base)};
}

} // namespace

StatusTableView::StatusTableView(QWidget* parent) : QTableView(parent)
{
    auto* const style = new HeaderStyle;
    style->setParent(this);
    horizontalHeader()->setStyle(style);
    horizontalHeader()->setHighlightSections(false);
    setItemDelegate(new TextDelegate(this));
    setItemDelegateForColumn(StatusTableModel::Status, new StatusDelegate(this));
    setItemDelegateForColumn(StatusTableModel::Percent, new PercentDelegate(this));
    setFrameShape(NoFrame); // the panel around the table has the frame
    setAccessibleName(QStringLiteral("Uploads"));
    setSelectionBehavior(SelectRows);
    setEditTriggers(NoEditTriggers);
    setTabKeyNavigation(false); // the Tab key leaves the table
    setTextElideMode(Qt::ElideMiddle);
    setVerticalScrollMode(ScrollPerPixel);
    setWordWrap(false);
    setShowGrid(false);
    setAlternatingRowColors(true);
    // With rows of one fixed height, the view measures none of them.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->hide();
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &StatusTableView::userScrolled);
    setSizes();
}

void StatusTableView::setModel(QAbstractItemModel* model)
{
    QTableView::setModel(model);
    horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    horizontalHeader()->setSectionResizeMode(StatusTableModel::File, QHeaderView::Stretch);
    setSizes();
    if (const auto* const uploads = qobject_cast<StatusTableModel*>(model))
        connect(uploads, &StatusTableModel::latestRowChanged, this, &StatusTableView::follow);
}

void StatusTableView::setSizes()
{
    const QFontMetrics metrics = fontMetrics();
    verticalHeader()->setDefaultSectionSize(static_cast<int>(metrics.height() * kRowHeightInLines));
    QHeaderView& columns = *horizontalHeader();
    if (columns.count() != StatusTableModel::ColumnCount)
        return; // there is no model
    columns.resizeSection(StatusTableModel::Status,
                          metrics.horizontalAdvance(QStringLiteral("Uploading at 0000.000 MB/s")) +
                              metrics.height() * 3);
    columns.resizeSection(StatusTableModel::Percent,
                          metrics.averageCharWidth() * kPercentWidthInCharacters);
}

void StatusTableView::changeEvent(QEvent* event)
{
    QTableView::changeEvent(event);
    if (event->type() == QEvent::FontChange)
        setSizes();
}

// A new size of the viewport moves the rows, which is no choice of the user.
void StatusTableView::resizeEvent(QResizeEvent* event)
{
    scrolling_ = true;
    QTableView::resizeEvent(event);
    scrolling_ = false;
    follow();
}

void StatusTableView::showEvent(QShowEvent* event)
{
    QTableView::showEvent(event);
    follow();
}

int StatusTableView::latestRow() const
{
    const auto* const uploads = qobject_cast<StatusTableModel*>(model());
    return uploads != nullptr ? uploads->latestRow() : -1;
}

void StatusTableView::follow()
{
    const int row = latestRow();
    if (!following_ || row < 0 || !isVisible())
        return;
    scrolling_ = true;
    scrollTo(model()->index(std::min(row + kRowsBelow, model()->rowCount() - 1), 0));
    scrollTo(model()->index(row, 0));
    scrolling_ = false;
}

void StatusTableView::userScrolled()
{
    if (!scrolling_ && latestRow() >= 0)
        following_ = viewport()->rect().intersects(visualRect(model()->index(latestRow(), 0)));
}

void TextDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                         const QModelIndex& index) const
{
    QStyleOptionViewItem cell = option;
    initStyleOption(&cell, index);
    cell.state &= ~QStyle::State_HasFocus; // the frame of the table shows the focus
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

void StatusDelegate::paintContent(QPainter& painter, const QStyleOptionViewItem& cell,
                                  const QRect& area, const QModelIndex& index) const
{
    const auto state = static_cast<UploadState>(index.data(StatusTableModel::StateRole).toInt());
    const QPalette& palette = cell.palette;
    const int side = cell.fontMetrics.ascent();
    QRect glyph(area.left(), 0, side, side);
    glyph.moveTop(area.center().y() - side / 2);
    paintState(painter, QStyle::visualRect(cell.direction, area, glyph), state,
               isFilled(cell) ? palette.color(QPalette::HighlightedText)
                              : stateColor(state, palette),
               palette.color(isFilled(cell) ? QPalette::Highlight : QPalette::Base));
    const QRect text = area.adjusted(side + cellMargin(cell.fontMetrics), 0, 0, 0);
    if (state == UploadState::UnderWay && cell.direction == Qt::LeftToRight)
        paintRate(painter, cell, text);
    else
        paintText(painter, cell, QStyle::visualRect(cell.direction, area, text), Qt::AlignLeft);
}

// The number and its unit are aligned to the right of a field of fixed width, so that the digits
// keep their places from sample to sample.
void StatusDelegate::paintRate(QPainter& painter, const QStyleOptionViewItem& cell,
                               const QRect& area)
{
    const auto digit = std::find_if(cell.text.begin(), cell.text.end(),
                                    [](QChar character) { return character.isDigit(); });
    QStyleOptionViewItem lead = cell;
    lead.text = cell.text.left(digit - cell.text.begin());
    QStyleOptionViewItem number = cell;
    number.text = cell.text.mid(lead.text.size());
    const QFontMetrics& metrics = cell.fontMetrics;
    const int leadWidth = metrics.horizontalAdvance(lead.text);
    const int numberWidth = std::max(metrics.horizontalAdvance(QStringLiteral("000.000 MB/s")),
                                     metrics.horizontalAdvance(number.text));
    if (number.text.isEmpty() || leadWidth + numberWidth > area.width()) {
        paintText(painter, cell, area, Qt::AlignLeft);
        return;
    }
    paintText(painter, lead, area, Qt::AlignLeft);
    const QRect field(area.left() + leadWidth, area.top(), numberWidth, area.height());
    paintText(painter, number, field, Qt::AlignRight);
}

void PercentDelegate::paintContent(QPainter& painter, const QStyleOptionViewItem& cell,
                                   const QRect& area, const QModelIndex& index) const
{
    const int textWidth = cell.fontMetrics.horizontalAdvance(QStringLiteral("100%"));
    QRect text = area;
    text.setLeft(area.right() - textWidth);
    QRect bar = area;
    bar.setRight(text.left() - cellMargin(cell.fontMetrics));
    bar.setHeight(barHeight(cell.fontMetrics));
    bar.moveTop(area.center().y() - bar.height() / 2);

    paintBar(painter, QStyle::visualRect(cell.direction, area, bar),
             index.data(StatusTableModel::PercentRole).toInt(), barColors(cell), cell.direction);
    paintText(painter, cell, QStyle::visualRect(cell.direction, area, text), Qt::AlignRight);
}

} // namespace quenmoor
