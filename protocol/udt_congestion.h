// Congestion control by PathModel for one socket of the transport library.
//
// The library calls from its own threads: it tells of packets sent on the sending one, with a
// lock of its own held, and of everything heard on the receiving one. Only the latter may change
// the pace. The last call comes from a third thread, seconds after the socket was closed.
#pragma once

#include <cstdint>
#include <memory>

#include "congestion/pacer.h"

namespace quenmoor {

// Before the socket is connected; later it is refused, with nullptr. Every block that is sent then
// passes the gate first. The library keeps its share of the gate until the last call.
[[nodiscard]] std::shared_ptr<Pacer> usePacedControl(std::int32_t socket);

} // namespace quenmoor
