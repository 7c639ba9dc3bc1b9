// Every text that comes from outside and needs no window, read in bounded time and memory. The
// first byte selects the reader.
#include "base/text.h"
#include "devservice/faults.h"
#include "devservice/service_documents.h"
#include "devservice/store_folders.h"
#include "devservice/tokens.h"
#include "protocol/xml_parser.h"
#include "queue/file_url.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"

#include <fcntl.h>

#include <algorithm>
#include <limits>

namespace quenmoor {
namespace {

void require(bool holds)
{
    if (!holds)
        std::abort();
}

// leadingInt..() in 128-bit arithmetic.
template <typename Integer>
Integer reference(std::string_view text)
{
    std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    if (at == std::string_view::npos)
        return 0;
    const bool negative = text[at] == '-';
    if (text[at] == '-' || text[at] == '+')
        ++at;
    __extension__ __int128 value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        if (value <= std::numeric_limits<std::int64_t>::max())
            value = value * 10 + (text[at] - '0');
    }
    __extension__ using Wide = __int128;
    return static_cast<Integer>(std::clamp<Wide>(negative ? -value : value,
                                                 std::numeric_limits<Integer>::min(),
                                                 std::numeric_limits<Integer>::max()));
}

void readText(std::string_view text)
{
    require(leadingInt64(text) == reference<std::int64_t>(text));
    require(leadingInt32(text) == reference<std::int32_t>(text));
    require(percentDecode(percentEncodeQuery(text)) == text);
    const auto printable = [](const std::string& line, std::string_view kept) {
        require(isUtf8(line));
        for (const char c : line)
            require(static_cast<unsigned char>(c) >= 0x20 ||
                    kept.find(c) != std::string_view::npos);
    };
    printable(printableLine(text), "");
    printable(printableText(text), "\t\n");
}

void readResponse(std::string_view text)
{
    const XMLparser parser(text);
    std::size_t textSize = 0;
    for (const auto& [name, entry] : parser.dictionary())
        textSize += entry.size();
    require(textSize <= std::size_t{1} << 20U);
    ResponseContainer response;
    response.parseXML(text);
    // A flag is true if its entry is missing or contains "true".
    const std::string* const exists = parser.find("exists");
    require(response.exists == (exists == nullptr || exists->find("true") != std::string::npos));
    FinishedContainer().parseXML(text);
}

void readByTheService(std::string_view text)
{
    if (const auto request = readRequest(text))
        require(request->originFilename.size() + request->token.size() <= text.size());
    const auto length = confirmationLength(text);
    require(length.value_or(0) <= text.size());
    if (length)
        (void)readConfirmation(text.substr(0, *length));
    (void)endsRequest(text);
    static const TokenStore tokens;
    require(!tokens.accepts(text, "clip.mov", 1)); // none was issued
}

void readFault(std::string_view text)
{
    const std::optional<Fault> fault = parseFault(text);
    require(!fault || fault->value >= 0);
}

void readRecordFile(std::string_view text)
{
    static const TempFolder folder;
    static const StoreFolders folders = [] {
        StoreFolders opened;
        opened.records = FileHandle(open(folder.path().c_str(), O_RDONLY | O_DIRECTORY));
        return opened;
    }();
    folder.file("record", std::string(text));
    require(readRecord(folders, "record").value_or(0) >= 0);
}

void readFileUrl(std::string_view text)
{
    const auto url = FileUrl::parse(text);
    if (!url)
        return;
    const std::filesystem::path path = url->path();
    require(path.is_absolute() && path.native().find('\0') == std::string::npos);
    require(FileUrl::fromPath(path).path() == path);
}

constexpr void (*kReaders[])(std::string_view){readText,  readResponse,   readByTheService,
                                               readFault, readRecordFile, readFileUrl};

} // namespace
} // namespace quenmoor

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const quenmoor::SilentLog silent;
    if (size > 0)
        quenmoor::kReaders[data[0] % std::size(quenmoor::kReaders)](
            {reinterpret_cast<const char*>(data) + 1, size - 1});
    return 0;
}
