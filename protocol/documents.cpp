#include "protocol/documents.h"

#include "base/log.h"
#include "base/text.h"
#include "protocol/xml_parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace quenmoor {
namespace {

// The server omits a flag that is true, so a missing entry counts as set. This searches instead of
// comparing, because an entry ends with the line feed that follows its element.
bool containsTrue(const std::string* entry)
{
    return entry == nullptr || entry->find("true") != std::string::npos;
}

std::string_view orEmpty(const std::string* entry)
{
    return entry != nullptr ? std::string_view(*entry) : std::string_view();
}

} // namespace

std::string RequestContainer::XMLpayload() const
{
    return fmt::format("<size>{}</size>\n"
                       "<token>{}</token>\n"
                       "<originFilename>{}</originFilename>\n",
                       size, token, originFilename);
}

ResponseContainer& ResponseContainer::parseXML(std::string_view text)
{
    const XMLparser parser(text);
    logSystem("Dictionary size: {}", parser.dictionary().size());
    logSystem("String value for exists: {}", orEmpty(parser.find("exists")));
    exists = containsTrue(parser.find("exists"));
    complete = containsTrue(parser.find("complete"));
    equal = containsTrue(parser.find("equal"));
    size = leadingInt64(orEmpty(parser.find("size")));
    response = leadingInt32(orEmpty(parser.find("response")));
    constexpr std::array kFields{"exists", "complete", "equal", "size", "response"};
    empty = std::ranges::none_of(
        kFields, [&parser](const char* name) { return parser.find(name) != nullptr; });
    logSystem("Exists value: {}", exists);
    return *this;
}

std::string ConfirmContainer::XMLpayload() const
{
    return fmt::format("<resume>{}</resume>\n<overwrite>{}</overwrite>\n", resume, overwrite);
}

FinishedContainer& FinishedContainer::parseXML(std::string_view text)
{
    const XMLparser parser(text);
    const std::string_view value = orEmpty(parser.find("size"));
    logSystem("Dictionary size: {}", parser.dictionary().size());
    logSystem("String value for size: {}", value);
    size = leadingInt64(value);
    // Logged as unsigned: a negative size appears as a number near 2^64.
    logSystem("Size value: {}", static_cast<std::uint64_t>(size));
    return *this;
}

std::string buildXML(std::string_view payload, std::string_view type)
{
    return fmt::format("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                       "<{0} xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
                       " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
                       "{1}"
                       "</{0}>",
                       type, payload);
}

} // namespace quenmoor
