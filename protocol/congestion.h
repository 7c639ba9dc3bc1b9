// Which congestion control a sender uses. Nothing of it is seen on the wire.
#pragma once

#include <cstdint>

namespace quenmoor {

enum class Congestion : std::uint8_t {
    Library, // the transport library's own
    Paced,   // ours, see path_model.h
};

// Chosen when the program is built.
inline constexpr Congestion kBuiltInCongestion = Congestion::QUENMOOR_CONGESTION;

} // namespace quenmoor
