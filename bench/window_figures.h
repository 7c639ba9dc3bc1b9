// The window by itself, on a local service: how soon it is ready, and what it costs when idle.
#pragma once

#include "bench/figures.h"

#include <string>
#include <vector>

namespace quenmoor {

// Starts the window of `binFolder` a few times, without a display, on a local service on the ports
// that are built in. Takes under half a minute. No figures, and the reason in `whyNot`, when that
// cannot be done: the ports are taken, certutil is missing, the window was not built. Throws
// std::runtime_error when the system itself fails.
[[nodiscard]] std::vector<Figure> windowFigures(const std::string& binFolder, std::string& whyNot);

} // namespace quenmoor
