#include "cli/existing_policy.h"

namespace quenmoor {

Answer fixedAnswer(Existing existing, const Alert& alert)
{
    switch (existing) {
    case Existing::Ask:
        return {kFirstButton, "There is no terminal to ask on: --existing decides."};
    case Existing::Overwrite: return {kSecondButton, {}};
    case Existing::Resume:
        if (alert.buttons.size() >= 3)
            return {kThirdButton, {}};
        return {kFirstButton, "\"Resume\" is not offered for this copy."};
    case Existing::Cancel: break;
    }
    return {kFirstButton, {}};
}

} // namespace quenmoor
