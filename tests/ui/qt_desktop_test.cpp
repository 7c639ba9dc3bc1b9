#include "tests/fakes/temp_folder.h"
#include "ui/desktop.h"

#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QTest>

namespace quenmoor {

class QtDesktopTest : public QObject {
    Q_OBJECT

private:
    TempFolder folder_;
    QtDesktop desktop_;

    // Opens the chooser, types `names` into it and ends it with `key`. Nothing when nothing was
    // chosen.
    std::optional<std::vector<std::string>> chosen(const QString& names, Qt::Key key)
    {
        std::optional<std::vector<std::string>> paths;
        QWidget window;
        desktop_.chooseFiles(&window, [&paths](const std::vector<FileUrl>& files) {
            paths.emplace();
            for (const FileUrl& file : files)
                paths->push_back(file.filename());
        });
        const QPointer<QFileDialog> chooser = window.findChild<QFileDialog*>();
        chooser->setDirectory(QString::fromStdString(folder_.path()));
        auto* const line = chooser->findChild<QLineEdit*>();
        line->setText(names);
        if (!QTest::qWaitForWindowActive(chooser))
            return {};
        QTest::keyClick(line, key);
        if (!QTest::qWaitFor([&chooser] { return chooser.isNull(); }))
            return {};
        return paths;
    }

private Q_SLOTS:
    void theChoiceIsHandedOnInItsOrder_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("names");
        const QString awkward = QStringLiteral("what? 100%25 #2 é.mov");
        QTest::newRow("one") << QStringLiteral("b.mov") << QStringList{QStringLiteral("b.mov")};
        QTest::newRow("several") << QStringLiteral("\"b.mov\" \"a.mov\"")
                                 << QStringList{QStringLiteral("b.mov"), QStringLiteral("a.mov")};
        QTest::newRow("awkward") << awkward << QStringList{awkward};
    }
    void theChoiceIsHandedOnInItsOrder()
    {
        QFETCH(QString, typed);
        QFETCH(QStringList, names);
        std::vector<std::string> expected;
        for (const QString& name : names) {
            expected.push_back(name.toStdString());
            folder_.file(name.toStdString(), "x");
        }
        const auto files = chosen(typed, Qt::Key_Return);
        QVERIFY(files.has_value());
        QCOMPARE(*files, expected);
    }

    void givingUpHandsOnNothing()
    {
        QVERIFY(!chosen(QStringLiteral("b.mov"), Qt::Key_Escape).has_value());
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::QtDesktopTest)
#include "qt_desktop_test.moc"
