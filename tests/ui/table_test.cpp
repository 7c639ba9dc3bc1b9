// The status table and the parts beside it: what they display, in which colours, and which pixels
// one sample of the progress repaints.
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "ui/appearance.h"
#include "ui/indicators.h"
#include "ui/main_window.h"
#include "ui/status_table_model.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QLabel>
#include <QPaintEvent>
#include <QScrollBar>
#include <QTableView>
#include <QTest>
#include <array>

namespace quenmoor {

using namespace Qt::StringLiterals;

// A window with a table that is longer than its viewport; the first file is under upload.
class UploadingWindow : public QObject {
public:
    TempFolder folder;
    UploadQueues queues;
    StatusTableModel model{queues};
    QAbstractItemModelTester tester{&model};
    MainWindow window{new QWidget};
    QTableView& grid = *window.progressGrid;

    UploadingWindow()
    {
        window.setUploads(model);
        window.setPanelsShown(false, true);
        window.setPageShown(false);
        window.setStatusBarShown(true);
        const FileUrl file = FileUrl::fromPath(folder.file("line\nfeed\xFF.mov", "x"));
        for (int i = 0; i < 100; ++i) {
            queues.addFiles(std::array{file});
            if (queues.acceptToken("t"))
                model.appendRow(file);
        }
        for (QWidget* const widget : window.findChildren<QWidget*>())
            widget->installEventFilter(this);
        window.show();
        if (!QTest::qWaitForWindowExposed(&window))
            qFatal("the window is not shown");
    }

    // Runs `change` and returns the painted region of the table and the names of other painted
    // widgets.
    std::pair<QRegion, QStringList> paintedBy(const std::function<void()>& change)
    {
        processAll();
        painted_ = {};
        change();
        processAll();
        return painted_;
    }
    QRegion paintedByRefresh(std::size_t row)
    {
        ++percent_;
        return paintedBy([&] {
                   queues.tableList().replace(row, std::to_string(percent_), percent_);
                   model.refreshCurrentRow();
               })
            .first;
    }
    void report(std::size_t row, AttemptEventKind kind)
    {
        AttemptEvent event;
        event.row = row;
        event.kind = kind;
        model.attemptChanged(event);
        processAll();
    }
    QRect cellsOf(int row) const
    {
        return grid.visualRect(model.index(row, StatusTableModel::Status)) |
               grid.visualRect(model.index(row, StatusTableModel::Percent));
    }

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        events_ += event->type() == QEvent::Paint || event->type() == QEvent::LayoutRequest ? 1 : 0;
        if (event->type() != QEvent::Paint)
            return false;
        if (watched == grid.viewport())
            painted_.first += static_cast<QPaintEvent*>(event)->region();
        else if (!watched->objectName().isEmpty())
            painted_.second << watched->objectName();
        return false;
    }

private:
    // A layout can cause another layout and a repaint.
    void processAll()
    {
        for (int before = -1; before != events_;) {
            before = events_;
            QCoreApplication::processEvents();
        }
    }

    std::pair<QRegion, QStringList> painted_;
    int events_ = 0;
    int percent_ = 0;
};

class TableTest : public QObject {
    Q_OBJECT

private:
    RecordingLog log_;

private Q_SLOTS:
    void progressRepaintsOnlyWhatChangedAndNothingOutOfSight()
    {
        UploadingWindow with;
        const MainWindow& window = with.window;
        const auto sample = [&](const QString& rate) {
            return with.paintedBy([&window, &rate] {
                window.filenameStatusBarLabel->setElidedText(u"clip.mov"_s);
                window.uploadStatusBarLabel->setText(rate);
                window.statusBarProgressBar->setValue(50);
            });
        };
        sample(u"Upload rate: 111.111 MB/s"_s);
        QCOMPARE(sample(u"Upload rate: 2.222 MB/s"_s),
                 std::pair(QRegion(), QStringList(u"uploadStatusBarLabel"_s)));
        QCOMPARE(with.paintedByRefresh(0), QRegion(with.cellsOf(0)));
        with.queues.removeUploadHead();
        QCOMPARE(with.paintedByRefresh(1), QRegion(with.cellsOf(1)));

        with.grid.scrollToBottom();
        QCOMPARE(with.paintedByRefresh(1), QRegion());
        const auto shown = with.paintedBy([&] { with.grid.scrollToTop(); });
        QVERIFY(shown.first.contains(with.cellsOf(1)));
        with.window.setPanelsShown(true, false);
        QCOMPARE(with.paintedByRefresh(1), QRegion());

        while (with.queues.uploadCount() > 0)
            with.queues.removeUploadHead();
        with.model.refreshCurrentRow(); // `tester` fails if a row is reported
    }

