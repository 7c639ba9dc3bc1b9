// The library's congestion control and ours over emulated links.
//
// The link is a relay in this process, so it takes its share of the processors: over a few hundred
// Mbit/s it measures the machine.
#pragma once

#include "bench/bench_setup.h"
#include "bench/figures.h"

namespace quenmoor {

// Names of the links, the usual ones first.
[[nodiscard]] std::vector<std::string> linkNames();

// Throws std::runtime_error when a program fails or a link has no such name.
[[nodiscard]] std::vector<Figure> linkFigures(const BenchSetup& setup);

} // namespace quenmoor
