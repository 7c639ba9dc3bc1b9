// File names as a line of the window shows them.
#pragma once

#include <QString>
#include <string_view>

namespace quenmoor {

// `bytes` as text on one line: see printableLine().
QString shownText(std::string_view bytes);

} // namespace quenmoor