    void textAndGraphicsHaveContrastInEveryPaletteAlsoAfterAChange()
    {
        UploadingWindow with;
        for (std::size_t row = 0; row <= 6; ++row) // each kind; the row of the last is under way
            with.report(row, static_cast<AttemptEventKind>(row < 6 ? 7 - row : 0));
        with.queues.tableList().replace(0, "", 50);
        with.window.statusBarProgressBar->setValue(50);
        const auto areaOf = [&with](const char* name, QRect area = {}) {
            const auto* const part = with.window.findChild<QWidget*>(QLatin1StringView(name));
            area = area.isNull() ? part->rect() : area;
            return QRect(part->mapTo(&with.window, area.topLeft()), area.size());
        };
        const auto cell = [&with](int row, int column, int left, int width) {
            const QRect area = with.grid.visualRect(with.model.index(row, column));
            const QPoint origin = area.topLeft() + QPoint(left, 0);
            return QRect(with.grid.viewport()->mapTo(&with.window, origin),
                         QSize(width, area.height()));
        };
        const std::vector<QRect> texts{areaOf("summaryLabel"), areaOf("hintLabel"),
                                       areaOf("fileStatusBarLabel")};
        std::vector<QRect> graphics{
            areaOf("progressPanel", {-2, 40, 3, 1}), areaOf("statusBarProgressBar", {9, 0, 1, 8}),
            areaOf("statusBarProgressBar", {99, 0, 1, 8}), cell(0, 2, 30, 1), cell(0, 2, 70, 1)};
        for (int row = 0; row <= 7; ++row)
            graphics.push_back(cell(row, StatusTableModel::Status, 0, 24));
        const QPalette before = QApplication::palette();
        for (const QPalette& palette :
             {QPalette(QColor(0xef, 0xef, 0xef)), QPalette(QColor(0x22, 0x22, 0x22)),
              QPalette(Qt::yellow, Qt::black, Qt::black, Qt::black, Qt::black, Qt::yellow,
                       Qt::yellow, Qt::black, Qt::black)}) {
            QApplication::setPalette(palette);
            QCoreApplication::processEvents();
            const QImage shot = with.window.grab().toImage();
            // The highest contrast in `area` to the pixel at its top left.
            const auto highest = [&shot](const QRect& area) {
                double found = 1;
                for (int y = area.top(); y <= area.bottom(); ++y)
                    for (int x = area.left(); x <= area.right(); ++x)
                        found = std::max(found, contrast(shot.pixelColor(area.topLeft()),
                                                         shot.pixelColor(x, y)));
                return found;
            };
            for (const QRect& area : texts)
                QVERIFY(highest(area) >= 4.5);
            for (const QRect& area : graphics)
                QVERIFY(highest(area) >= 3);
            const int zebra = qGray(shot.pixel(cell(0, 0, 0, 1).topLeft())) -
                              qGray(shot.pixel(cell(1, 0, 0, 1).topLeft()));
            QVERIFY(zebra != 0 && std::abs(zebra) <= 12); // 5 % of the lightness
        }
        QApplication::setPalette(before);
    }

    void theTableFollowsTheCurrentRowUntilTheUserScrollsAway()
    {
        UploadingWindow with;
        const auto isInSight = [&with](int row) {
            with.report(static_cast<std::size_t>(row), AttemptEventKind::Started);
            return with.grid.viewport()->rect().contains(
                with.grid.visualRect(with.model.index(row, 0)));
        };
        QVERIFY(isInSight(50));
        with.grid.verticalScrollBar()->setValue(0); // the user scrolls
        QVERIFY(!isInSight(51));
        with.grid.scrollTo(with.model.index(51, 0));
        QVERIFY(isInSight(80));
        with.window.setPanelsShown(false, false);
        QVERIFY(!isInSight(20));
        with.window.setPanelsShown(false, true);
        QVERIFY(isInSight(20));
    }

    void endedUploadsStayInSightWhileThePageCoversTheTable()
    {
        UploadingWindow with;
        with.queues.tableList().replace(0, "Uploading at 1.000 MB/s", 45);
        for (const auto& [column, role, text] : std::vector<std::tuple<int, int, QString>>{
                 {StatusTableModel::Percent, Qt::DisplayRole, u"45%"_s},
                 {StatusTableModel::Percent, StatusTableModel::PercentRole, u"45"_s},
                 {StatusTableModel::File, Qt::ToolTipRole, u"/line␊feed\uFFFD.mov\n"_s}})
            QVERIFY(with.model.index(0, column).data(role).toString().contains(text));
        with.report(0, AttemptEventKind::Finished);
        with.report(1, AttemptEventKind::Cancelled);
        with.queues.tableList().replace(2, "Retrying in 5s", -1);
        with.report(2, AttemptEventKind::Failed);
        QCOMPARE(with.window.findChild<QLabel*>(u"summaryLabel"_s)->text(),
                 u"1 of 100 finished, 1 canceled"_s);
        const auto* const line = with.window.findChild<QWidget*>(u"uploadLine"_s);
        QVERIFY(!line->isVisible());
        with.window.setPanelsShown(false, false);
        QVERIFY(line->isVisible() && with.window.webView->isVisible()); // never an empty window
        QStringList texts;
        for (const QLabel* const label : line->findChildren<QLabel*>())
            texts << label->text();
        QCOMPARE(texts, QStringList({u"line␊feed\uFFFD.mov"_s, u"Retrying in 5s"_s,
                                     u"1 of 100 finished, 1 canceled"_s}));
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::TableTest)
#include "table_test.moc"
