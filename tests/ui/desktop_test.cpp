// Alerts with Qt's message box.
#include "ui/desktop.h"

#include <QApplication>
#include <QLabel>
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
    const Alert notice_{"The end.", {}, {}};
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
        QCOMPARE(answersTo(notice_, key(Qt::Key_Escape)), std::vector{kNoButton});
        QCOMPARE(answersTo(notice_, click(0)), std::vector{kFirstButton}); // OK
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

QTEST_MAIN(quenmoor::DesktopTest)
#include "desktop_test.moc"
