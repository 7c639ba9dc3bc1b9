// Congestion control by PathModel and Pacer for one socket of the transport library.
//
// The library calls the control from its own threads: for a packet sent on its sending thread, with
// a lock of its own held, and for feedback on its receiving thread. Only the latter may change the
// library's period and window. It destroys the control on a third thread, seconds after the socket
// was closed.
#pragma once

#include <cstdint>
#include <memory>

#include "congestion/pacer.h"

namespace quenmoor {

// Installs the control on a socket that is not connected yet. Returns the pacer, which every block
// must pass before it is sent, or nullptr if the library refused. The control keeps its share of
// the pacer until the library destroys it.
[[nodiscard]] std::shared_ptr<Pacer> usePacedControl(std::int32_t socket);

} // namespace quenmoor
