// The server's half of the documents: reads the two that a client sends, writes the two replies.
//
// What a client sends looks like XML but is not well-formed: it writes token and name unescaped,
// so that "&", "<", line feeds and bytes that are not UTF-8 occur in them. Only the text between
// two tags counts. Pure functions; any thread.
#pragma once

#include "protocol/documents.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quenmoor {

// The limits of what is read as one document. A name has at most 255 bytes and a token one line,
// so that no client's documents are longer.
inline constexpr std::size_t kMaxRequestBytes = 16384;
inline constexpr std::size_t kMaxConfirmationBytes = 4096;

// Whether `text` ends with the end tag of a request.
[[nodiscard]] bool endsRequest(std::string_view text);

// Returns the announced file, or nothing if an element is missing or the size is not a decimal
// number of 64 bits. The name extends to the last of its end tags, because it may contain one
// itself; whether it is a valid file name is not checked. The size may be negative.
[[nodiscard]] std::optional<RequestContainer> readRequest(std::string_view text);

// Returns the length of the confirmation at the beginning of `text`, or nothing before its end tag
// has arrived. The bytes after it belong to the file.
[[nodiscard]] std::optional<std::size_t> confirmationLength(std::string_view text);

// Returns nothing unless both values are "true" or "false".
[[nodiscard]] std::optional<ConfirmContainer> readConfirmation(std::string_view text);

// Writes all five values, each on a separate line. A client takes a missing flag for true.
std::string responseDocument(const ResponseContainer& response);

// `size` is the number of bytes that the server holds.
std::string finishedDocument(std::int64_t size);

} // namespace quenmoor
