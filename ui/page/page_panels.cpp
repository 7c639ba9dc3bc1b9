#include "ui/page/page_panels.h"

#include "ui/appearance.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace quenmoor {
namespace {

constexpr int kPanelTextWidth = 52; // in average characters

QLabel* makePanelText(const QString& name)
{
    auto* const label = new QLabel;
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText); // the text may come from the network
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignHCenter);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

} // namespace

LoadingPanel::LoadingPanel(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("loadingPanel"));
    setAccessibleName(QStringLiteral("Loading the upload page"));
    setFocusPolicy(Qt::StrongFocus);
    auto* const text = new QLabel(QStringLiteral("Loading…"));
    text->setFont(scaledFont(text->font(), kHeadingScale));
    text->setForegroundRole(QPalette::PlaceholderText);
    auto* const rows = new QVBoxLayout(this);
    rows->addWidget(text, 0, Qt::AlignCenter);
}

FailurePanel::FailurePanel(QWidget* parent)
    : QWidget(parent),
      reason_(makePanelText(QStringLiteral("failureReason"))),
      detail_(makePanelText(QStringLiteral("failureDetail")))
{
    setObjectName(QStringLiteral("failurePanel"));
    auto* const reload = new QPushButton(QStringLiteral("&Reload"));
    reload->setObjectName(QStringLiteral("reloadButton"));
    reload->setAccessibleName(QStringLiteral("Reload the upload page"));
    reload->setAutoDefault(true); // the Return key activates it, as does the space bar
    setFocusProxy(reload);
    auto* const heading = makePanelText(QStringLiteral("failureHeading"));
    heading->setFont(scaledFont(heading->font(), kHeadingScale));
    heading->setText(QStringLiteral("The upload page is not available"));
    connect(reload, &QPushButton::clicked, this, &FailurePanel::reloadRequested);

    const int line = fontMetrics().height();

    auto* const column = new QWidget;
    column->setMaximumWidth(fontMetrics().averageCharWidth() * kPanelTextWidth);
    auto* const rows = new QVBoxLayout(column);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(line / 2);
    rows->addStretch();
    rows->addWidget(heading);
    rows->addWidget(reason_);
    rows->addWidget(detail_);
    rows->addSpacing(line / 2);
    rows->addWidget(reload, 0, Qt::AlignHCenter);
    rows->addStretch();

    auto* const middle = new QHBoxLayout(this);
    middle->setContentsMargins(line, line, line, line);
    middle->addWidget(column);
}

void FailurePanel::setFailure(const QString& reason, const QString& detail)
{
    reason_->setText(reason);
    detail_->setText(detail);
    detail_->setVisible(!detail.isEmpty());
    setAccessibleName(reason);
}

} // namespace quenmoor
