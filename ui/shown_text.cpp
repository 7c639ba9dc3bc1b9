#include "ui/shown_text.h"

#include "base/text.h"

namespace quenmoor {
namespace {

constexpr char16_t kFirstPicture = 0x2400; // the picture of NUL; the others follow in order
constexpr char16_t kDelete = 0x7F;
constexpr char16_t kDeletePicture = 0x2421;

} // namespace

QString shownText(std::string_view bytes)
{
    QString text = QString::fromStdString(displayText(bytes));
    for (QChar& c : text) {
        if (c.unicode() < u' ')
            c = QChar(static_cast<char16_t>(kFirstPicture + c.unicode()));
        else if (c.unicode() == kDelete)
            c = QChar(kDeletePicture);
    }
    return text;
}

} // namespace quenmoor
