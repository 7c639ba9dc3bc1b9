// What to ask when the server already holds a copy, and what an answer means. No state, no input
// or output.
#pragma once

#include "engine/upload_view.h"
#include "protocol/documents.h"

namespace quenmoor {

// The decision about the server's copy. It holds for every attempt of one file.
inline constexpr std::int32_t kResume = 0;
inline constexpr std::int32_t kOverwrite = 1;
inline constexpr std::int32_t kCancel = 2;
inline constexpr std::int32_t kUndecided = 3; // ask when there is a copy
// There was no copy at the first attempt. One that a later attempt finds is that attempt's own
// leaving, and is resumed without a question.
inline constexpr std::int32_t kNotAsked = 4;

// "Resume" is offered only for the same file with an unfinished upload: nothing else is certain
// to become the announced file.
Alert existingFileAlert(const ResponseContainer& response);

// `answer` as UploadView::runModal gives it. Whatever is not the second or third button cancels.
std::int32_t choiceForButton(std::int32_t answer);

ConfirmContainer confirmationFor(std::int32_t choice);

} // namespace quenmoor
