// A UDT stream socket that closes itself.
//
// A socket is used by one thread, which also destroys it; interrupt() is for the others. Waits are
// short on purpose: a caller who has to wait long asks again and looks in between whether it is
// still wanted.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quenmoor {

// An IPv4 endpoint, in the byte order of this machine.
struct UdtAddress {
    std::uint32_t host = 0;
    std::uint16_t port = 0;

    // `host` is four numbers with dots; nothing for anything else.
    [[nodiscard]] static std::optional<UdtAddress> parse(const std::string& host,
                                                         std::uint16_t port);
    std::string text() const; // "127.0.0.1:65000"
};

struct Received {
    enum class Outcome { Bytes, NothingYet, Gone };

    Outcome outcome{};
    std::size_t count = 0; // more than 0 with Bytes, otherwise 0
};

class UdtSocket {
public:
    // How long receive() waits.
    static constexpr std::chrono::milliseconds kSlice{200};

    // The library runs from the first start() to as many stop()s. Sockets live in between.
    static void startLibrary();
    static void stopLibrary();

    // Listens on `address`; port 0 takes a free one. Nothing, with a sentence in `error`, when
    // the address cannot be had.
    [[nodiscard]] static std::optional<UdtSocket> listen(const UdtAddress& address,
                                                         std::string& error);

    // Begins to meet `peer` from `local`, which may be the address of a listener, and returns at
    // once; connected() tells when they have met. A peer that never comes is no error.
    [[nodiscard]] static std::optional<UdtSocket>
    rendezvous(const UdtAddress& local, const UdtAddress& peer, std::string& error);

    ~UdtSocket();
    UdtSocket(UdtSocket&& other) noexcept;
    UdtSocket& operator=(UdtSocket&& other) noexcept;

    // Blocks until a client comes, whose address goes to `peer`, or until interrupt(); nothing
    // then. Listeners only.
    [[nodiscard]] std::optional<UdtSocket> accept(UdtAddress& peer);

    // Any thread, while the socket lives. Ends it: a blocked accept() returns at once.
    void interrupt() const;

    [[nodiscard]] UdtAddress localAddress() const;

    // False before both sides have met, and again once the peer has closed or is lost.
    [[nodiscard]] bool connected() const;

    // Waits up to kSlice for bytes. What had come before the peer closed is delivered first.
    [[nodiscard]] Received receive(std::span<char> room);

    // Waits up to ten seconds for room. False when not all of `bytes` could be handed over.
    [[nodiscard]] bool send(std::string_view bytes);

    // Whether the peer has all that was sent.
    [[nodiscard]] bool acknowledged() const;

private:
    explicit UdtSocket(int handle) : handle_(handle) {}

    static UdtSocket open();
    void close();

    int handle_;
    bool waits_ = true; // the library's receive does
};

} // namespace quenmoor
