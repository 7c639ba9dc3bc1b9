// All outside of an upload engine: the user, the link, the server, the local files and the time. A
// seed determines each fault and decision. Each call of the engine is checked for the invariants.
#pragma once

#include "engine/upload_engine.h"
#include "tests/engine/history.h"
#include "tests/engine/simulated_sources.h"
#include "tests/fakes/fake_clock.h"
#include "tests/fakes/fake_transfer_link.h"

#include <array>
#include <random>

namespace quenmoor {

class Simulation : public FakeTransferLink, public FakeClock, public UploadView, public History {
public:
    Simulation(SimulatedSources& sources, unsigned seed) : sources_(sources), random_(seed)
    {
        policy.attempts = chance(3) ? 1 + pick(12U) : 10;
        if (chance(6))
            policy.timeLimit = std::chrono::seconds(pick(600));
        policy.keepGoing = chance(2);
        policy.giveUpLostSource = chance(2);
        failingInTen_ = chance(8) ? 10 : pick(8);
        takeAtMost = chance(2) ? 1 << 20 : 500 + pick(20000);
        for (int files = 1 + pick(3); files > 0; --files)
            addFile();
        for (int actions = pick(5); actions > 0; --actions)
            actions_.insert(pick(chance(2) ? 60 : 400));
    }

    // For `time`, every attempt fails by `away`. The server has a half of each of two files, which
    // the user resumes.
    Simulation(SimulatedSources& sources, LinkFault away, std::chrono::nanoseconds time)
        : sources_(sources), random_(1), away_(away), backAt_(nanoseconds() + time.count())
    {
        policy.attempts = 1U << 30U;
        addFile();
        addFile();
    }

    // Runs an engine to its end. Returns the first invariant that did not hold, or nullptr.
    const char* run()
    {
        UploadEngine(queues, *this, *this, *this, policy).uploadFile();
        closeAttempt();
        const int stops = a_.gaveUp && !leftQueue() ? 1 : 0;
        check(kAlert, finalAlerts_ == stops && terminations_ == stops);
        check(kFinal, (ending() || stops == 1) && rowsDone_ + queues.uploadCount() == rows_.size());
        sources_.repair();
        return violated_;
    }

    UploadQueues queues;
    std::function<void()> onAttemptEnd = [] {};

    bool connectAndSendRequest(std::int32_t& connectSocket, const std::string& text) override
    {
        begin();
        const RequestContainer request{source().path.filename(), row().token, row().total()};
        check(kOrder, text == buildXML(request.XMLpayload(), "RequestContainer"));
        check(kOneAttempt, !std::exchange(a_.connected, true));
        check(kSockets, openSockets.empty());
        drawFault();
        return passed(FakeTransferLink::connectAndSendRequest(connectSocket, text),
                      AttemptStep::Announce, std::chrono::seconds(pick(2) * 3));
    }

    bool rendezvousWithServer(std::int32_t connectSocket, std::int32_t& socket) override
    {
        begin();
        return passed(FakeTransferLink::rendezvousWithServer(connectSocket, socket),
                      AttemptStep::Rendezvous, std::chrono::seconds(30));
    }

    bool sendString(std::int32_t socket, const std::string& text) override
    {
        begin();
        const ConfirmContainer expected{row().choice != kCancel, row().choice == kOverwrite};
        check(kAnswer, row().choice != kUndecided);
        check(kDecision, text == buildXML(expected.XMLpayload(), "ConfirmContainer"));
        a_.confirmed = true;
        return passed(FakeTransferLink::sendString(socket, text), AttemptStep::Confirm);
    }

    std::string receiveString(std::int32_t socket) override
    {
        begin();
        std::string text = FakeTransferLink::receiveString(socket);
        if (!text.empty() && plan_.fault == LinkFault::Damage && chance(2))
            damage(text);
        if (a_.undrained && chance(2))
            text.clear();
        const AttemptStep step = !a_.seen       ? AttemptStep::Response
                                 : a_.undrained ? AttemptStep::Drain
                                                : AttemptStep::Finish;
        if (passed(!text.empty(), step, std::chrono::seconds(10)))
            a_.seen ? closingArrived(text) : responseArrived(text);
        return text;
    }

