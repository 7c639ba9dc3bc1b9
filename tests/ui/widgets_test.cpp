// The widgets: what a drop delivers, what the table displays, which pixels one sample of the
// progress repaints, and the alerts.
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "ui/appearance.h"
#include "ui/desktop.h"
#include "ui/drag_view.h"
#include "ui/indicators.h"
#include "ui/main_window.h"
#include "ui/status_table_model.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QDropEvent>
#include <QFileDialog>
#include <QLabel>
#include <QMimeData>
#include <QPaintEvent>
#include <QPointer>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>
#include <QTimer>
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

// Delivers the bytes of a desktop's list; QMimeData::setData() would parse them with QUrl.
struct UriList : QMimeData {
    QByteArray bytes;
    QStringList formats() const override { return {u"text/uri-list"_s}; }
    QVariant retrieveData(const QString& /*format*/, QMetaType /*type*/) const override
    {
        return bytes;
    }
};

class WidgetsTest : public QObject {
    Q_OBJECT

private:
    RecordingLog log_;

    using Paths = std::vector<std::string>;

    static Paths pathsOf(const std::vector<FileUrl>& files)
    {
        Paths paths;
        for (const FileUrl& file : files)
            paths.push_back(file.path());
        return paths;
    }

    using Action = std::function<void(AlertBox&)>;

    const Alert question_{"File Exists", "Same <b>file</b>.", {"Cancel", "Overwrite", "Resume"}};
    const Alert notice_{"The end.", {}, {}};
    AnswerGuard::Time time_;
    QtDesktop desktop_{[this] { return time_; }};

    static AlertBox* openBox()
    {
        for (QWidget* const widget : QApplication::topLevelWidgets()) {
            if (auto* const box = qobject_cast<AlertBox*>(widget); box && box->isVisible())
                return box;
        }
        return nullptr;
    }
    static QPushButton* button(const AlertBox& box, qsizetype position)
    {
        return box.findChildren<QPushButton*>().value(position);
    }

    // Opens `alert`, applies `act` to its box and returns the answers after the box is destroyed.
    std::vector<std::int32_t> answersTo(const Alert& alert, const Action& act)
    {
        std::vector<std::int32_t> answers;
        QWidget window;
        window.show();
        desktop_.openModal(&window, u"a.mov"_s, alert,
                           [&answers](std::int32_t answer) { answers.push_back(answer); });
        const QPointer<AlertBox> box = openBox();
        if (box == nullptr || !QTest::qWaitForWindowActive(box))
            return {};
        time_ += AnswerGuard::kDelay;
        act(*box);
        return QTest::qWaitFor([&box] { return box.isNull(); }) ? answers
                                                                : std::vector<std::int32_t>{-1};
    }

private Q_SLOTS:
    void aDropIsACopyAndDeliversOneListOfLocalFilesByTheirBytes()
    {
        DragView view;
        view.registerForDraggedTypes();
        QSignalSpy dropped(&view, &DragView::filesDropped);
        const auto enter = [&view](const QMimeData& data) {
            QDragEnterEvent event({1, 1}, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton,
                                  {});
            event.ignore();
            QApplication::sendEvent(&view, &event);
            return event.isAccepted() && event.dropAction() == Qt::CopyAction;
        };
        for (const auto& [list, paths] : std::vector<std::pair<const char*, Paths>>{
                 {"file:///tmp/a%20b%231.mov\r\n", {"/tmp/a b#1.mov"}},
                 {"file:///why%3F.mov\nfile:///why?.mov", {"/why?.mov", "/why?.mov"}},
                 {"file:///100%25.mov\nfile:///a%0Ab.mov", {"/100%.mov", "/a\nb.mov"}},
                 {"file:///caf%E9\nfile:///caf\xE9", {"/caf\xE9", "/caf\xE9"}},
                 {"file:/a%20b.mov\nfile://localhost/a", {"/a b.mov", "/a"}},
                 {"# comment\r\nhttps://host/two\r\n\r\nfile://elsewhere/three\r\n"
                  "file:///four%00\r\nfile:///five",
                  {"/five"}}}) {
            UriList data;
            data.bytes = list;
            QVERIFY(enter(data));
            QDropEvent drop({1, 1}, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton, {});
            QApplication::sendEvent(&view, &drop);
            QCOMPARE(drop.dropAction(), Qt::CopyAction);
            QCOMPARE(dropped.count(), 1);
            QVERIFY2(pathsOf(dropped.takeFirst()[0].value<std::vector<FileUrl>>()) == paths,
                     data.bytes.toPercentEncoding().constData());
        }
        QCOMPARE(log_.system().front(), std::string("File dropped in DragView: /tmp/a b#1.mov"));
        QMimeData text;
        text.setText(u"words"_s);
        QVERIFY(!enter(text));
    }

