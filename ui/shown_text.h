// File names as a line of the window shows them.
#pragma once

#include <QString>
#include <string_view>

namespace quenmoor {

// `bytes` as text on one line: what is not UTF-8 becomes U+FFFD, a control character the picture
// that Unicode has for it, a newline for one as U+240A.
QString shownText(std::string_view bytes);

} // namespace quenmoor