    std::int32_t send(std::int32_t socket, std::span<const char> block) override
    {
        begin();
        const std::string_view bytes(block.data(), block.size());
        const auto position = std::clamp<std::int64_t>(offset() + a_.sent, 0, row().total());
        const auto rest =
            std::string_view(row().content).substr(static_cast<std::size_t>(position));
        check(kAnswer, row().choice != kUndecided);
        check(kDecision, a_.confirmed == a_.seen.value().exists);
        check(kSize, bytes.size() <= rest.size());
        check(kContent, rest.starts_with(bytes) && (!bytes.empty() || source().damaged));
        a_.sending = true;
        if (chance(16))
            sample();
        const std::int32_t accepted = FakeTransferLink::send(socket, block);
        if (passed(accepted != kLinkError, AttemptStep::Send)) {
            a_.sent += accepted;
            row().sent += accepted;
        }
        return accepted;
    }

    std::optional<std::int32_t> unacknowledged(std::int32_t /*socket*/) override
    {
        drain(plan_.fault != LinkFault::Stall, state == kSocketConnected);
        return a_.undrained ? 5 : std::exchange(inFlight_, inFlight_ / 2);
    }

    void reloadProgressGrid(std::optional<std::int32_t> percent) override
    {
        check(kPercent, percent.value_or(0) >= 0 && percent.value_or(0) <= 100);
    }

    void setStatusBar(const std::string& filename, const std::string& rate) override
    {
        check(kText, filename + rate == "[none]Upload rate: 0.000 MB/s" ||
                         filename == source().path.filename().string());
    }

    std::optional<std::int32_t> runModal(const Alert& alert) override
    {
        if (alert.buttons.empty()) {
            ++finalAlerts_;
            const std::string reason = noResponse_ ? "Response from server not received." : "";
            check(kAlert,
                  alert.messageText == "Upload attempt unsuccessful.  Unable to continue.  The "
                                       "application will exit.\nReason: " +
                                           reason);
            return kFirstButton;
        }
        step();
        const ResponseContainer& seen = a_.seen.value();
        check(kQuestion, seen.exists && row().choice == kUndecided);
        check(kAnswer, !a_.confirmed && !a_.sending);
        std::vector<std::string> buttons{"Cancel", "Overwrite"};
        if (seen.equal && !seen.complete)
            buttons.emplace_back("Resume");
        const std::string text = fmt::format(
            "A previous file for this upload has been found on Quenmoor Transfer server.\nThe file "
            "appears to be {} and the upload was {}.",
            seen.equal ? "the same" : "different", seen.complete ? "complete" : "incomplete");
        const ExistingCopy copy{seen.equal, seen.complete, seen.size, seen.empty};
        check(kButtons, alert == Alert{"File Exists", text, buttons, copy});
        if (ending())
            return std::nullopt;
        const std::size_t last = alert.buttons.size();
        const std::size_t button = away_ ? last : pick(last + 1); // 0: closed without one
        row().choice = std::array{kCancel, kCancel, kOverwrite, kResume}.at(button);
        return kFirstButton - 1 + static_cast<std::int32_t>(button);
    }

    void terminate() override { ++terminations_; }

    void attemptChanged(const AttemptEvent& event) override
    {
        using Kind = AttemptEventKind;
        if (event.kind == Kind::Started) {
            closeAttempt();
            startAttempt(event, nanoseconds());
        }
        checkEvent(event, *queues.tableList().objectAtIndex(event.row), nanoseconds());
        if (event.kind == Kind::Progress)
            return;
        if (event.kind == Kind::Waiting)
            check(kWaits, event.secondsLeft.count() == delay() - a_.waited);
        if (event.kind == Kind::StepChanged && event.step == AttemptStep::Send)
            check(kOffset, event.bytes == offset());
        if (event.kind == Kind::Finished || event.kind == Kind::Cancelled ||
            event.kind == Kind::Failed)
            recordOutcome(event);
        a_.gaveUp = a_.gaveUp || event.kind == Kind::GaveUp;
        step();
        if (event.kind == Kind::Started)
            a_.sourceLost = sourceLost();
    }

