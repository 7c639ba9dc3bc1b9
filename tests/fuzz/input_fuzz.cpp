// Every kind of text that comes from outside, read in bounded time and memory. The variable
// FUZZ_READER selects the reader: the name of a folder in tests/fuzz/seeds.
#include "base/text.h"
#include "cli/inputs.h"
#include "devservice/page_requests.h"
#include "devservice/service_documents.h"
#include "devservice/service_options.h"
#include "devservice/store_folders.h"
#include "devservice/tokens.h"
#include "protocol/xml_parser.h"
#include "queue/file_url.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "ui/service_page.h"

#include <fcntl.h>
#include <httplib.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <array>
#include <map>
#include <sstream>

namespace quenmoor {
namespace {

void require(bool holds)
{
    if (!holds)
        std::abort();
}

void requirePrintable(std::string_view text, std::string_view kept)
{
    require(isUtf8(text));
    for (const char c : text)
        require(static_cast<unsigned char>(c) >= 0x20 || kept.find(c) != std::string_view::npos);
}

void readText(std::string_view text)
{
    const std::int64_t number = std::strtoll(std::string(text).c_str(), nullptr, 10);
    require(leadingInt64(text) == number);
    require(leadingInt32(text) == std::clamp<std::int64_t>(number, INT32_MIN, INT32_MAX));
    require(percentDecode(percentEncodeQuery(text)) == text);
    requirePrintable(printableLine(text), "");
    requirePrintable(printableText(text), "\t\n");
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

void readRequestOrConfirmation(std::string_view text)
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

// One value on each line.
void readOptions(std::string_view text)
{
    std::array<std::string, 7> values;
    std::istringstream lines{std::string(text)};
    for (std::string& value : values)
        std::getline(lines, value);
    const auto& [host, retries, time, rate, version, url, fault] = values;
    const auto parse = [](auto parser, const std::vector<const char*>& arguments) {
        return parser(static_cast<int>(arguments.size()), arguments.data());
    };
    const auto put =
        parse(parsePutOptions,
              {"put", "--host", host.c_str(), "--retries", retries.c_str(), "--give-up-after",
               time.c_str(), "--limit-rate", rate.c_str(), "--token", "t", "--", "file"});
    if (const auto* const options = std::get_if<PutOptions>(&put)) {
        require(!options->host.empty() && options->port > 0);
        require(options->retry.attempts >= 1 && options->retry.attempts <= 10'000);
        require(options->rateLimit == 0 ||
                (options->rateLimit >= 1024 && options->rateLimit <= std::int64_t{1} << 40U));
        require(!options->retry.timeLimit || options->retry.timeLimit->count() > 0);
    } else {
        requirePrintable(std::get<EarlyExit>(put).text, "\n");
    }
    const auto service = parse(parseServiceOptions,
                               {"service", "--root", "root", "--newest-version", version.c_str(),
                                "--update-url", url.c_str(), "--fault", fault.c_str()});
    if (const auto* const options = std::get_if<ServiceOptions>(&service)) {
        require(isUtf8(options->page->updateUrl) && options->faults.at(0).value >= 0);
        for (const std::string& number : options->page->newestVersion)
            require(std::ranges::all_of(number, [](char c) { return c >= '0' && c <= '9'; }));
    } else {
        requirePrintable(std::get<ServiceExit>(service).text, "\n");
    }
}

// Lists of tokens and files.
void readLists(std::string_view text)
{
    static const TempFolder folder;
    const std::string list = folder.file("list", std::string(text));
    for (const InputOptions& inputs :
         {InputOptions{list, {}}, InputOptions{{}, list}, InputOptions{{}, list, true}}) {
        PutOptions options;
        if (!inputs.tokenFile.empty())
            options.files.emplace_back("clip.mov");
        const auto error = readInputs(inputs, options);
        require(error || options.files.size() == options.tokens.size());
        for (std::size_t i = 0; !error && i < options.files.size(); ++i)
            require(!options.files[i].empty() && !options.tokens[i].empty() &&
                    (options.files[i] + options.tokens[i]).find('\0') == std::string::npos);
    }
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
    const UploadRecord record = readRecord(folders, "record");
    require(record.size.value_or(0) >= 0 && !(record.size && record.unknownVersion));
    require(record.unknownVersion != kRecordVersion);
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

struct PageService : httplib::Server {
    PageService()
    {
        std::filesystem::create_directory(settings.pageFolder);
        std::ignore = folder.file("page/index.html", "page");
        std::ignore = folder.file("secret.html", "secret content");
        requests.addTo(*this);
    }

    using httplib::Server::process_request;

    const TempFolder folder;
    const PageSettings settings{.pageFolder = folder.path() / "page"};
    const TokenStore tokens;
    const SessionStore sessions{tokens, {}, std::chrono::steady_clock::now};
    const std::string session = sessions.open("").value();
    const PageRequests requests{settings, sessions};
};

// An https request without its encryption. "@" stands for a valid session.
void readPageRequest(std::string_view text)
{
    static PageService service;
    std::string request(text);
    if (const std::size_t at = request.find('@'); at != std::string::npos)
        request.replace(at, 1, service.session);
    httplib::detail::BufferStream stream; // the reply is appended to the request
    std::ignore = stream.write(request.data(), request.size());
    bool closed = false;
    std::ignore = service.process_request(stream, /*close_connection*/ true, closed, nullptr);
    const std::string reply = stream.get_buffer().substr(request.size());
    require(reply.empty() || reply.starts_with("HTTP/1."));
    require(reply.find("secret content") == std::string::npos);
    // A session or token is issued only to a request whose host is this machine.
    const bool issued = reply.ends_with("\"}") && reply.find(R"({"error":)") == std::string::npos;
    constexpr auto kNone = std::string::npos;
    require(!issued || request.find("localhost") != kNone || request.find("127.0.0.1") != kNone ||
            request.find("[::1]") != kNone);
}

// What the page sends to the window, as JSON.
void readPageMessage(std::string_view text)
{
    static const QString base = baseUrl(QStringLiteral("service.example"), 8443);
    PageLog log;
    const auto bytes = QByteArray(text.data(), static_cast<qsizetype>(text.size()));
    const PageSignal signal = readPageSignal(QJsonDocument::fromJson(bytes).object(), log);
    (void)isOutOfDate({1, 2, 3}, pageVersion(signal));
    if (const auto download = downloadUrl(signal))
        require(download->isValid() && download->scheme().startsWith(QLatin1String("http")));
    const std::string name = signal.token.value_or(QString()).toStdString();
    const QUrl url = pageUrl(base, signal.session, name, 1);
    require(url.isValid() && url.toEncoded().startsWith(base.toLatin1() + "?session="));
    require(url.hasFragment() || url.toEncoded().endsWith("&size=1"));
    (void)parseVersion(name);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const SilentLog silent;
    using Reader = void (*)(std::string_view);
    static const std::map<std::string, Reader> readers{{"text", readText},
                                                       {"response", readResponse},
                                                       {"request", readRequestOrConfirmation},
                                                       {"record", readRecordFile},
                                                       {"file_url", readFileUrl},
                                                       {"options", readOptions},
                                                       {"lists", readLists},
                                                       {"page_request", readPageRequest},
                                                       {"page_message", readPageMessage}};
    static const Reader read = readers.at(std::getenv("FUZZ_READER"));
    read({reinterpret_cast<const char*>(data), size});
    return 0;
}

} // namespace quenmoor
