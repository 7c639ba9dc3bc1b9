#include "ui/page/failure_panel.h"

#include "ui/look.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace quenmoor {
namespace {

constexpr int kTextWidth = 52; // in average characters, for lines that read well

QLabel* makeText(const QString& name)
{
    auto* const label = new QLabel;
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText); // it may hold words that came from the network
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignHCenter);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

} // namespace

FailurePanel::FailurePanel(QWidget* parent)
    : QWidget(parent),
      reason_(makeText(QStringLiteral("failureReason"))),
      detail_(makeText(QStringLiteral("failureDetail"))),
      reload_(new QPushButton(QStringLiteral("&Reload")))
{
    setObjectName(QStringLiteral("failurePanel"));
    auto* const heading = makeText(QStringLiteral("failureHeading"));
    heading->setFont(scaledFont(heading->font(), kHeadingScale));
    heading->setText(QStringLiteral("The upload page is not available"));
    reload_->setObjectName(QStringLiteral("reloadButton"));
    reload_->setAccessibleName(QStringLiteral("Reload the upload page"));
    reload_->setAutoDefault(true); // Return presses it as well as the space bar
    connect(reload_, &QPushButton::clicked, this, &FailurePanel::reloadRequested);

    const int line = fontMetrics().height();
    auto* const column = new QWidget;
    column->setMaximumWidth(fontMetrics().averageCharWidth() * kTextWidth);
    auto* const rows = new QVBoxLayout(column);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(line / 2);
    rows->addStretch();
    rows->addWidget(heading);
    rows->addWidget(reason_);
    rows->addWidget(detail_);
    rows->addSpacing(line / 2);
    rows->addWidget(reload_, 0, Qt::AlignHCenter);
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

void FailurePanel::focusReload()
{
    reload_->setFocus(Qt::OtherFocusReason);
}

} // namespace quenmoor