    void theTableDisplaysPrintableTextAndTheDetailsAsToolTip()
    {
        UploadingWindow with;
        with.queues.tableList().replace(0, "Uploading at 1.000 MB/s", 45);
        const auto text = [&with](int column, int role = Qt::DisplayRole) {
            return with.model.index(0, column).data(role).toString();
        };
        QCOMPARE(text(StatusTableModel::File), u"line␊feed\uFFFD.mov"_s);
        QCOMPARE(text(StatusTableModel::Status), u"Uploading at 1.000 MB/s"_s);
        QCOMPARE(text(StatusTableModel::Percent), u"45%"_s);
        QCOMPARE(text(StatusTableModel::Percent, StatusTableModel::PercentRole), u"45"_s);
        QVERIFY(text(StatusTableModel::Percent, Qt::ToolTipRole)
                    .contains(QString::fromStdString(with.folder.path()) +
                              u"/line␊feed\uFFFD.mov\n"_s));
    }

    void aRefreshRepaintsTheTwoCellsOfTheCurrentRowAndNothingOutOfSight()
    {
        UploadingWindow with;
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
        QSignalSpy changed(&with.model, &QAbstractItemModel::dataChanged);
        with.model.refreshCurrentRow();
        QCOMPARE(changed.count(), 0);
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
        with.report(0, AttemptEventKind::Finished);
        with.report(1, AttemptEventKind::Cancelled);
        with.queues.tableList().replace(2, "Retrying in 5s", -1);
        with.report(2, AttemptEventKind::Failed);
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

    void theStatusBarRepaintsOnlyWhatChanged()
    {
        UploadingWindow with;
        const auto set = [&with](const QString& rate) {
            return with.paintedBy([&with, rate] {
                with.window.filenameStatusBarLabel->setElidedText(u"clip.mov"_s);
                with.window.uploadStatusBarLabel->setText(rate);
                with.window.statusBarProgressBar->setValue(50);
            });
        };
        set(u"Upload rate: 111.111 MB/s"_s);
        const auto painted = set(u"Upload rate: 2.222 MB/s"_s);
        QCOMPARE(painted.second, QStringList(u"uploadStatusBarLabel"_s));
        QVERIFY(painted.first.isEmpty());
    }

    void anAnswerIsTheButtonsPositionAndEveryOtherExitIsNoButton()
    {
        const auto click = [](int position) {
            return [position](AlertBox& box) { button(box, position)->click(); };
        };
        const auto key = [](Qt::Key code) {
            return [code](AlertBox& box) { QTest::keyClick(&box, code); };
        };
        for (const auto& [act, answer] : std::vector<std::pair<Action, std::int32_t>>{
                 {click(0), kFirstButton},
                 {click(1), kSecondButton},
                 {click(2), kThirdButton},
                 {key(Qt::Key_Return), kFirstButton},
                 {key(Qt::Key_Escape), kNoButton},
                 {[](AlertBox& box) { box.close(); }, kNoButton}})
            QCOMPARE(answersTo(question_, act), std::vector{answer});
        QCOMPARE(answersTo(notice_, key(Qt::Key_Escape)), std::vector{kNoButton});
        QCOMPARE(answersTo(notice_, click(0)), std::vector{kFirstButton}); // OK
    }

    void anAlertIgnoresKeysAndClicksThatWereMeantForThePage()
    {
        const auto press = [this](const AlertBox& box, int milliseconds, Qt::Key key,
                                  const QString& text, bool repeated = false) {
            time_ += std::chrono::milliseconds(milliseconds);
            for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
                QKeyEvent event(type, key, {}, text, repeated);
                QApplication::sendEvent(box.focusWidget(), &event);
            }
            return !box.isVisible();
        };
        const auto answer = [&](AlertBox& box) {
            QEvent activation(QEvent::WindowActivate);
            QApplication::sendEvent(&box, &activation);
            QVERIFY(!press(box, 0, Qt::Key_Escape, u"\x1b"_s));
            QVERIFY(!press(box, 690, Qt::Key_Space, u" "_s));
            QVERIFY(!press(box, 690, Qt::Key_Space, u" "_s)); // typing continues
            QVERIFY(!press(box, 800, Qt::Key_Space, u" "_s, true));
            QVERIFY(!press(box, 690, Qt::Key_Return, u"\r"_s));
            QVERIFY(!press(box, 10, Qt::Key_Return, u"\r"_s, true));
            QVERIFY(press(box, 10, Qt::Key_Space, u" "_s));
        };
        QCOMPARE(answersTo(question_, answer), std::vector{kFirstButton});
        desktop_.openModal(nullptr, {}, question_, [](auto) {});
        QTest::mouseDClick(button(*openBox(), 1), Qt::LeftButton);
        QVERIFY(openBox() != nullptr);
        openBox()->reject();
    }

