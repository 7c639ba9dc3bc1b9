#include "ui/shown_text.h"

#include "base/text.h"

namespace quenmoor {

QString shownText(std::string_view bytes)
{
    return QString::fromStdString(printableLine(bytes));
}

} // namespace quenmoor
