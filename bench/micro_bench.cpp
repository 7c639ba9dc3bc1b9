// quenmoor-micro-bench: the small things that every file or every second pays for.
//
// A benchmark's name, up to the first "/", is the name of its figure.
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

constexpr std::size_t kDocumentSize = 65'536; // the most that one receive delivers
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

// Entities that unfold into single characters, each of them one call of the reader, until the
// reader's own limit ends it.
std::string hostileDocument()
{
    std::string text = "<!DOCTYPE r [<!ENTITY e0 \"0\">";
    for (int i = 1; i <= 3; ++i) {
        text += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int k = 0; k < 10; ++k)
            text += "&e" + std::to_string(i - 1) + ";";
        text += "\">";
    }
    text += "]><r>";
    while (text.size() < kDocumentSize - 8)
        text += "&e3;";
    return text + "</r>";
}

void readResponse(benchmark::State& state, const std::string& document)
{
    for ([[maybe_unused]] auto _ : state) {
        ResponseContainer response;
        benchmark::DoNotOptimize(response.parseXML(document));
    }
}

class NobodyLooks : public UploadView {
public:
    void reloadProgressGrid(std::optional<std::int32_t> percent) override
    {
        benchmark::DoNotOptimize(percent);
    }
    void setStatusBar(const std::string& filename, const std::string& rate) override
    {
        benchmark::DoNotOptimize(filename.data());
        benchmark::DoNotOptimize(rate.data());
    }
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
    NobodyLooks view;
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

std::string repeated(const std::string& text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

void encodeQuery(benchmark::State& state, const std::string& name)
{
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(percentEncodeQuery(name));
}

// A camera card's worth of names, on a file system in memory where there is one: what is timed is
// our own work and the kernel's.
class ManyFiles {
public:
    ManyFiles()
    {
        for (int i = 0; i < kManyFiles; ++i) {
            const auto path = folder_.file("A001_C" + std::to_string(i) + "_0101AB.mov", "");
            std::error_code failed;
            std::filesystem::resize_file(path, kFileSize, failed); // a hole: it takes no room
            if (failed)
                return;
            urls_.push_back(FileUrl::fromPath(path));
        }
    }

    // All of them, or fewer when they could not be made.
    const std::vector<FileUrl>& urls() const { return urls_; }

private:
    TempFolder folder_;
    std::vector<FileUrl> urls_;
};

// Made when first asked for, gone at the end of the program.
const ManyFiles& manyFiles()
{
    static const ManyFiles files;
    return files;
}

void addFiles(benchmark::State& state)
{
    const std::vector<FileUrl>& files = manyFiles().urls();
    if (files.size() != kManyFiles) {
        state.SkipWithError("the files could not be made");
        return;
    }
    UploadQueues().addFiles(files); // warms the cache
    for ([[maybe_unused]] auto _ : state) {
        UploadQueues queues;
        queues.addFiles(files);
        state.PauseTiming();
        if (queues.fileQueue().size() != kManyFiles)
            state.SkipWithError("not every file was queued");
        state.ResumeTiming();
    }
}

using benchmark::kMicrosecond;
using benchmark::kMillisecond;
using benchmark::kSecond;

BENCHMARK_CAPTURE(readResponse, real, kResponse)->Name("response read")->Unit(kMicrosecond);
BENCHMARK_CAPTURE(readResponse, hostile, hostileDocument())
    ->Name("hostile response of 64 kB read")
    ->Unit(kMillisecond);
BENCHMARK_CAPTURE(sampleProgress, few, 10)->Name("sample, 10 rows")->Unit(kMicrosecond);
BENCHMARK_CAPTURE(sampleProgress, some, 1'000)->Name("sample, 1,000 rows")->Unit(kMicrosecond);
BENCHMARK_CAPTURE(sampleProgress, many, 100'000)->Name("sample, 100,000 rows")->Unit(kMicrosecond);
BENCHMARK_CAPTURE(encodeQuery, ordinary, "A001_C001_0101AB_001 (take 2).mov")
    ->Name("query of an ordinary name")
    ->Unit(kMicrosecond);
BENCHMARK_CAPTURE(encodeQuery, foreign, repeated("映", 84))
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
