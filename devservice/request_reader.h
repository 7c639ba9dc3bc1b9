// Reads the two documents that a client sends.
//
// They look like XML and are not: a client puts token and name in byte for byte, so that "&", "<",
// line feeds and bytes that are no UTF-8 stand there as they are. What counts is the text between
// two tags. Pure functions; any thread.
#pragma once

#include "protocol/documents.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace quenmoor {

// Longer documents are no client's: a name has at most 255 bytes and a token is one line.
inline constexpr std::size_t kLongestRequest = 16384;
inline constexpr std::size_t kLongestConfirmation = 4096;

// Whether `text` holds a request up to its end tag.
[[nodiscard]] bool endsRequest(std::string_view text);

// The announced file. The name reaches up to the last of its end tags, since it may hold one
// itself; whether it is fit to be stored is not judged here. The size may be negative.
// Nothing when a part is missing or the size is not a decimal number of 64 bits.
[[nodiscard]] std::optional<RequestContainer> readRequest(std::string_view text);

// How many bytes of `text` belong to the confirmation at its beginning; what stands behind them
// is the file. Nothing while its end tag has not come.
[[nodiscard]] std::optional<std::size_t> confirmationLength(std::string_view text);

// Nothing unless both values are there as "true" or "false".
[[nodiscard]] std::optional<ConfirmContainer> readConfirmation(std::string_view text);

} // namespace quenmoor
