// Where the programs under measurement lie, and how long to measure.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quenmoor {

struct BenchSetup {
    std::filesystem::path programs; // quenmoor-put and the others
    std::filesystem::path folder;   // room for a few GB, best in memory; files come and go
    int rounds = 5;                 // how often each figure and its limit take turns
    std::int64_t largeFile = 1LL << 30;
    int smallFiles = 40; // a round
    int linkRounds = 2;
    double linkSeconds = 5;
    std::vector<std::string> links; // by name; empty: the usual ones
};

// Tells whoever waits how far a long run is, on standard error.
void sayProgress(const std::string& what, int round, int rounds);

} // namespace quenmoor
