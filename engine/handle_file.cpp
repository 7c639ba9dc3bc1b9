#include "base/log.h"
#include "engine/upload_engine.h"
#include "protocol/documents.h"

namespace quenmoor {
namespace {

std::string_view confirmationName(std::int32_t choice)
{
    switch (choice) {
    case kResume:
    case kNotAsked: return "resume";
    case kOverwrite: return "overwrite";
    default: return "cancelation";
    }
}

} // namespace

std::int64_t UploadEngine::handleFile(std::int32_t choice, const ResponseContainer& response)
{
    logSystem("Entered file handling logic.");
    // A server without a copy expects no confirmation: the bytes come right after its response.
    if (!response.exists)
        return Upload(0);

    attempt_.step = AttemptStep::Confirm;
    logSystem("Sending {} confirmation.", confirmationName(choice));
    const ConfirmContainer confirmation = confirmationFor(choice);
    const bool confirmed = link_.sendString(
        rendezvousSocket_, buildXML(confirmation.XMLpayload(), "ConfirmContainer"));
    if (!confirmation.resume)
        return kUploadCancelled; // whether or not the server heard of it
    // A copy of less than nothing leaves no place to go on from.
    const std::int64_t offset = confirmation.overwrite ? 0 : response.size;
    if (!confirmed || offset < 0)
        return 0;
    return Upload(offset);
}

} // namespace quenmoor
