// Any text at all makes a dictionary, in bounded time and memory.
#include "protocol/documents.h"
#include "protocol/xml_parser.h"
#include "tests/fakes/quiet_log.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const quenmoor::SilentLog silent;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const quenmoor::XMLparser parser(text);
    std::size_t gathered = 0;
    for (const auto& [name, entry] : parser.dictionary())
        gathered += entry.size();
    if (gathered > std::size_t{1} << 20U)
        std::abort();

    quenmoor::ResponseContainer response;
    response.parseXML(text);
    // a flag is true when its entry is absent or says so
    const std::string* const exists = parser.find("exists");
    if (response.exists != (exists == nullptr || exists->find("true") != std::string::npos))
        std::abort();
    return 0;
}
