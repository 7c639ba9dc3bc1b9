// Reads any input as a received document, in bounded time and memory.
#include "protocol/documents.h"
#include "protocol/xml_parser.h"
#include "tests/fakes/quiet_log.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const quenmoor::SilentLog silent;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const quenmoor::XMLparser parser(text);
    std::size_t textSize = 0;
    for (const auto& [name, entry] : parser.dictionary())
        textSize += entry.size();
    if (textSize > std::size_t{1} << 20U)
        std::abort();

    quenmoor::ResponseContainer response;
    response.parseXML(text);
    // A flag is true if its entry is missing or contains "true".
    const std::string* const exists = parser.find("exists");
    if (response.exists != (exists == nullptr || exists->find("true") != std::string::npos))
        std::abort();
    return 0;
}
