// The sections of quenmoor-bench. Each runs the built programs and returns its figures.
//
// Every function blocks until it has measured, prints its progress on standard error and throws
// std::runtime_error with the reason if a figure cannot be measured.
#pragma once

#include "bench/figures.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quenmoor {

struct Settings {
    std::filesystem::path programs; // the folder of quenmoor-put and the others
    int rounds = 5;                 // measurements of each figure and of its limit
    std::int64_t largeFile = 1LL << 30;
    int smallFiles = 40;                 // in a round
    std::vector<std::string> links = {}; // names, or "all"; empty: the default links
    int linkRounds = 2;
    double linkSeconds = 5; // of a transfer over a link
};

// quenmoor-put on loopback, where the processors are the limit, beside quenmoor-bare-send.
[[nodiscard]] std::vector<Figure> largeFileFigures(const Settings& settings);
[[nodiscard]] std::vector<Figure> smallFileFigures(const Settings& settings);

// The library's congestion control and ours over emulated links. The relay runs in this process
// and uses its processors: above a few hundred Mbit/s the machine is the limit.
[[nodiscard]] std::vector<Figure> linkFigures(const Settings& settings);
[[nodiscard]] std::vector<std::string> linkNames();

// Start-up and idle cost of quenmoor-upload, without a display, with a local service on the
// built-in ports. Takes under half a minute.
[[nodiscard]] std::vector<Figure> windowFigures(const Settings& settings);

// The figures of `program`, which uses Google Benchmark. Takes under half a minute.
[[nodiscard]] std::vector<Figure>
benchmarkFigures(const Settings& settings, const std::string& program, const std::string& section);

void printProgress(const std::string& what, int round, int rounds);

} // namespace quenmoor
