#include "protocol/xml_parser.h"

#include "base/log.h"

#include <expat.h>

#include <memory>

namespace quenmoor {
namespace {

// In bytes: sixteen times the size of the largest message.
constexpr std::size_t kTextLimit = 1U << 20U;

// A start tag or a piece of text is one event; the documents of a transfer server have about 20.
// A message of 2 kB can produce millions by nested entities.
constexpr std::size_t kEventLimit = 4096;
constexpr std::size_t kLoggedEvents = 100;

using ParserHandle = std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)>;

} // namespace

struct XMLparser::Handlers {
    XMLparser& reader;
    XML_Parser parser{};
    std::size_t events = 0;

    static void startElement(void* self, const XML_Char* name, const XML_Char** /*attributes*/)
    {
        static_cast<Handlers*>(self)->logEvent("element found", name);
        static_cast<Handlers*>(self)->reader.currentTag_ = name;
    }

    static void characterData(void* self, const XML_Char* data, int length)
    {
        auto& handlers = *static_cast<Handlers*>(self);
        XMLparser& reader = handlers.reader;
        const std::string_view piece(data, static_cast<std::size_t>(length));
        handlers.logEvent("text content", piece);
        reader.textSize_ += piece.size();
        if (reader.textSize_ > kTextLimit) {
            XML_StopParser(handlers.parser, XML_FALSE);
            return;
        }
        reader.dictionary_[reader.currentTag_] += piece;
    }

    void logEvent(const char* what, std::string_view content)
    {
        ++events;
        if (events <= kLoggedEvents)
            logSystem("XML {}: {}", what, content);
        else if (events == kLoggedEvents + 1)
            logSystem("XML: further elements and text are not logged.");
        else if (events == kEventLimit)
            XML_StopParser(parser, XML_FALSE);
    }
};

XMLparser::XMLparser(std::string_view text)
{
    logSystem("XML document begins.");
    const ParserHandle parser(XML_ParserCreate("UTF-8"), &XML_ParserFree);
    if (parser != nullptr) {
        Handlers handlers{*this, parser.get(), 0};
        XML_SetUserData(parser.get(), &handlers);
        XML_SetStartElementHandler(parser.get(), &Handlers::startElement);
        XML_SetCharacterDataHandler(parser.get(), &Handlers::characterData);
        if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) ==
            XML_STATUS_OK)
            logSystem("XML document ends.");
    }
    logSystem("Parser finished. Dictionary size: {}", dictionary_.size());
}

const std::string* XMLparser::find(std::string_view name) const
{
    const auto entry = dictionary_.find(name);
    return entry != dictionary_.end() ? &entry->second : nullptr;
}

} // namespace quenmoor