    bool sleep(std::chrono::milliseconds time, std::stop_token wake) override
    {
        if (wake.stop_possible() || time.count() == 0)
            return FakeClock::sleep(time, std::move(wake));
        step();
        if (time == std::chrono::milliseconds(200)) { // the queue is empty
            idlePolls = actions_.empty() ? 1 : 2;
            calls_ = actions_.empty() ? calls_ : *actions_.begin();
            return FakeClock::sleep(time, {});
        }
        if (time < std::chrono::milliseconds(200)) { // a poll, which lasts longer than asked
            time += kLag;
            check(kBounded, (a_.polled += time) < std::chrono::minutes(2));
        } else {
            ++a_.waited;
        }
        return FakeClock::sleep(time, {});
    }

protected:
    ResponseContainer describe() override
    {
        ResponseContainer is = FakeTransferLink::describe();
        if (is.exists)
            is.equal = row().content.starts_with(copy().bytes);
        truth_ = is;
        const std::array sizes{std::int64_t{-5}, is.size - 1,       is.size + 1,
                               row().total(),    row().total() + 1, INT64_MAX};
        if (plan_.fault == LinkFault::Lie)
            is = {chance(2), chance(2), chance(2), sizes.at(pick(sizes.size())), pick(4) - 1};
        if (!is.exists && truth_.exists)
            copies.erase(source().path.filename());
        return is;
    }

    std::int64_t heldSize() override
    {
        const std::int64_t lie = plan_.fault == LinkFault::Lie && chance(2) ? pick(5) - 2 : 0;
        return FakeTransferLink::heldSize() + lie;
    }

private:
    static constexpr std::chrono::milliseconds kLag{200};

    template <typename Number>
    Number pick(Number count)
    {
        return static_cast<Number>(random_() % static_cast<std::uint64_t>(count));
    }
    bool chance(int oneIn) { return pick(oneIn) == 0; }

    SimulatedSource& source() { return sources_.at(row().source); }

    bool sourceLost() { return policy.giveUpLostSource && source().lost(row().content.size()); }

    void addFile()
    {
        Row next{away_ ? 3 * rows_.size() : pick(sources_.size()), std::to_string(rows_.size())};
        const SimulatedSource& source = sources_[next.source];
        const std::string name = source.path.filename();
        queues.addFiles(std::array{FileUrl::fromPath(source.path)});
        if (queues.fileQueue().empty()) // the source is damaged
            return;
        const auto size = queues.fileQueue().front().size;
        next.content = source.grown.substr(0, static_cast<std::size_t>(size));
        if (!away_ && chance(6) && queues.cancelHead())
            return;
        if (away_)
            copies[name] = {next.content.substr(0, next.content.size() / 2), size};
        else if (calls_ == 0 && chance(3)) // the server has a part of the file, or another one
            copies[name] = {chance(3) ? std::string(pick(50000U), 'x')
                                      : next.content.substr(0, pick(next.content.size() + 1)),
                            chance(2) ? size : 7};
        if (queues.acceptToken(next.token))
            rows_.push_back(std::move(next));
    }

    // A call of the engine: applies the decisions and damages that are due.
    void step()
    {
        ++calls_;
        check(kBounded, ++a_.calls < 20000);
        if (a_.calls > 30000)
            end();
        while (!actions_.empty() && *actions_.begin() <= calls_) {
            actions_.erase(actions_.begin());
            act();
        }
    }

