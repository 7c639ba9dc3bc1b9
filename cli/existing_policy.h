// Answers the question about an existing copy the way the command line said.
#pragma once

#include "cli/put_options.h"
#include "cli/put_view.h"

namespace quenmoor {

// The answer of a fixed `existing`; an answer that the alert does not offer counts as "Cancel".
// So does Existing::Ask, for whoever has nobody to ask.
Answer fixedAnswer(Existing existing, const Alert& alert);

} // namespace quenmoor
