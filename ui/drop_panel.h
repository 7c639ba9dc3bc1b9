// Invites to drop files: a dashed field with an arrow into a tray, in the colours of the palette.
#pragma once

#include <QFrame>

class QVBoxLayout;

namespace quenmoor {

class DropPanel : public QFrame {
    Q_OBJECT

public:
    explicit DropPanel(QWidget* parent = nullptr);

    // Where the Browse button stands while the panel is shown.
    QVBoxLayout* buttonPlace() const { return buttonPlace_; }

    // A drag that would be taken hovers over the window.
    void setHighlighted(bool highlighted);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QVBoxLayout* buttonPlace_;
    bool highlighted_ = false;
};

} // namespace quenmoor
