// The link to the transfer server: a pair of UDT stream sockets.
//
// The connect socket announces one file. The rendezvous socket shares its local port and carries
// all later traffic. The link adds no framing: one receive is expected to return the bytes of one
// send.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace quenmoor {

// Two values of socketState(): a usable connection, and one that the peer closed or that was lost.
inline constexpr std::int32_t kSocketConnected = 5;
inline constexpr std::int32_t kSocketBroken = 6;

// The result of send() on a broken link, and after ten seconds in which the link took no data.
inline constexpr std::int32_t kLinkError = -1;

// All operations block, report failure in their result and never throw. One thread uses a link at a
// time. The caller closes the sockets after every attempt, including a failed one; closing a closed
// socket has no effect.
class TransferLink {
public:
    virtual ~TransferLink() = default;

    // Opens `connectSocket`, connects it to the service and sends `text`. Takes a name look-up and
    // up to 3 seconds if the service does not answer. If it returns false, the socket may be open.
    [[nodiscard]] virtual bool connectAndSendRequest(std::int32_t& connectSocket,
                                                     const std::string& text) = 0;

    // Opens `rendezvousSocket` on the local port of `connectSocket` and connects it to the server.
    // Times out after 30 seconds and cannot be interrupted. If it returns false, the socket may be
    // open.
    [[nodiscard]] virtual bool rendezvousWithServer(std::int32_t connectSocket,
                                                    std::int32_t& rendezvousSocket) = 0;

    // Sends `text` up to its first NUL byte in one call, which waits up to 10 seconds for space in
    // the send buffer. Returns true unless the link reported an error; a partial send is a success.
    [[nodiscard]] virtual bool sendString(std::int32_t socket, const std::string& text) = 0;

    // Waits up to 10 seconds for one message of at most 65536 bytes, which ends at its first NUL
    // byte. Returns an empty string if nothing arrived or if the bytes are not valid UTF-8.
    [[nodiscard]] virtual std::string receiveString(std::int32_t socket) = 0;

    // Passes `block` to the link as soon as the congestion control permits, then waits up to 10
    // seconds for space in the send buffer. Returns the number of bytes that the link took, or
    // kLinkError. An empty block tests whether the link is broken.
    [[nodiscard]] virtual std::int32_t send(std::int32_t socket, std::span<const char> block) = 0;

    // Returns the number of packets that the link took and the peer has not acknowledged, or
    // nothing if the socket is gone.
    [[nodiscard]] virtual std::optional<std::int32_t> unacknowledged(std::int32_t socket) = 0;

    // Returns the library's state of `socket`, or nothing if the socket is gone.
    [[nodiscard]] virtual std::optional<std::int32_t> socketState(std::int32_t socket) = 0;

    // Returns the library's message for the last failure on the calling thread.
    [[nodiscard]] virtual std::string lastErrorMessage() = 0;

    // Returns why the last failed operation of this link failed, for the user and without a full
    // stop: "media.example: Name or service not known". Empty before the first failure.
    [[nodiscard]] virtual std::string failureReason() = 0;

    // Closes the rendezvous socket, then the connect socket. Waits up to 2 seconds for each while
    // the peer has not acknowledged all data.
    virtual void closeSockets(std::int32_t rendezvousSocket, std::int32_t connectSocket) = 0;
};

} // namespace quenmoor
