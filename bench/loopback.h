// quenmoor-put on loopback, where nothing but processors limits it, beside quenmoor-bare-send.
#pragma once

#include "bench/bench_setup.h"
#include "bench/figures.h"

namespace quenmoor {

// One large file: speed, and the processor time of both sides. Throws std::runtime_error when a
// program fails.
[[nodiscard]] std::vector<Figure> loopbackFigures(const BenchSetup& setup);

// Many small files: time per file. Throws as above.
[[nodiscard]] std::vector<Figure> smallFileFigures(const BenchSetup& setup);

} // namespace quenmoor
