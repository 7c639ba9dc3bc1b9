// Text in the columns of a terminal. East Asian wide characters take two columns, combining
// characters none.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quenmoor {

// Any thread. The columns of UTF-8 `text` on one line, by the width table of the C library.
std::size_t columnsOf(std::string_view text);

// Any thread. `text` in at most `columns` columns, an ellipsis in place of its middle if it is
// wider. A character keeps its combining characters.
std::string elideMiddle(const std::string& text, std::size_t columns);

// For each path the shortest part of its end, in whole components, that no other path ends with;
// the whole path if it is given twice. Never empty: a folder has its name, the root is "/".
std::vector<std::string> distinctEnds(const std::vector<std::string>& paths);

} // namespace quenmoor
