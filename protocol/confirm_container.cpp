#include "protocol/confirm_container.h"

#include <fmt/format.h>

namespace quenmoor {

std::string ConfirmContainer::XMLpayload() const
{
    return fmt::format("<resume>{}</resume>\n<overwrite>{}</overwrite>\n", resume_, overwrite_);
}

} // namespace quenmoor
