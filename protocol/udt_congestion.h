// Congestion control by PathModel and Pacer for one socket of the transport library, and the
// retransmissions that the library does not make.
//
// The library calls the control from its own threads: for a packet sent on its sending thread, with
// a lock of its own held, and for feedback on its receiving thread. Only the latter may change the
// library's period and window. It destroys the control on a third thread, seconds after the socket
// was closed.
#pragma once

#include "protocol/udt_socket.h"

#include <cstdint>
#include <memory>

#include "congestion/pacer.h"

namespace quenmoor {

// Used by the thread that sends the file.
class Repairs {
public:
    virtual ~Repairs() = default;

    // Retransmits every packet that is due, at most once in 10 ms. Does not block. The control does
    // so after each feedback, which may cease.
    virtual void send() = 0;
};

struct PacedControl {
    std::shared_ptr<Pacer> pacer; // every block must pass it before it is sent
    std::shared_ptr<Repairs> repairs;
};

// Installs the control on a socket that is not connected yet. `port` is the UDP port to which the
// socket is going to be bound, and `peer` the address to which it is going to be connected. Both
// results are null if the library refused. The control keeps its share of them until the library
// destroys it.
[[nodiscard]] PacedControl usePacedControl(std::int32_t socket, UdpPort port,
                                           const UdtAddress& peer);

} // namespace quenmoor
