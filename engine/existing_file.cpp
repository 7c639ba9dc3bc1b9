#include "engine/existing_file.h"

namespace quenmoor {

Alert existingFileAlert(const ResponseContainer& response)
{
    const std::string sameness = response.equal ? "the same" : "different";
    const std::string completeness = response.complete ? "complete" : "incomplete";

    Alert alert;
    alert.messageText = "File Exists";
    alert.informativeText = "A previous file for this upload has been found on Quenmoor Transfer "
                            "server.\nThe file appears to be " +
                            sameness + " and the upload was " + completeness + ".";
    alert.buttons = {"Cancel", "Overwrite"};
    if (response.equal && !response.complete)
        alert.buttons.emplace_back("Resume");
    alert.copy = {response.equal, response.complete, response.size, response.empty};
    return alert;
}

std::int32_t choiceForButton(std::int32_t button)
{
    switch (button) {
    case kThirdButton: return kResume;
    case kSecondButton: return kOverwrite;
    default: return kCancel;
    }
}

ConfirmContainer confirmationFor(std::int32_t choice)
{
    switch (choice) {
    case kResume:
    case kNotAsked: return {true, false};
    // For the server "resume" means that the upload continues; only a cancellation clears it.
    case kOverwrite: return {true, true};
    default: return {false, false};
    }
}

} // namespace quenmoor
