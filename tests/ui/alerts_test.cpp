#include "ui/desktop.h"

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTimer>

namespace quenmoor {

class AlertsTest : public QObject {
    Q_OBJECT

private:
    const Alert question_{"File Exists", "Same <b>file</b>.", {"Cancel", "Overwrite", "Resume"}};

    static QDialog* shownDialog()
    {
        return qobject_cast<QDialog*>(QApplication::activeModalWidget());
    }

    // Opens `alert`, does `act` to its dialog, and returns what was answered, once it was.
    static std::vector<std::int32_t> answersTo(const Alert& alert,
                                               const std::function<void(QDialog&)>& act)
    {
        std::vector<std::int32_t> answers;
        QWidget window;
        window.show();
        QtDesktop().openModal(&window, QStringLiteral("a.mov"), alert,
                              [&answers](std::int32_t answer) { answers.push_back(answer); });
        const QPointer<QDialog> dialog = shownDialog();
        if (dialog == nullptr || !QTest::qWaitForWindowExposed(dialog))
            return {};
        act(*dialog);
        if (!QTest::qWaitFor([&dialog] { return dialog.isNull(); }))
            answers.push_back(-1); // it was left standing
        return answers;
    }

    static QPushButton* button(const QDialog& dialog, qsizetype place)
    {
        return dialog.findChildren<QPushButton*>().value(place);
    }

private Q_SLOTS:
    void anAnswerIsTheButtonsPosition()
    {
        for (const int place : {0, 1, 2}) {
            const auto click = [place](QDialog& dialog) { button(dialog, place)->click(); };
            QCOMPARE(answersTo(question_, click), std::vector<std::int32_t>{1000 + place});
        }
    }

    void theFirstButtonIsTheDefault()
    {
        const auto enter = [](QDialog& dialog) { QTest::keyClick(&dialog, Qt::Key_Return); };
        QCOMPARE(answersTo(question_, enter), std::vector<std::int32_t>{kFirstButton});
    }

    void anyOtherWayOutIsNoButton()
    {
        const auto escape = [](QDialog& dialog) { QTest::keyClick(&dialog, Qt::Key_Escape); };
        const auto close = [](QDialog& dialog) { dialog.close(); };
        QCOMPARE(answersTo(question_, escape), std::vector<std::int32_t>{kNoButton});
        QCOMPARE(answersTo(question_, close), std::vector<std::int32_t>{kNoButton});
    }

    void showsTheWordsAsTheyAreAndTheButtonsInTheirOrder()
    {
        const auto look = [](QDialog& dialog) {
            QStringList texts;
            for (const QLabel* const label : dialog.findChildren<QLabel*>()) {
                QVERIFY(label->textFormat() == Qt::PlainText || label->text().isEmpty());
                texts << label->text();
            }
            QVERIFY(texts.contains(QStringLiteral("File Exists")));
            QVERIFY(texts.contains(QStringLiteral("Same <b>file</b>.")));
            QCOMPARE(dialog.windowTitle(), QStringLiteral("a.mov"));
            QCOMPARE(dialog.accessibleName(), QStringLiteral("File Exists"));
            QVERIFY(button(dialog, 0)->x() < button(dialog, 1)->x());
            QVERIFY(button(dialog, 1)->x() < button(dialog, 2)->x());
            dialog.close();
        };
        QCOMPARE(answersTo(question_, look).size(), 1U);
    }

    void anAlertWithoutButtonsHasOneThatSaysOk()
    {
        const auto look = [](QDialog& dialog) {
            QCOMPARE(dialog.findChildren<QPushButton*>().size(), 1);
            QCOMPARE(button(dialog, 0)->text(), QStringLiteral("OK"));
            button(dialog, 0)->click();
        };
        QCOMPARE(answersTo({"The end.", {}, {}}, look), std::vector<std::int32_t>{kFirstButton});
    }

    void waitingForTheAnswerEndsWithIt()
    {
        QTimer::singleShot(0, this, [] { button(*shownDialog(), 1)->click(); });
        QCOMPARE(QtDesktop().runModal(nullptr, question_), kSecondButton);
    }

    void theProgramsEndIsNoAnswer()
    {
        std::optional<std::int32_t> answer = kFirstButton;
        QTimer::singleShot(0, this, [this, &answer] {
            QTimer::singleShot(0, this, [] { QCoreApplication::exit(3); });
            answer = QtDesktop().runModal(nullptr, question_);
        });
        QCOMPARE(QApplication::exec(), 3);
        QCOMPARE(answer, std::nullopt);
        QCOMPARE(shownDialog(), nullptr);
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::AlertsTest)
#include "alerts_test.moc"
