// quenmoor-table-bench: the cost of one refresh of the status table on the main thread, in the real
// window and with the painting that follows. Needs no display.
//
// The name of a benchmark, up to the first "/", is the name of its figure.
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "ui/main_window.h"
#include "ui/status_table_model.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <QApplication>
#include <QEvent>
#include <QTableView>
#include <array>
#include <map>
#include <memory>
#include <string>

namespace quenmoor {
namespace {

constexpr int kMostRows = 100'000;
constexpr std::size_t kCurrentRow = 0; // no upload has finished, so the first row is current

// Bytes; 0 if the system does not report them.
std::int64_t residentMemory()
{
    std::ifstream statm("/proc/self/statm");
    std::int64_t pages = 0;
    std::int64_t resident = 0;
    statm >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

class PaintCount : public QObject {
public:
    explicit PaintCount(QWidget& watched) { watched.installEventFilter(this); }

    bool eventFilter(QObject* /*watched*/, QEvent* event) override
    {
        count += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }

    std::int64_t count = 0;
};

// The window with the table visible. Its rows are made from files and tokens, as by a user.
class Table {
public:
    Table()
    {
        window_.progressGrid->setModel(&model_);
        window_.setPanelsShown(false, true);
        window_.setStatusBarShown(true);
        window_.setPageShown(false);
        window_.show();
        QApplication::processEvents();
    }

    void fill(int rows)
    {
        const FileUrl file =
            FileUrl::fromPath(folder_.file("A001_C001_0101AB_001.mov", std::string(1, 'x')));
        for (int i = 0; i < rows; ++i) {
            queues_.addFiles(std::array{file});
            if (queues_.acceptToken("8f14e45fceea167a5a36dedd4bea2543"))
                model_.appendRow(file);
        }
        QApplication::processEvents();
    }

    // Scrolls to the current row, or away from it: in the smallest window, ten rows do not fit.
    // Returns false if the row is not as visible as requested.
    [[nodiscard]] bool showCurrentRow(bool visible)
    {
        window_.resize(window_.minimumSize());
        QTableView& grid = *window_.progressGrid;
        visible ? grid.scrollToTop() : grid.scrollToBottom();
        QApplication::processEvents();
        const QRect row = grid.visualRect(model_.index(kCurrentRow, StatusTableModel::Status));
        return grid.viewport()->rect().intersects(row) == visible;
    }

    // Processes one progress sample and all events that it causes.
    void refresh()
    {
        ++samples_;
        const std::string status =
            samples_ % 2 == 0 ? "Uploading at 123.456 MB/s" : "Uploading at 654.321 MB/s";
        queues_.tableList().replace(kCurrentRow, status, samples_ % 100);
        model_.refreshCurrentRow();
        QApplication::processEvents();
    }

    std::int64_t paintCount() const { return paints_.count; }

private:
    TempFolder folder_;
    UploadQueues queues_;
    StatusTableModel model_{queues_};
    MainWindow window_{new QWidget};
    PaintCount paints_{*window_.progressGrid->viewport()};
    int samples_ = 0;
};

// By their number of rows. Each is made by the first benchmark that uses it. main() deletes them
// before the application.
std::map<int, std::unique_ptr<Table>> tables;

Table& tableOf(int rows)
{
    auto& table = tables[rows];
    if (table == nullptr) {
        table = std::make_unique<Table>();
        table->fill(rows);
    }
    return *table;
}

void fill(benchmark::State& state)
{
    std::int64_t grown = 0;
    auto& table = tables[kMostRows] = std::make_unique<Table>();
    for ([[maybe_unused]] auto _ : state) {
        const std::int64_t before = residentMemory();
        table->fill(kMostRows);
        grown = residentMemory() - before;
    }
    state.counters["bytes"] = static_cast<double>(grown) / kMostRows;
}

void refresh(benchmark::State& state, int rows, bool visible)
{
    Table& table = tableOf(rows);
    if (!table.showCurrentRow(visible)) {
        state.SkipWithError("the current row is not visible as requested");
        return;
    }
    const std::int64_t before = table.paintCount();
    for ([[maybe_unused]] auto _ : state)
        table.refresh();
    const std::int64_t paints = table.paintCount() - before;
    if (visible ? paints < state.iterations() : paints > 0)
        state.SkipWithError("a visible row was not painted, or a hidden one was");
}

void inMilliseconds(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Unit(benchmark::kMillisecond)->UseRealTime();
}

// The first one measures the process before any memory has been freed in it, and only once.
BENCHMARK(fill)->Name("memory per row")->Unit(benchmark::kSecond)->Repetitions(1)->Iterations(1);
BENCHMARK_CAPTURE(refresh, , 10, true)->Name("refresh, 10 rows")->Apply(inMilliseconds);
BENCHMARK_CAPTURE(refresh, , 1'000, true)->Name("refresh, 1,000 rows")->Apply(inMilliseconds);
BENCHMARK_CAPTURE(refresh, , kMostRows, true)->Name("refresh, 100,000 rows")->Apply(inMilliseconds);
BENCHMARK_CAPTURE(refresh, , 10, false)->Name("refresh, 10 rows, unseen")->Apply(inMilliseconds);
BENCHMARK_CAPTURE(refresh, , 1'000, false)
    ->Name("refresh, 1,000 rows, unseen")
    ->Apply(inMilliseconds);
BENCHMARK_CAPTURE(refresh, , kMostRows, false)
    ->Name("refresh, 100,000 rows, unseen")
    ->Apply(inMilliseconds);

} // namespace
} // namespace quenmoor

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    const quenmoor::SilentLog log;
    const QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    quenmoor::tables.clear();
    benchmark::Shutdown();
}
