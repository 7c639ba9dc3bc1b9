// The link to the transfer server: a pair of UDT stream sockets.
//
// The connect socket announces one file. The rendezvous socket shares its local port and carries
// everything that follows. The link adds no framing: what one send hands over, one receive is
// expected to return.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace quenmoor {

// UDT's states, as far as anyone asks for them.
inline constexpr std::int32_t kSocketConnected = 5;
inline constexpr std::int32_t kSocketBroken = 6;

// What send() answers on a broken link or after ten seconds without room.
inline constexpr std::int32_t kLinkError = -1;

// Operations block the caller and report failure by their result; none of them throws. One thread
// uses a link at a time. The sockets belong to the caller, who closes them after every attempt,
// failed attempts included; closing twice is harmless.
class TransferLink {
public:
    virtual ~TransferLink() = default;

    // Opens `connectSocket`, connects it to the service and sends `text`. Takes up to 3 seconds
    // and a name look-up when nobody is there. After false the socket may be open: close it like
    // any other.
    [[nodiscard]] virtual bool connectAndSendRequest(std::int32_t& connectSocket,
                                                     const std::string& text) = 0;

    // Opens `rendezvousSocket` on the local port of `connectSocket` and meets the server there.
    // Gives up after 30 seconds and cannot be interrupted. After false, close as above.
    [[nodiscard]] virtual bool rendezvousWithServer(std::int32_t connectSocket,
                                                    std::int32_t& rendezvousSocket) = 0;

    // Sends `text` up to its first NUL byte in one piece; waits up to 10 seconds for room. True
    // unless the link reported an error: a piece of which only a part went out counts as sent.
    [[nodiscard]] virtual bool sendString(std::int32_t socket, const std::string& text) = 0;

    // Waits up to 10 seconds for one message of at most 65536 bytes. Empty when nothing came,
    // when the wait ran out, or when the bytes are not UTF-8. A message ends at a NUL byte.
    [[nodiscard]] virtual std::string receiveString(std::int32_t socket) = 0;

    // Offers `block` to the link, waiting for its turn and then up to 10 seconds for room. Returns
    // how many of its bytes the link took, or kLinkError.
    [[nodiscard]] virtual std::int32_t send(std::int32_t socket, std::span<const char> block) = 0;

    // How much the link took and the peer has not acknowledged yet, in packets: 0 means that all
    // of it arrived. Nothing when the socket cannot say.
    [[nodiscard]] virtual std::optional<std::int32_t> unacknowledged(std::int32_t socket) = 0;

    // The library's state of `socket`; nothing when the socket is gone.
    [[nodiscard]] virtual std::optional<std::int32_t> socketState(std::int32_t socket) = 0;

    // The library's words for the last failure on the calling thread.
    [[nodiscard]] virtual std::string lastErrorMessage() = 0;

    // Why the last operation of this link failed, as a sentence for a person without its full stop:
    // "media.example: Name or service not known". Empty before the first failure.
    [[nodiscard]] virtual std::string failureReason() = 0;

    // Closes the rendezvous socket, then the connect socket. Waits up to 2 seconds for each, for
    // data that the peer has not taken yet.
    virtual void closeSockets(std::int32_t rendezvousSocket, std::int32_t connectSocket) = 0;
};

} // namespace quenmoor
