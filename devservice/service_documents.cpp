#include "devservice/service_documents.h"

#include "base/text.h"

#include <fmt/format.h>

namespace quenmoor {
namespace {

constexpr std::string_view kRequestEnd = "</RequestContainer>";
constexpr std::string_view kConfirmationEnd = "</ConfirmContainer>";

// Returns the value of the first `element` in `text` and removes everything up to its end tag.
std::optional<std::string_view> takeValue(std::string_view& text, const std::string& element)
{
    const std::string startTag = "<" + element + ">";
    const std::string endTag = "</" + element + ">";
    const std::size_t start = text.find(startTag);
    if (start == std::string_view::npos)
        return std::nullopt;
    const std::size_t from = start + startTag.size();
    const std::size_t to = text.find(endTag, from);
    if (to == std::string_view::npos)
        return std::nullopt;
    const std::string_view value = text.substr(from, to - from);
    text.remove_prefix(to + endTag.size());
    return value;
}

// Returns the value of `element` from its first start tag to its last end tag.
std::optional<std::string_view> widestValue(std::string_view text, const std::string& element)
{
    const std::string startTag = "<" + element + ">";
    const std::size_t start = text.find(startTag);
    const std::size_t to = text.rfind("</" + element + ">");
    if (start == std::string_view::npos || to == std::string_view::npos ||
        to < start + startTag.size())
        return std::nullopt;
    const std::size_t from = start + startTag.size();
    return text.substr(from, to - from);
}

std::optional<bool> parseFlag(const std::optional<std::string_view>& text)
{
    if (text == "true")
        return true;
    if (text == "false")
        return false;
    return std::nullopt;
}

} // namespace

bool endsRequest(std::string_view text)
{
    return text.ends_with(kRequestEnd);
}

std::optional<RequestContainer> readRequest(std::string_view text)
{
    if (!endsRequest(text))
        return std::nullopt;
    const auto sizeText = takeValue(text, "size");
    const auto size = sizeText ? wholeNumber(*sizeText) : std::nullopt;
    const auto token = takeValue(text, "token");
    const auto name = widestValue(text, "originFilename");
    if (!size || !token || !name)
        return std::nullopt;
    return RequestContainer{std::string(*name), std::string(*token), *size};
}

std::optional<std::size_t> confirmationLength(std::string_view text)
{
    const std::size_t end = text.find(kConfirmationEnd);
    if (end == std::string_view::npos)
        return std::nullopt;
    return end + kConfirmationEnd.size();
}

std::optional<ConfirmContainer> readConfirmation(std::string_view text)
{
    const auto resume = parseFlag(takeValue(text, "resume"));
    const auto overwrite = parseFlag(takeValue(text, "overwrite"));
    if (!resume || !overwrite)
        return std::nullopt;
    return ConfirmContainer{*resume, *overwrite};
}

std::string responseDocument(const ResponseContainer& response)
{
    return buildXML(fmt::format("<exists>{}</exists>\n"
                                "<equal>{}</equal>\n"
                                "<complete>{}</complete>\n"
                                "<size>{}</size>\n"
                                "<response>{}</response>\n",
                                response.exists, response.equal, response.complete, response.size,
                                response.response),
                    "ResponseContainer");
}

std::string finishedDocument(std::int64_t size)
{
    return buildXML(fmt::format("<size>{}</size>\n", size), "FinishedContainer");
}

} // namespace quenmoor
