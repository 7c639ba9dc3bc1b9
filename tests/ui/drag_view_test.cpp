#include "tests/fakes/quiet_log.h"
#include "ui/drag_view.h"

#include <QApplication>
#include <QDropEvent>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>

namespace quenmoor {

class DragViewTest : public QObject {
    Q_OBJECT

private:
    RecordingLog log_;

    // As a drag source hands it over.
    static std::vector<std::string> pathsOf(const QByteArray& uriList)
    {
        QMimeData data;
        data.setData(QStringLiteral("text/uri-list"), uriList);
        std::vector<std::string> paths;
        for (const FileUrl& file : DragView::draggedFiles(data))
            paths.push_back(file.path());
        return paths;
    }

private Q_SLOTS:
    void aDroppedNameMeansTheVeryFile_data()
    {
        QTest::addColumn<QByteArray>("url");
        QTest::addColumn<QByteArray>("path");
        QTest::newRow("blank and hash")
            << QByteArray("file:///tmp/a%20b%231.mov") << QByteArray("/tmp/a b#1.mov");
        QTest::newRow("question mark")
            << QByteArray("file:///why%3F.mov") << QByteArray("/why?.mov");
        QTest::newRow("bare question mark")
            << QByteArray("file:///why?.mov") << QByteArray("/why?.mov");
        QTest::newRow("per cent") << QByteArray("file:///100%25.mov") << QByteArray("/100%.mov");
        QTest::newRow("newline") << QByteArray("file:///a%0Ab.mov") << QByteArray("/a\nb.mov");
        QTest::newRow("not UTF-8")
            << QByteArray("file:///caf%E9.mov") << QByteArray("/caf\xE9.mov");
        QTest::newRow("letters as they are")
            << QByteArray("file:///\xC3\xA9t\xC3\xA9.mov") << QByteArray("/\xC3\xA9t\xC3\xA9.mov");
        QTest::newRow("one slash") << QByteArray("file:/a%20b.mov") << QByteArray("/a b.mov");
        QTest::newRow("local host") << QByteArray("file://localhost/a") << QByteArray("/a");
    }
    void aDroppedNameMeansTheVeryFile()
    {
        QFETCH(QByteArray, url);
        QFETCH(QByteArray, path);
        QCOMPARE(pathsOf(url + "\r\n"), std::vector{path.toStdString()});
    }

    void aNameSurvivesTheToolkitsOwnList()
    {
        QMimeData data;
        data.setUrls({QUrl::fromEncoded("file:///caf%E9%3F.mov"),
                      QUrl::fromLocalFile(QStringLiteral("/a#b?c%41.mov"))});
        const std::vector<FileUrl> files = DragView::draggedFiles(data);
        QCOMPARE(files.size(), 2U);
        QCOMPARE(files[0].path().string(), std::string("/caf\xE9?.mov"));
        QCOMPARE(files[1].path().string(), std::string("/a#b?c%41.mov"));
    }

    void whatNamesNoFileHereIsPassedOver()
    {
        QCOMPARE(pathsOf("# a remark\r\nfile:///one\r\nhttps://host/two\r\n\r\n"
                         "file://elsewhere/three\r\nfile:///four%00\r\nfile:///five"),
                 (std::vector<std::string>{"/one", "/five"}));
    }

    void aDropHandsOnOneListAndIsACopy()
    {
        DragView view;
        view.registerForDraggedTypes();
        QSignalSpy dropped(&view, &DragView::filesDropped);
        QMimeData data;
        data.setData(QStringLiteral("text/uri-list"), "file:///tmp/b\nfile:///tmp/a%20c\n");

        QDragEnterEvent enter({1, 1}, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(&view, &enter);
        QVERIFY(enter.isAccepted());
        QCOMPARE(enter.dropAction(), Qt::CopyAction);
        QDropEvent drop({1, 1}, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(&view, &drop);
        QCOMPARE(drop.dropAction(), Qt::CopyAction);

        QCOMPARE(dropped.count(), 1);
        QCOMPARE(dropped[0][0].value<std::vector<FileUrl>>().size(), 2U);
        QCOMPARE(log_.system(), (std::vector<std::string>{"File dropped in DragView: /tmp/b",
                                                          "File dropped in DragView: /tmp/a c"}));
    }

    void aDropWithoutFilesHandsOnAnEmptyListAndOtherDragsAreNotTaken()
    {
        DragView view;
        view.registerForDraggedTypes();
        QSignalSpy dropped(&view, &DragView::filesDropped);
        QMimeData links;
        links.setData(QStringLiteral("text/uri-list"), "https://host/page");
        QDragEnterEvent over({1, 1}, Qt::CopyAction, &links, Qt::LeftButton, {});
        QApplication::sendEvent(&view, &over);
        QVERIFY(over.isAccepted()); // whatever it names
        QDropEvent drop({1, 1}, Qt::CopyAction, &links, Qt::LeftButton, {});
        QApplication::sendEvent(&view, &drop);
        QCOMPARE(dropped.count(), 1);
        QVERIFY(dropped[0][0].value<std::vector<FileUrl>>().empty());

        QMimeData text;
        text.setText(QStringLiteral("words"));
        QDragEnterEvent enter({1, 1}, Qt::CopyAction, &text, Qt::LeftButton, {});
        enter.ignore();
        QApplication::sendEvent(&view, &enter);
        QVERIFY(!enter.isAccepted());
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::DragViewTest)
#include "drag_view_test.moc"
