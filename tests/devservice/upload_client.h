// One attempt of a client, step by step, over the real link.
#pragma once

#include "protocol/documents.h"
#include "protocol/udt_transfer_link.h"

#include <optional>
#include <string>
#include <string_view>

namespace quenmoor {

class UploadClient {
public:
    explicit UploadClient(std::uint16_t port) : link_("127.0.0.1", port) {}
    ~UploadClient() { close(); }
    UploadClient(const UploadClient&) = delete;
    UploadClient& operator=(const UploadClient&) = delete;

    bool request(const std::string& name, std::int64_t size, const std::string& token = "token")
    {
        const RequestContainer record{name, token, size};
        return link_.connectAndSendRequest(connect_,
                                           buildXML(record.XMLpayload(), "RequestContainer"));
    }

    // Nothing when the server did not answer with a document.
    std::optional<ResponseContainer> announce(const std::string& name, std::int64_t size,
                                              const std::string& token = "token")
    {
        if (!request(name, size, token) || !link_.rendezvousWithServer(connect_, rendezvous_))
            return std::nullopt;
        const std::string text = receive();
        if (text.find("</ResponseContainer>") == std::string::npos)
            return std::nullopt;
        return ResponseContainer().parseXML(text);
    }

    // What the server's refusal of a file looks like.
    bool refused(const std::string& name, std::int64_t size, const std::string& token = "token")
    {
        const auto response = announce(name, size, token);
        return response && response->response == 1 && !response->exists;
    }

    static std::string confirmation(bool resume, bool overwrite)
    {
        return buildXML(ConfirmContainer{resume, overwrite}.XMLpayload(), "ConfirmContainer");
    }

    bool send(std::string_view bytes)
    {
        while (!bytes.empty()) {
            const std::int32_t sent = link_.send(rendezvous_, bytes);
            if (sent == kLinkError)
                return false;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    std::string receive() { return link_.receiveString(rendezvous_); }

    // The size in the closing document; nothing when none came.
    std::optional<std::int64_t> finished()
    {
        const std::string text = receive();
        if (text.find("</FinishedContainer>") == std::string::npos)
            return std::nullopt;
        return FinishedContainer().parseXML(text).size;
    }

    // True once the server has closed the link.
    bool wasDropped()
    {
        return receive().empty() && link_.socketState(rendezvous_) != kSocketConnected;
    }

    void close()
    {
        if (connect_ != 0)
            link_.closeSockets(rendezvous_, connect_);
        connect_ = 0;
    }

private:
    UdtTransferLink link_;
    std::int32_t connect_ = 0;
    std::int32_t rendezvous_ = 0;
};

} // namespace quenmoor
