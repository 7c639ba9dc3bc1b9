// quenmoor-micro-bench: the costs of functions that run for every file or every second.
//
// The name of a benchmark, up to the first "/", is the name of its figure.
#include "base/text.h"
#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "protocol/documents.h"
#include "protocol/udt_transfer_link.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <system_error>

namespace quenmoor {
namespace {

constexpr std::size_t kDocumentSize = 65'536; // the largest that one receive delivers
constexpr int kManyFiles = 100'000;
constexpr std::int64_t kFileSize = 1'000'000'000;

const std::string kResponse = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                              "<ResponseContainer>\n"
                              "<exists>true</exists>\n"
                              "<equal>true</equal>\n"
                              "<complete>false</complete>\n"
                              "<size>123456789012</size>\n"
                              "<response>0</response>\n"
                              "</ResponseContainer>\n";

std::string repeated(const std::string& text, std::size_t times)
{
    std::string all;
    for (std::size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

// Each reference expands to 1000 entities of one character, and each of these is one callback of
// the XML library, until its own limit on expansion ends the document.
std::string hostileDocument()
{
    std::string text = "<!DOCTYPE r [<!ENTITY e0 \"0\">";
    for (int i = 1; i <= 3; ++i)
        text += "<!ENTITY e" + std::to_string(i) + " \"" +
                repeated("&e" + std::to_string(i - 1) + ";", 10) + "\">";
    text += "]><r>";
    return text + repeated("&e3;", (kDocumentSize - text.size() - 4) / 4) + "</r>";
}

void readResponse(benchmark::State& state, const std::string& document)
{
    for ([[maybe_unused]] auto _ : state) {
        ResponseContainer response;
        benchmark::DoNotOptimize(response.parseXML(document));
    }
}

struct NullView : UploadView {
    void reloadProgressGrid(std::optional<std::int32_t> /*progress*/) override {}
    void setStatusBar(const std::string& /*filename*/, const std::string& /*rate*/) override {}
    std::optional<std::int32_t> runModal(const Alert& /*alert*/) override { return {}; }
    void terminate() override {}
    void attemptChanged(const AttemptEvent& /*event*/) override {}
};

void sampleProgress(benchmark::State& state, int rows)
{
    UploadQueues queues;
    for (int i = 0; i < rows; ++i)
        queues.tableList().addObject({"A001_C001_0101AB_001.mov", "Queued", 0});
    UdtTransferLink link("localhost", kTransferPort); // connects to nothing before an attempt
    NullView view;
    SystemClock clock;
    UploadEngine engine(queues, link, view, clock);
    std::int64_t bytes = 0;
    for ([[maybe_unused]] auto _ : state) {
        bytes = (bytes + kFileSize / 1000) % kFileSize;
        AttemptEvent sample;
        sample.kind = AttemptEventKind::Progress;
        sample.bytes = bytes;
        sample.total = kFileSize;
        sample.rate = static_cast<double>(bytes) / 1e6;
        engine.reportProgress(sample);
    }
}

void encodeQuery(benchmark::State& state, const std::string& name)
{
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(percentEncodeQuery(name));
}

// Sparse files, in memory where there is such a file system, so that the benchmark measures our own
// work and the kernel's. Fewer than kManyFiles if they cannot be made.
const std::vector<FileUrl>& manyFiles()
{
    static const TempFolder folder;
    static const std::vector<FileUrl> files = [] {
        std::vector<FileUrl> made;
        std::error_code failed;
        for (int i = 0; i < kManyFiles && !failed; ++i) {
            const auto path = folder.file("A001_C" + std::to_string(i) + "_0101AB.mov", "");
            std::filesystem::resize_file(path, kFileSize, failed);
            made.push_back(FileUrl::fromPath(path));
        }
        return made;
    }();
    return files;
}

void addFiles(benchmark::State& state)
{
    const std::vector<FileUrl>& files = manyFiles();
    UploadQueues().addFiles(files); // fills the kernel's cache
    for ([[maybe_unused]] auto _ : state) {
        UploadQueues queues;
        queues.addFiles(files);
        state.PauseTiming();
        if (queues.fileQueue().size() != kManyFiles)
            state.SkipWithError("not every file was made and queued");
        state.ResumeTiming();
    }
}

using benchmark::kMicrosecond;
using benchmark::kMillisecond;
using benchmark::kSecond;

BENCHMARK_CAPTURE(readResponse, , kResponse)->Name("response read")->Unit(kMicrosecond);
BENCHMARK_CAPTURE(readResponse, , hostileDocument())
    ->Name("hostile response of 64 kB read")
    ->Unit(kMillisecond);
BENCHMARK_CAPTURE(sampleProgress, , 10)->Name("sample, 10 rows")->Unit(kMicrosecond);
BENCHMARK_CAPTURE(sampleProgress, , 1'000)->Name("sample, 1,000 rows")->Unit(kMicrosecond);
BENCHMARK_CAPTURE(sampleProgress, , 100'000)->Name("sample, 100,000 rows")->Unit(kMicrosecond);
BENCHMARK_CAPTURE(encodeQuery, , "A001_C001_0101AB_001 (take 2).mov")
    ->Name("query of an ordinary name")
    ->Unit(kMicrosecond);
BENCHMARK_CAPTURE(encodeQuery, , repeated("映", 84))
    ->Name("query of 252 bytes of UTF-8")
    ->Unit(kMicrosecond);
BENCHMARK(addFiles)->Name("100,000 files added")->Unit(kSecond)->UseRealTime()->Iterations(1);

} // namespace
} // namespace quenmoor

int main(int argc, char** argv)
{
    if (access("/dev/shm", W_OK) == 0)
        setenv("TMPDIR", "/dev/shm", 1);
    const quenmoor::SilentLog log;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
