// The user's style with more room around a table's headings.
#pragma once

#include "ui/look.h"

#include <QProxyStyle>
#include <QWidget>

namespace quenmoor {

class HeaderStyle : public QProxyStyle {
    Q_OBJECT

public:
    int pixelMetric(PixelMetric metric, const QStyleOption* option,
                    const QWidget* widget) const override
    {
        if (metric == PM_HeaderMargin && widget != nullptr)
            return cellMargin(widget->fontMetrics());
        return QProxyStyle::pixelMetric(metric, option, widget);
    }
};

} // namespace quenmoor
