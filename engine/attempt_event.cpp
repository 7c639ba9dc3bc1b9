#include "engine/attempt_event.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace quenmoor {
namespace {

constexpr double kMostSeconds = 1e9; // an estimate beyond 30 years has no meaning

} // namespace

std::string_view stepName(AttemptStep step)
{
    switch (step) {
    case AttemptStep::Open: return "open";
    case AttemptStep::Announce: return "announce";
    case AttemptStep::Rendezvous: return "rendezvous";
    case AttemptStep::Response: return "response";
    case AttemptStep::Refused: return "refused";
    case AttemptStep::Confirm: return "confirm";
    case AttemptStep::Send: return "send";
    case AttemptStep::Drain: return "drain";
    case AttemptStep::Finish: return "finish";
    }
    return "";
}

std::string_view phaseName(AttemptStep step)
{
    switch (step) {
    case AttemptStep::Open:
    case AttemptStep::Announce:
    case AttemptStep::Rendezvous: return "connecting";
    case AttemptStep::Send: return "sending";
    case AttemptStep::Response:
    case AttemptStep::Refused:
    case AttemptStep::Confirm:
    case AttemptStep::Drain:
    case AttemptStep::Finish: break;
    }
    return "waiting for the server";
}

std::optional<std::chrono::seconds> timeLeft(const AttemptEvent& event)
{
    if (event.kind != AttemptEventKind::Progress || event.averageRate <= 0)
        return std::nullopt;
    const auto bytes = static_cast<double>(std::max<std::int64_t>(event.total - event.bytes, 0));
    const double seconds = std::ceil(bytes / kBytesPerMebibyte / event.averageRate);
    return std::chrono::seconds(static_cast<std::int64_t>(std::min(seconds, kMostSeconds)));
}

std::string statusText(const AttemptEvent& event)
{
    switch (event.kind) {
    case AttemptEventKind::Started: return "Connecting";
    case AttemptEventKind::Progress: return fmt::format("Uploading at {:.03f} MB/s", event.rate);
    case AttemptEventKind::Failed:
    case AttemptEventKind::GaveUp: return "Waiting (Error)";
    case AttemptEventKind::Waiting:
        return fmt::format("Retrying in {}s", event.secondsLeft.count());
    case AttemptEventKind::Finished: return "Finished";
    case AttemptEventKind::Cancelled: return "Canceled";
    case AttemptEventKind::StepChanged: break;
    }
    return "";
}

std::int32_t statusPercent(const AttemptEvent& event)
{
    switch (event.kind) {
    case AttemptEventKind::Started:
    case AttemptEventKind::Cancelled: return 0;
    case AttemptEventKind::Progress: return percentSent(event.bytes, event.total);
    case AttemptEventKind::Finished: return 100;
    case AttemptEventKind::StepChanged:
    case AttemptEventKind::Failed:
    case AttemptEventKind::Waiting:
    case AttemptEventKind::GaveUp: break;
    }
    return -1;
}

std::int32_t percentSent(std::int64_t bytes, std::int64_t total)
{
    if (total <= 0)
        return 100;
    const double percent = static_cast<double>(bytes) / static_cast<double>(total) * 100;
    return static_cast<std::int32_t>(std::clamp(std::nearbyint(percent), 0.0, 100.0));
}

} // namespace quenmoor
