// What to ask when the server already holds a copy, and what each answer means. Keeps no state and
// does no I/O.
#pragma once

#include "engine/upload_view.h"
#include "protocol/documents.h"

namespace quenmoor {

// The decision about the copy on the server. It applies to every attempt of one file.
inline constexpr std::int32_t kResume = 0;
inline constexpr std::int32_t kOverwrite = 1;
inline constexpr std::int32_t kCancel = 2;
inline constexpr std::int32_t kUndecided = 3; // ask if a copy exists
// An earlier attempt of this upload found no copy. A copy that a later attempt finds was therefore
// left by that earlier attempt, and is resumed without a question.
inline constexpr std::int32_t kNotAsked = 4;

// "Resume" is offered only for the same file with an unfinished upload: no other copy is certain
// to become the announced file.
Alert existingFileAlert(const ResponseContainer& response);

// `button` as UploadView::runModal returns it. Every value but the second and third button cancels.
std::int32_t choiceForButton(std::int32_t button);

ConfirmContainer confirmationFor(std::int32_t choice);

} // namespace quenmoor
