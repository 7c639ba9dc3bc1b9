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

    using Paths = std::vector<std::string>;

    static Paths pathsOf(const std::vector<FileUrl>& files)
    {
        Paths paths;
        for (const FileUrl& file : files)
            paths.push_back(file.path());
        return paths;
    }

    // As a drag source hands it over.
    static void setList(QMimeData& data, const QByteArray& uriList)
    {
        data.setData(QStringLiteral("text/uri-list"), uriList);
    }

private Q_SLOTS:
    void aDroppedNameMeansTheVeryFile()
    {
        struct Row {
            const char* list;
            Paths paths;
        };
        for (const Row& row : {
                 Row{"file:///tmp/a%20b%231.mov\r\n", {"/tmp/a b#1.mov"}},
                 Row{"file:///why%3F.mov", {"/why?.mov"}},
                 Row{"file:///why?.mov", {"/why?.mov"}},
                 Row{"file:///100%25.mov", {"/100%.mov"}},
                 Row{"file:///a%0Ab.mov", {"/a\nb.mov"}},
                 Row{"file:///caf%E9.mov", {"/caf\xE9.mov"}},
                 Row{"file:///\xC3\xA9t\xC3\xA9.mov", {"/\xC3\xA9t\xC3\xA9.mov"}},
                 Row{"file:/a%20b.mov", {"/a b.mov"}},
                 Row{"file://localhost/a", {"/a"}},
                 // what names no file here is passed over
                 Row{"# a remark\r\nfile:///one\r\nhttps://host/two\r\n\r\n"
                     "file://elsewhere/three\r\nfile:///four%00\r\nfile:///five",
                     {"/one", "/five"}},
             }) {
            QMimeData data;
            setList(data, row.list);
            QVERIFY2(pathsOf(DragView::draggedFiles(data)) == row.paths, row.list);
        }
        QMimeData data; // the toolkit's own list
        data.setUrls({QUrl::fromEncoded("file:///caf%E9%3F.mov"),
                      QUrl::fromLocalFile(QStringLiteral("/a#b?c%41.mov"))});
        QCOMPARE(pathsOf(DragView::draggedFiles(data)), (Paths{"/caf\xE9?.mov", "/a#b?c%41.mov"}));
    }

    void aDropHandsOnOneListAndIsACopy()
    {
        DragView view;
        view.registerForDraggedTypes();
        QSignalSpy dropped(&view, &DragView::filesDropped);
        QMimeData data;
        setList(data, "file:///tmp/b\nfile:///tmp/a%20c\n");

        QDragEnterEvent enter({1, 1}, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(&view, &enter);
        QVERIFY(enter.isAccepted());
        QCOMPARE(enter.dropAction(), Qt::CopyAction);
        QDropEvent drop({1, 1}, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(&view, &drop);
        QCOMPARE(drop.dropAction(), Qt::CopyAction);

        QCOMPARE(dropped.count(), 1);
        QCOMPARE(pathsOf(dropped[0][0].value<std::vector<FileUrl>>()),
                 (Paths{"/tmp/b", "/tmp/a c"}));
        QCOMPARE(log_.system(), (std::vector<std::string>{"File dropped in DragView: /tmp/b",
                                                          "File dropped in DragView: /tmp/a c"}));
    }

    void aDropWithoutFilesHandsOnAnEmptyListAndOtherDragsAreNotTaken()
    {
        DragView view;
        view.registerForDraggedTypes();
        QSignalSpy dropped(&view, &DragView::filesDropped);
        QMimeData links;
        setList(links, "https://host/page");
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
