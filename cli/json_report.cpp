#include "cli/json_report.h"

#include "cli/build_settings.h"

#include <nlohmann/json.hpp>

namespace quenmoor {
namespace {

using Json = nlohmann::ordered_json;

// Of the format. Changes when a member is removed or gets another meaning, not when one is added.
constexpr int kJsonVersion = 1;

void write(std::FILE* out, const Json& object)
{
    const std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
    std::fwrite(line.data(), 1, line.size(), out);
    std::fflush(out);
}

// The members that every object about a file has.
Json objectFor(const char* event, const Source& source)
{
    Json object{{"event", event}, {"file", source.name}, {"row", source.row}};
    object["total"] = source.size;
    if (source.attempt > 0)
        object["attempt"] = source.attempt;
    return object;
}

Json rateObject(const Source& source, const AttemptEvent& event, const RunProgress& run)
{
    Json object = objectFor("rate", source);
    object["percent"] = source.percent;
    object["bytes"] = event.bytes;
    if (!event.firstSample)
        object["mib_per_s"] = event.rate;
    if (event.averageRate > 0)
        object["average_mib_per_s"] = event.averageRate;
    if (const auto left = timeLeft(event))
        object["seconds_left"] = left->count();
    object["run_bytes"] = run.bytes;
    object["run_total"] = run.total;
    if (run.timeLeft)
        object["run_seconds_left"] = run.timeLeft->count();
    return object;
}

Json finishedObject(const Source& source, const AttemptEvent& event)
{
    Json object = objectFor("finished", source);
    object["percent"] = source.percent;
    object["bytes"] = event.total;
    object["sent_bytes"] = event.sentBytes;
    object["resumed_bytes"] = source.resumedBytes;
    object["seconds"] = std::chrono::duration<double>(event.elapsed).count();
    object["mib_per_s"] = averageRate(event);
    object["changed"] = event.sourceChanged;
    object["message"] = eventText(event);
    return object;
}

Json statusObject(const Source& source, const AttemptEvent& event)
{
    Json object = objectFor("status", source);
    object["status"] = statusText(event);
    object["percent"] = source.percent;
    if (event.kind == AttemptEventKind::Failed) {
        object["step"] = stepName(event.step);
        object["message"] = event.reason;
    }
    return object;
}

} // namespace

void writeCheck(std::FILE* out, const CheckOptions& options, const CheckResult& result)
{
    Json object{{"event", "check"},     {"version", kJsonVersion}, {"host", options.host},
                {"port", options.port}, {"works", result.works()}, {"message", result.message}};
    if (!result.works()) {
        object["step"] = result.failedAt;
        object["advice"] = result.advice;
    }
    if (!result.address.empty())
        object["address"] = result.address;
    if (result.roundTripMs > 0)
        object["round_trip_ms"] = result.roundTripMs;
    if (result.rendezvousMs > 0)
        object["rendezvous_ms"] = result.rendezvousMs;
    if (result.receiveBuffer)
        object["receive_buffer"] = *result.receiveBuffer;
    write(out, object);
}

JsonReport::JsonReport(std::FILE* out) : out_(out)
{
    write(out_, {{"event", "start"}, {"version", kJsonVersion}, {"program", kVersion}});
}

void JsonReport::queued(const Source& source)
{
    Json object = objectFor("queued", source);
    object["status"] = "Queued";
    object["percent"] = 0;
    write(out_, object);
}

void JsonReport::unreadable(const Source& source, const std::string& why)
{
    Json object = objectFor("failed", source);
    object["step"] = "open";
    object["message"] = unreadableText(why);
    write(out_, object);
}

void JsonReport::attemptChanged(const Source& source, const AttemptEvent& event,
                                const RunProgress& run)
{
    if (event.kind != AttemptEventKind::GaveUp && event.kind != AttemptEventKind::StepChanged)
        write(out_, statusObject(source, event));
    Json object;
    switch (event.kind) {
    case AttemptEventKind::StepChanged:
        object = objectFor("step", source);
        object["step"] = stepName(event.step);
        object["message"] = phaseName(event.step);
        break;
    case AttemptEventKind::Progress: object = rateObject(source, event, run); break;
    case AttemptEventKind::Finished: object = finishedObject(source, event); break;
    case AttemptEventKind::Cancelled:
        object = objectFor(source.state == SourceState::Skipped ? "skipped" : "cancelled", source);
        object["message"] = eventText(source, event);
        break;
    case AttemptEventKind::GaveUp:
        object = objectFor("failed", source);
        object["step"] = stepName(event.step);
        object["message"] = eventText(event);
        break;
    case AttemptEventKind::Started:
    case AttemptEventKind::Failed:
    case AttemptEventKind::Waiting: return;
    }
    write(out_, object);
}

void JsonReport::answered(const Source& source, const std::string& text)
{
    Json object = objectFor("question", source);
    object["message"] = text;
    write(out_, object);
}

void JsonReport::summary(const RunOutcome& outcome)
{
    write(out_, {{"event", "summary"},
                 {"status", outcome.status},
                 {"interrupted", outcome.interrupted},
                 {"finished", outcome.finished},
                 {"changed", outcome.changed},
                 {"skipped", outcome.skipped},
                 {"cancelled", outcome.cancelled},
                 {"unreadable", outcome.unreadable},
                 {"gave_up", outcome.gaveUp},
                 {"unfinished", outcome.unfinished},
                 {"untried", outcome.untried},
                 {"bytes", outcome.sentBytes},
                 {"resumed_bytes", outcome.resumedBytes},
                 {"seconds", std::chrono::duration<double>(outcome.elapsed).count()},
                 {"message", summaryText(outcome)}});
}

} // namespace quenmoor
