// The files and tokens of a run that are not arguments: token files, lists of files and the
// variable QUENMOOR_TOKENS. A token that is an argument is visible to every user of the machine.
#pragma once

#include "cli/put_options.h"

#include <optional>
#include <string>

namespace quenmoor {

struct InputOptions {
    std::string tokenFile;      // empty: none; "-": standard input
    std::string filesFrom;      // empty: none; "-": standard input
    bool nullSeparated = false; // the entries of `filesFrom` end with a NUL byte, not with a line
};

// Completes the files and tokens of `options`, which has those of the command line, and checks that
// every file has one token. Reads files, standard input and the environment. Returns an error
// message, which may contain control characters, or nothing.
[[nodiscard]] std::optional<std::string> readInputs(const InputOptions& inputs,
                                                    PutOptions& options);

} // namespace quenmoor
