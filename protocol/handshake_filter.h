// A UDP socket that drops the handshakes of a hostile peer before the transport library reads them.
//
// The library sizes its buffers by the packet size and the window that the peer announces. A
// negative or huge value takes gigabytes, or makes an allocation fail where the library permits no
// exception, which ends the process. Nothing can be checked after the library has read the packet.
#pragma once

#include <optional>

struct sockaddr_in;

namespace quenmoor {

// Opens a UDP socket bound to `address`, port 0 for a free one. Returns its descriptor, which the
// caller owns, or nothing if the address is not available. On systems other than Linux, and where
// the kernel refuses the filter, the socket drops nothing.
[[nodiscard]] std::optional<int> openFilteredUdpSocket(const sockaddr_in& address);

} // namespace quenmoor
