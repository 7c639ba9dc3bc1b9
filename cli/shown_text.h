// How messages and amounts look to a person. For names see printableLine() in base/text.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quenmoor {

// `text` with its line feeds as blanks.
std::string oneLine(std::string text);

// "1.2 GB"; a MB is 1048576 bytes, as everywhere in this program.
std::string shownSize(std::int64_t bytes);

// `text`, which is UTF-8, in at most `columns` columns, with its middle left out for an ellipsis
// when it is longer. Counts a code point as a column.
std::string elidedMiddle(const std::string& text, std::size_t columns);

} // namespace quenmoor
