// Writes the two documents that the transfer server sends.
#pragma once

#include "protocol/documents.h"

#include <cstdint>
#include <string>

namespace quenmoor {

// Every value on a line of its own. All five are always there: a client takes a missing flag
// for one that holds.
std::string responseDocument(const ResponseContainer& response);

// `size` counts the bytes that the server holds.
std::string finishedDocument(std::int64_t size);

} // namespace quenmoor
