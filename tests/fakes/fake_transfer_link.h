// A link to a small correct server, with one fault per attempt where a test asks for it.
//
// The server stores what it receives under the announced name. A broken link loses data: the
// latest `lostOnBreak` bytes that it accepted never reach the server.
#pragma once

#include "base/text.h"
#include "protocol/documents.h"
#include "protocol/transfer_link.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace quenmoor {

enum class LinkFault {
    None,
    RefuseConnect,
    RefuseRendezvous,
    Silent,      // no response
    Refuse,      // a response with code 1
    LoseConfirm, // the confirmation cannot be sent
    BreakAfter,  // the link breaks after `bytes` of this attempt
    NoFinished,  // no closing document
    Damage,      // for a subclass
    Lie,         // likewise
    Stall,       // likewise
    Garbage      // a response that is no document
};

struct LinkPlan {
    LinkFault fault = LinkFault::None;
    std::int64_t bytes = 0;
};

class FakeTransferLink : public TransferLink {
public:
    struct Copy {
        std::string bytes;
        std::int64_t total = 0;
        std::int64_t notKept = 0; // bytes before `bytes`, which the server has and the test has not

        std::int64_t size() const { return notKept + static_cast<std::int64_t>(bytes.size()); }
    };

    // One for each attempt; an attempt without a plan succeeds.
    std::deque<LinkPlan> plans;
    std::map<std::string, Copy> copies;
    std::int32_t takeAtMost = 1 << 20; // accepted by one send
    std::size_t lostOnBreak = 0;
    std::optional<std::int32_t> state = kSocketConnected;
    std::function<void()> onSend = [] {};
    std::function<void()> onClose = [] {};

    std::vector<std::string> requests;
    std::vector<std::string> confirmations; // "resume", "overwrite", "cancel"
    std::vector<std::int64_t> sentPerAttempt;
    std::set<std::int32_t> openSockets;

    bool connectAndSendRequest(std::int32_t& connectSocket, const std::string& text) override
    {
        plan_ = plans.empty() ? LinkPlan{} : plans.front();
        if (!plans.empty())
            plans.pop_front();
        requests.push_back(text);
        sentPerAttempt.push_back(0);
        responded_ = false;
        const std::size_t name = text.find("<originFilename>") + 16;
        name_ = text.substr(name, text.rfind("</originFilename>") - name);
        announced_ = leadingInt64(text.substr(text.find("<size>") + 6));
        connectSocket = open();
        return plan_.fault != LinkFault::RefuseConnect;
    }

    bool rendezvousWithServer(std::int32_t /*connectSocket*/, std::int32_t& socket) override
    {
        socket = open();
        return plan_.fault != LinkFault::RefuseRendezvous;
    }

    bool sendString(std::int32_t /*socket*/, const std::string& text) override
    {
        const bool overwrite = text.find("<overwrite>true") != std::string::npos;
        const bool resume = text.find("<resume>true") != std::string::npos;
        confirmations.emplace_back(!resume ? "cancel" : overwrite ? "overwrite" : "resume");
        if (plan_.fault == LinkFault::LoseConfirm)
            return false;
        if (overwrite)
            copies[name_] = {{}, announced_};
        return true;
    }

    std::string receiveString(std::int32_t /*socket*/) override
    {
        if (plan_.fault == (responded_ ? LinkFault::NoFinished : LinkFault::Silent))
            return {};
        if (std::exchange(responded_, true)) {
            copy().total = announced_;
            return fmt::format("<FinishedContainer>\n<size>{}</size>\n</FinishedContainer>",
                               heldSize());
        }
        if (plan_.fault == LinkFault::Garbage)
            return "garbage <";
        const ResponseContainer is = describe();
        return fmt::format("<ResponseContainer>\n<exists>{}</exists>\n<equal>{}</equal>\n"
                           "<complete>{}</complete>\n<size>{}</size>\n<response>{}</response>\n"
                           "</ResponseContainer>",
                           is.exists, is.equal, is.complete, is.size,
                           plan_.fault == LinkFault::Refuse ? 1 : is.response);
    }

    std::int32_t send(std::int32_t /*socket*/, std::span<const char> block) override
    {
        onSend();
        Copy& copy = copies[name_];
        copy.total = announced_;
        std::int64_t& sent = sentPerAttempt.back();
        auto taken = std::min<std::int64_t>(std::ssize(block), takeAtMost);
        if (plan_.fault == LinkFault::BreakAfter) {
            if (sent >= plan_.bytes) {
                const std::size_t lost = std::min(lostOnBreak, static_cast<std::size_t>(sent));
                copy.bytes.resize(copy.bytes.size() - lost);
                return kLinkError;
            }
            taken = std::min(taken, plan_.bytes - sent);
        }
        copy.bytes.append(block.data(), static_cast<std::size_t>(taken));
        sent += taken;
        return static_cast<std::int32_t>(taken);
    }

    std::optional<std::int32_t> unacknowledged(std::int32_t /*socket*/) override { return 0; }

    std::optional<std::int32_t> socketState(std::int32_t /*socket*/) override { return state; }
    std::string lastErrorMessage() override { return "Connection was broken."; }
    std::string failureReason() override { return "no answer"; }

    void closeSockets(std::int32_t rendezvousSocket, std::int32_t connectSocket) override
    {
        openSockets.erase(rendezvousSocket);
        openSockets.erase(connectSocket);
        onClose();
    }

protected:
    Copy& copy() { return copies[name_]; }

    // What the response contains.
    virtual ResponseContainer describe()
    {
        if (!copies.contains(name_))
            return {.size = 0, .response = 0};
        return {true, copy().total == announced_, copy().size() == copy().total, copy().size(), 0};
    }

    // The size that the closing document contains.
    virtual std::int64_t heldSize() { return copy().size(); }

    LinkPlan plan_;

private:
    std::int32_t open() { return *openSockets.insert(++lastSocket_).first; }

    bool responded_ = false;
    std::string name_;
    std::int64_t announced_ = 0;
    std::int32_t lastSocket_ = 100;
};

} // namespace quenmoor
