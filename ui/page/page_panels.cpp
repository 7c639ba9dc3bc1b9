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

QPushButton* makePanelButton(const QString& text, const QString& name, const QString& description)
{
    auto* const button = new QPushButton(text);
    button->setObjectName(name);
    button->setAccessibleName(description);
    button->setAutoDefault(true); // the Return key activates it, as does the space bar
    return button;
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
      detail_(makePanelText(QStringLiteral("failureDetail"))),
      reload_(makePanelButton(QStringLiteral("&Reload"), QStringLiteral("reloadButton"),
                              QStringLiteral("Reload the upload page"))),
      skip_(makePanelButton(QStringLiteral("&Skip This File"), QStringLiteral("skipButton"),
                            QStringLiteral("Skip this file without uploading it")))
{
    setObjectName(QStringLiteral("failurePanel"));
    setFocusProxy(reload_);
    auto* const heading = makePanelText(QStringLiteral("failureHeading"));
    heading->setFont(scaledFont(heading->font(), kHeadingScale));
    heading->setText(QStringLiteral("The upload page is not available"));
    connect(reload_, &QPushButton::clicked, this, &FailurePanel::reloadRequested);
    connect(skip_, &QPushButton::clicked, this, &FailurePanel::skipRequested);

    const int line = fontMetrics().height();
    auto* const buttons = new QHBoxLayout;
    buttons->setSpacing(line / 2);
    buttons->addStretch();
    buttons->addWidget(reload_);
    buttons->addWidget(skip_);
    buttons->addStretch();

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
    rows->addLayout(buttons);
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

void FailurePanel::setSkipShown(bool shown)
{
    skip_->setVisible(shown);
}

} // namespace quenmoor
