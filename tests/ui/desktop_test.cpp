// Alerts and the file chooser with Qt's own dialogs.
#include "tests/fakes/temp_folder.h"
#include "ui/desktop.h"

#include <QApplication>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTimer>

namespace quenmoor {

using namespace Qt::StringLiterals;

class DesktopTest : public QObject {
    Q_OBJECT

private:
    using Action = std::function<void(QMessageBox&)>;

    const Alert question_{"File Exists", "Same <b>file</b>.", {"Cancel", "Overwrite", "Resume"}};
    TempFolder folder_;
    QtDesktop desktop_;

    static QMessageBox* openBox()
    {
        return qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    }
    static QPushButton* button(const QMessageBox& box, qsizetype position)
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
        const QPointer<QMessageBox> box = openBox();
        if (box == nullptr || !QTest::qWaitForWindowExposed(box))
            return {};
        act(*box);
        return QTest::qWaitFor([&box] { return box.isNull(); }) ? answers
                                                                : std::vector<std::int32_t>{-1};
    }

private Q_SLOTS:
    void anAnswerIsTheButtonsPositionAndEveryOtherExitIsNoButton()
    {
        const auto click = [](int position) {
            return [position](QMessageBox& box) { button(box, position)->click(); };
        };
        const auto key = [](Qt::Key code) {
            return [code](QMessageBox& box) { QTest::keyClick(&box, code); };
        };
        for (const auto& [act, answer] : std::vector<std::pair<Action, std::int32_t>>{
                 {click(0), kFirstButton},
                 {click(1), kSecondButton},
                 {click(2), kThirdButton},
                 {key(Qt::Key_Return), kFirstButton},
                 {key(Qt::Key_Escape), kNoButton},
                 {[](QMessageBox& box) { box.close(); }, kNoButton}})
            QCOMPARE(answersTo(question_, act), std::vector{answer});
        QCOMPARE(answersTo({"The end.", {}, {}}, key(Qt::Key_Escape)), std::vector{kNoButton});
    }

    void everyButtonLayoutKeepsTheOrderAndAllTextIsPlain()
    {
        const auto inspect = [](QMessageBox& box) {
            for (const QLabel* const label : box.findChildren<QLabel*>())
                QVERIFY(label->textFormat() == Qt::PlainText);
            QVERIFY(button(box, 0)->x() < button(box, 1)->x());
            QVERIFY(button(box, 1)->x() < button(box, 2)->x());
            QVERIFY(button(box, 0)->isDefault() && button(box, 0)->hasFocus());
            QCOMPARE(box.windowTitle(), u"a.mov"_s);
            QCOMPARE(box.accessibleName(), u"File Exists"_s);
            QCOMPARE(box.windowModality(), Qt::WindowModal);
            box.close();
        };
        for (const int layout : {0, 1, 2, 3}) { // Windows, macOS, KDE, GNOME
            qApp->setStyleSheet(u"QDialogButtonBox { button-layout: %1; }"_s.arg(layout));
            QCOMPARE(answersTo(question_, inspect).size(), 1U);
        }
        qApp->setStyleSheet({});
        QCOMPARE(answersTo({"The end.", {}, {}},
                           [](QMessageBox& box) {
                               QCOMPARE(button(box, 0)->text(), u"OK"_s);
                               button(box, 0)->click();
                           }),
                 std::vector{kFirstButton});
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

    void theChooserReturnsTheFilesInOrderAndNothingWhenCancelled()
    {
        const std::string awkward = "what? 100%25 #2 é.mov";
        for (const std::string& name : {std::string("a.mov"), std::string("b.mov"), awkward})
            folder_.file(name, "x");
        const auto choose = [this](const QString& typed, Qt::Key key) {
            std::vector<std::string> names;
            QWidget window;
            desktop_.chooseFiles(&window, [&names](const std::vector<FileUrl>& files) {
                for (const FileUrl& file : files)
                    names.push_back(file.filename());
            });
            const QPointer<QFileDialog> chooser = window.findChild<QFileDialog*>();
            chooser->setDirectory(QString::fromStdString(folder_.path()));
            auto* const line = chooser->findChild<QLineEdit*>();
            line->setText(typed);
            if (!QTest::qWaitForWindowActive(chooser))
                return std::vector<std::string>{"(no chooser)"};
            QTest::keyClick(line, key);
            static_cast<void>(QTest::qWaitFor([&chooser] { return chooser.isNull(); }));
            return names;
        };
        QCOMPARE(choose(u"\"b.mov\" \"a.mov\""_s, Qt::Key_Return),
                 (std::vector<std::string>{"b.mov", "a.mov"}));
        QCOMPARE(choose(QString::fromStdString(awkward), Qt::Key_Return), std::vector{awkward});
        QCOMPARE(choose(u"b.mov"_s, Qt::Key_Escape), std::vector<std::string>{});
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::DesktopTest)
#include "desktop_test.moc"