    void act()
    {
        const bool any = rows_.empty() || chance(3);
        SimulatedSource& source = sources_[any ? pick(sources_.size()) : row().source];
        switch (pick(6)) {
        case 0: return end();
        case 1: return addFile();
        case 2: serverLosesData_ = true; return;
        case 3: return source.repair();
        default: return source.damage(pick(6), pick(source.size + 1));
        }
    }

    // A call that begins or continues the exchange with the server.
    void begin()
    {
        check(kEnd, !ending());
        step();
    }

    bool passed(bool success, AttemptStep step, std::chrono::milliseconds time = {})
    {
        if (success)
            return true;
        static_cast<void>(FakeClock::sleep(time, {}));
        a_.failedAt = step;
        noResponse_ = noResponse_ || step <= AttemptStep::Response;
        return false;
    }

    void drawFault()
    {
        LinkPlan plan{LinkFault::None, away_ || chance(3) ? 0 : pick(row().total() + 1)};
        if (away_ ? nanoseconds() < backAt_ : pick(10) < failingInTen_)
            plan.fault = away_.value_or(static_cast<LinkFault>(1 + pick(10)));
        plans = {plan};
        lostOnBreak = pick(20000U);
        inFlight_ = pick(50);
        state = plan.fault == LinkFault::Stall && chance(2) ? kSocketBroken : kSocketConnected;
        const auto held = copies.find(source().path.filename());
        if (std::exchange(serverLosesData_, false) && held != copies.end())
            held->second.bytes.resize(pick(held->second.bytes.size() + 1));
    }

    void damage(std::string& text)
    {
        if (chance(2))
            text.resize(pick(text.size()));
        else
            text[pick(text.size())] = static_cast<char>(1 + pick(127));
    }

    void responseArrived(const std::string& text)
    {
        const ResponseContainer& seen = a_.seen.emplace().parseXML(text);
        row().misled = row().misled || seen.exists != truth_.exists || seen.size != truth_.size ||
                       seen.equal != truth_.equal;
        if (seen.response != 1 && !seen.exists && row().choice == kUndecided)
            row().choice = kNotAsked;
    }

    void closingArrived(const std::string& text)
    {
        a_.closing = FinishedContainer().parseXML(text).size;
        row().misled = row().misled || *a_.closing > FakeTransferLink::heldSize();
    }

    void closeAttempt()
    {
        check(kSockets, openSockets.empty());
        if (!rows_.empty() && row().attempts > 0)
            endAttempt(ending());
        onAttemptEnd();
        requests.clear();
        confirmations.clear();
        sentPerAttempt.clear();
    }

    void recordOutcome(const AttemptEvent& event)
    {
        using Kind = AttemptEventKind;
        check(kFinal, !a_.outcome);
        a_.outcome = event;
        const auto [kind, step, reason] = requiredOutcome();
        check(kOutcome, event.kind == kind && event.step == step &&
                            event.reason.starts_with(reason) &&
                            event.reason.empty() == (kind != Kind::Failed) &&
                            (kind != Kind::Failed || !ending()));
        if (kind == Kind::Finished)
            check(kIdentical, row().misled || copy().bytes == row().content);
        const bool sourceEnded = a_.sending && !a_.failedAt && !a_.closing;
        a_.sourceLost = a_.sourceLost || (sourceEnded && sourceLost());
        row().failures = a_.sent > 0 && !sourceEnded ? 1 : row().failures + 1;
    }

    SimulatedSources& sources_;
    std::mt19937 random_;
    const std::optional<LinkFault> away_ = {};
    const std::int64_t backAt_ = 0; // time of the clock
    int failingInTen_ = 0;
    std::multiset<std::int64_t> actions_; // the calls before which they happen
    bool serverLosesData_ = false;        // before the next response
    ResponseContainer truth_;
    std::int32_t inFlight_ = 0;
    std::int64_t calls_ = 0;
    bool noResponse_ = false; // in any attempt
    int finalAlerts_ = 0;
    int terminations_ = 0;
};

} // namespace quenmoor
