// The figures of quenmoor-micro-bench and quenmoor-table-bench.
#pragma once

#include "bench/figures.h"

#include <string>
#include <vector>

namespace quenmoor {

// Runs both programs of `binFolder`; takes under half a minute. What could not be measured is
// left out, and `whyNot` names it. Throws std::runtime_error when the system itself fails.
[[nodiscard]] std::vector<Figure> benchmarkFigures(const std::string& binFolder,
                                                   std::string& whyNot);

} // namespace quenmoor
