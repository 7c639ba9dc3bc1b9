// quenmoor-table-bench: what one refresh of the status table costs the main thread, in the real
// window and with all the painting that follows.
//
// A benchmark's name, up to the first "/", is the name of its figure. Needs no display.
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
constexpr std::size_t kCurrentRow = 0; // nothing is done yet, so the first row is under upload

// Bytes; 0 when the system does not say.
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

// The window with the table on show, its rows made as files and tokens make them.
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

    // Or scrolls it away: in the smallest window, ten rows do not fit. False when the row is not
    // where it should be.
    [[nodiscard]] bool showCurrentRow(bool visible)
    {
        window_.resize(window_.minimumSize());
        QTableView& grid = *window_.progressGrid;
        visible ? grid.scrollToTop() : grid.scrollToBottom();
        QApplication::processEvents();
        const QRect row = grid.visualRect(model_.index(kCurrentRow, StatusTableModel::Status));
        return grid.viewport()->rect().intersects(row) == visible;
    }

    // One sample of the progress, until the window has nothing left to do.
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

// By their rows. Each is made for the first benchmark that asks; they go before the application.
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
        state.SkipWithError("the row is not where it should be");
        return;
    }
    const std::int64_t before = table.paintCount();
    for ([[maybe_unused]] auto _ : state)
        table.refresh();
    const std::int64_t paints = table.paintCount() - before;
    if (visible ? paints < state.iterations() : paints > 0)
        state.SkipWithError("the painting is not what it should be");
}

using benchmark::kMillisecond;
using benchmark::kSecond;

// First and once: later, the process has room left over from before.
BENCHMARK(fill)->Name("memory per row")->Unit(kSecond)->Repetitions(1)->Iterations(1);

BENCHMARK_CAPTURE(refresh, few, 10, true)
    ->Name("refresh, 10 rows")
    ->Unit(kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(refresh, some, 1'000, true)
    ->Name("refresh, 1,000 rows")
    ->Unit(kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(refresh, many, kMostRows, true)
    ->Name("refresh, 100,000 rows")
    ->Unit(kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(refresh, fewAway, 10, false)
    ->Name("refresh, 10 rows, unseen")
    ->Unit(kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(refresh, someAway, 1'000, false)
    ->Name("refresh, 1,000 rows, unseen")
    ->Unit(kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(refresh, manyAway, kMostRows, false)
    ->Name("refresh, 100,000 rows, unseen")
    ->Unit(kMillisecond)
    ->UseRealTime();

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
