#include "protocol/response_container.h"

#include "base/log.h"
#include "base/text.h"
#include "protocol/xml_parser.h"

namespace quenmoor {
namespace {

// The server leaves out a flag that holds, so a missing entry counts as set. A search instead of
// a comparison, because an entry ends with the line feed that follows its element.
bool containsTrue(const std::string* entry)
{
    return entry == nullptr || entry->find("true") != std::string::npos;
}

std::string_view orEmpty(const std::string* entry)
{
    return entry != nullptr ? std::string_view(*entry) : std::string_view();
}

} // namespace

ResponseContainer& ResponseContainer::parseXML(std::string_view text)
{
    const XMLparser parser(text);
    logSystem("Dictionary size: {}", parser.dictionary().size());
    logSystem("String value for exists: {}", orEmpty(parser.find("exists")));
    exists_ = containsTrue(parser.find("exists"));
    complete_ = containsTrue(parser.find("complete"));
    equal_ = containsTrue(parser.find("equal"));
    size_ = leadingInt64(orEmpty(parser.find("size")));
    response_ = leadingInt32(orEmpty(parser.find("response")));
    logSystem("Exists value: {}", exists_);
    return *this;
}

} // namespace quenmoor
