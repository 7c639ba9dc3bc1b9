// The graphics that show how far an upload is: a glyph for its state and a progress bar. Every
// state has a shape as well as a colour.
#pragma once

#include "engine/attempt_event.h"

#include <QColor>
#include <QPalette>
#include <QProgressBar>
#include <QRectF>
#include <QString>

class QPainter;

namespace quenmoor {

enum class UploadState : std::uint8_t { Waiting, UnderWay, Done, Retrying, Failed, Canceled };

// The state that an upload has after an event of `kind`.
UploadState stateAfter(AttemptEventKind kind);

// One word or phrase in lower case, for assistive technology.
QString stateText(UploadState state);

// A glyph's colour on Base and AlternateBase.
QColor stateColor(UploadState state, const QPalette& palette);

// Paints into `square`. `background` is the colour below it.
void paintState(QPainter& painter, const QRectF& square, UploadState state, const QColor& color,
                const QColor& background);

struct BarColors {
    QColor fill;
    QColor outline;
    QColor background; // of the part that is not filled
};

// Fills `percent` (0 to 100) of `bar` from its leading side.
void paintBar(QPainter& painter, const QRectF& bar, int percent, const BarColors& colors,
              Qt::LayoutDirection direction);

// The height of a bar beside text of this font, in pixels.
int barHeight(const QFontMetrics& metrics);

// The glyph of one upload, as large as a line of text. Main thread only.
class StateGlyph : public QWidget {
    Q_OBJECT

public:
    using QWidget::QWidget;

    void setState(UploadState state);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    UploadState state_ = UploadState::Waiting;
};

// A progress bar like those of the table. Main thread only.
class FlatProgressBar : public QProgressBar {
    Q_OBJECT

public:
    using QProgressBar::QProgressBar;

    // A bar that is not active is grey.
    void setActive(bool active);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool active_ = false;
};

} // namespace quenmoor