    void anAlertBlocksInputButNotTheCloseButtonAndReturnsTheKeyboardToAChooser()
    {
        QWidget window;
        QPushButton below(&window);
        QSignalSpy clicks(&below, &QPushButton::clicked);
        window.show();
        const auto clickBelow = [&] {
            QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {}, below.geometry().center());
            return clicks.count();
        };
        QCOMPARE(clickBelow(), 1);
        desktop_.openModal(&window, {}, question_, [](auto) {});
        QVERIFY(QTest::qWaitForWindowActive(openBox()));
        QCOMPARE(clickBelow(), 1);
        QCOMPARE(QGuiApplication::modalWindow(), nullptr); // it would keep `window` from closing
        openBox()->reject();
        QCOMPARE(clickBelow(), 2);

        desktop_.chooseFiles(&window, {});
        auto* const chooser = window.findChild<QFileDialog*>();
        QVERIFY(QTest::qWaitForWindowActive(chooser));
        const QWidget* const focus = QApplication::focusWidget();
        desktop_.openModal(&window, {}, question_, [](auto) {});
        QVERIFY(QTest::qWaitForWindowActive(openBox()));
        QCOMPARE(openBox()->parentWidget(), chooser);
        openBox()->reject();
        QVERIFY(QTest::qWaitForWindowActive(chooser));
        QCOMPARE(QApplication::focusWidget(), focus);
    }

    void everyButtonLayoutKeepsTheOrderAndAllTextIsPlain()
    {
        const auto inspect = [](AlertBox& box) {
            for (const QLabel* const label : box.findChildren<QLabel*>())
                QVERIFY(label->textFormat() == Qt::PlainText);
            QVERIFY(button(box, 0)->x() < button(box, 1)->x());
            QVERIFY(button(box, 1)->x() < button(box, 2)->x());
            QVERIFY(button(box, 0)->isDefault() && button(box, 0)->hasFocus());
            QCOMPARE(box.windowTitle(), u"a.mov"_s);
            QCOMPARE(box.informativeText(), u"a.mov\n\nSame <b>file</b>."_s);
            QCOMPARE(box.accessibleName(), u"File Exists"_s);
            box.close();
        };
        for (const int layout : {0, 1, 2, 3}) { // Windows, macOS, KDE, GNOME
            qApp->setStyleSheet(u"QDialogButtonBox { button-layout: %1; }"_s.arg(layout));
            QCOMPARE(answersTo(question_, inspect).size(), 1U);
        }
        qApp->setStyleSheet({});
    }

    void runModalWaitsForTheAnswerAndTheEndOfTheProgramIsNone()
    {
        QTimer::singleShot(0, this, [] { button(*openBox(), 1)->click(); });
        QCOMPARE(desktop_.runModal(nullptr, question_), kSecondButton);

        std::optional<std::int32_t> answer = kFirstButton;
        QTimer::singleShot(0, this, [this, &answer] {
            QTimer::singleShot(0, this, [] { QCoreApplication::exit(3); });
            answer = desktop_.runModal(nullptr, question_);
        });
        QCOMPARE(QApplication::exec(), 3);
        QCOMPARE(answer, std::nullopt);
        QCOMPARE(openBox(), nullptr);
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::WidgetsTest)
#include "widgets_test.moc"
