// What one sample of the progress may wake: the pixels that it changes, and nothing that is out of
// sight.
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "ui/appearance.h"
#include "ui/main_window.h"
#include "ui/status_table_model.h"

#include <QPaintEvent>
#include <QProgressBar>
#include <QStatusBar>
#include <QTableView>
#include <QTest>
#include <array>
#include <utility>

namespace quenmoor {

using namespace Qt::StringLiterals;

// Notes what is painted of a window's parts, and which of them ask for a layout.
class Watcher : public QObject {
public:
    struct Seen {
        QRegion grid;        // painted of the table's cells
        QStringList painted; // parts that have names
        int layouts = 0;
    };

    explicit Watcher(MainWindow& window) : grid_(window.progressGrid->viewport())
    {
        window.installEventFilter(this);
        for (QWidget* const part : window.findChildren<QWidget*>())
            part->installEventFilter(this);
    }

    // What `work` leads to, until the window has nothing left to do.
    template <typename Work>
    Seen during(Work work)
    {
        settle();
        seen_ = {};
        work();
        settle();
        return std::exchange(seen_, {});
    }

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const bool isPaint = event->type() == QEvent::Paint;
        const bool isLayout = event->type() == QEvent::LayoutRequest;
        events_ += isPaint || isLayout ? 1 : 0;
        seen_.layouts += isLayout ? 1 : 0;
        if (!isPaint)
            return false;
        if (watched == grid_)
            seen_.grid += static_cast<QPaintEvent*>(event)->region();
        else if (!watched->objectName().isEmpty())
            seen_.painted << watched->objectName();
        return false;
    }

private:
    // A layout may ask for another one, and for painting.
    void settle()
    {
        for (int before = -1; before != events_;) {
            before = events_;
            QCoreApplication::processEvents();
        }
    }

    const QWidget* const grid_;
    Seen seen_;
    int events_ = 0;
};

// The window with more rows than it can show; the first is under upload.
class UploadingWindow {
public:
    SilentLog log;
    TempFolder folder;
    UploadQueues queues;
    StatusTableModel model{queues};
    MainWindow window{new QWidget};
    Watcher watcher{window};

    UploadingWindow()
    {
        window.progressGrid->setModel(&model);
        window.setPanelsShown(false, true);
        window.setPageShown(false);
        window.setStatusBarShown(true);
        const FileUrl file = FileUrl::fromPath(folder.file("clip.mov", "x"));
        for (int i = 0; i < 100; ++i) {
            queues.addFiles(std::array{file});
            if (queues.acceptToken("t"))
                model.appendRow(file);
        }
        window.show();
        if (!QTest::qWaitForWindowExposed(&window))
            qFatal("the window does not come up");
    }

    Watcher::Seen refresh()
    {
        return watcher.during([this] {
            ++percent_;
            queues.tableList().replace(0, "Uploading, " + std::to_string(percent_), percent_);
            model.refreshCurrentRow();
        });
    }

    Watcher::Seen setStatusBar(const QString& filename, const QString& rate, int percent)
    {
        return watcher.during([this, filename, rate, percent] {
            window.filenameStatusBarLabel->setElidedText(filename);
            window.uploadStatusBarLabel->setText(rate);
            window.statusBarProgressBar->setValue(percent);
        });
    }

private:
    int percent_ = 0;
};

class RepaintTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aRowInSightIsPaintedByItselfOnly()
    {
        UploadingWindow with;
        const Watcher::Seen seen = with.refresh();
        const QTableView& grid = *with.window.progressGrid;
        const QRect cells = grid.visualRect(with.model.index(0, StatusTableModel::Status)) |
                            grid.visualRect(with.model.index(0, StatusTableModel::Percent));
        QCOMPARE(seen.grid, QRegion(cells));
        QCOMPARE(seen.painted, QStringList());
        QCOMPARE(seen.layouts, 0);
    }

    void nothingOutOfSightIsPainted_data()
    {
        using Hide = void (*)(MainWindow&);
        QTest::addColumn<Hide>("hide");
        QTest::addColumn<Hide>("show");
        QTest::newRow("row scrolled away")
            << Hide([](MainWindow& window) { window.progressGrid->scrollToBottom(); })
            << Hide([](MainWindow& window) { window.progressGrid->scrollToTop(); });
        QTest::newRow("hidden panel")
            << Hide([](MainWindow& window) { window.setPanelsShown(true, false); })
            << Hide([](MainWindow& window) { window.setPanelsShown(false, true); });
        QTest::newRow("hidden window") << Hide([](MainWindow& window) { window.hide(); })
                                       << Hide([](MainWindow& window) { window.show(); });
    }
    void nothingOutOfSightIsPainted()
    {
        using Hide = void (*)(MainWindow&);
        QFETCH(Hide, hide);
        QFETCH(Hide, show);
        UploadingWindow with;
        with.watcher.during([&] { hide(with.window); });
        QCOMPARE(with.refresh().grid, QRegion());

        // what comes back into sight is up to date
        const Watcher::Seen seen = with.watcher.during([&] { show(with.window); });
        QVERIFY(seen.grid.contains(
            with.window.progressGrid->visualRect(with.model.index(0, StatusTableModel::Status))));
        QVERIFY(!with.refresh().grid.isEmpty());
    }

    void theStatusBarPaintsWhatDiffersAndKeepsTheLayout()
    {
        UploadingWindow with;
        const QString rate = u"Upload rate: 111.111 MB/s"_s;
        with.setStatusBar(u"clip.mov"_s, rate, 50);
        QCOMPARE(with.setStatusBar(u"clip.mov"_s, rate, 50).painted, QStringList());

        const Watcher::Seen next =
            with.setStatusBar(u"clip.mov"_s, u"Upload rate: 222.222 MB/s"_s, 50);
        QCOMPARE(next.painted, QStringList(u"uploadStatusBarLabel"_s));
        QCOMPARE(next.layouts, 0);
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::RepaintTest)
#include "repaint_test.moc"
