#include "protocol/finished_container.h"

#include "base/log.h"
#include "base/text.h"
#include "protocol/xml_parser.h"

namespace quenmoor {

FinishedContainer& FinishedContainer::parseXML(std::string_view text)
{
    const XMLparser parser(text);
    const std::string* const entry = parser.find("size");
    const std::string_view value = entry != nullptr ? std::string_view(*entry) : "";
    logSystem("Dictionary size: {}", parser.dictionary().size());
    logSystem("String value for size: {}", value);
    size_ = leadingInt64(value);
    // The unsigned view of the number, so that a negative one stands out in the log.
    logSystem("Size value: {}", static_cast<std::uint64_t>(size_));
    return *this;
}

} // namespace quenmoor
