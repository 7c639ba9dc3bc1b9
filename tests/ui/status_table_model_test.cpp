#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "ui/status_table_model.h"

#include <QAbstractItemModelTester>
#include <QItemSelectionModel>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>
#include <array>

namespace quenmoor {

class StatusTableModelTest : public QObject {
    Q_OBJECT

private:
    SilentLog log_;
    TempFolder folder_;

    // Queues `count` times the same file, each with its row.
    void fill(UploadQueues& queues, StatusTableModel& model, int count,
              const std::string& name = "clip.mov")
    {
        const FileUrl file = FileUrl::fromPath(folder_.file(name, "x"));
        for (int i = 0; i < count; ++i) {
            queues.addFiles(std::array{file});
            QVERIFY(queues.acceptToken("t"));
            model.appendRow(file);
        }
    }

    static QString text(const StatusTableModel& model, int row, int column,
                        int role = Qt::DisplayRole)
    {
        return model.data(model.index(row, column), role).toString();
    }

private Q_SLOTS:
    void showsTheRowsCellsAndTheWholePathAsToolTip()
    {
        UploadQueues queues;
        StatusTableModel model(queues);
        const QAbstractItemModelTester tester(&model);
        fill(queues, model, 1, "line\nfeed\xFF.mov");
        queues.tableList().replace(0, "Uploading at 1.000 MB/s", 45);

        QCOMPARE(text(model, 0, StatusTableModel::File), QStringLiteral("line␊feed\uFFFD.mov"));
        QCOMPARE(text(model, 0, StatusTableModel::Status),
                 QStringLiteral("Uploading at 1.000 MB/s"));
        QCOMPARE(text(model, 0, StatusTableModel::Percent), QStringLiteral("45%"));
        QCOMPARE(model.data(model.index(0, 2), StatusTableModel::PercentRole).toInt(), 45);
        QCOMPARE(text(model, 0, StatusTableModel::File, Qt::ToolTipRole),
                 QString::fromStdString(folder_.path()) + QStringLiteral("/line␊feed\uFFFD.mov"));
        QCOMPARE(model.headerData(2, Qt::Horizontal, Qt::DisplayRole).toString(),
                 QStringLiteral("Percent"));
    }

    void aRefreshTellsOfTheRowUnderUploadOnly()
    {
        UploadQueues queues;
        StatusTableModel model(queues);
        model.refreshCurrentRow(); // nothing is under upload
        fill(queues, model, 3);
        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

        queues.removeUploadHead(); // the first file is done
        model.refreshCurrentRow();
        QCOMPARE(changed.count(), 2);
        for (int i = 0; i < changed.count(); ++i) {
            const QModelIndex cell = model.index(1, StatusTableModel::Status + i);
            QCOMPARE(changed[i][0].toModelIndex(), cell);
            QCOMPARE(changed[i][1].toModelIndex(), cell);
        }

        queues.removeUploadHead();
        queues.removeUploadHead();
        model.refreshCurrentRow();
        QCOMPARE(changed.count(), 2);
    }

    void aLongTableKeepsItsSelectionAndPlaceWhileRowsComeAndChange()
    {
        UploadQueues queues;
        StatusTableModel model(queues);
        QTableView table;
        table.setModel(&model);
        fill(queues, model, 1000);
        table.show();
        table.selectRow(500);
        table.scrollTo(model.index(500, 0), QAbstractItemView::PositionAtTop);
        const int place = table.verticalScrollBar()->value();
        QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
        QSignalSpy layouts(&model, &QAbstractItemModel::layoutChanged);

        fill(queues, model, 100);
        for (int percent = 0; percent <= 100; ++percent) {
            queues.tableList().replace(0, "Uploading", percent);
            model.refreshCurrentRow();
        }
        QCoreApplication::processEvents();

        QCOMPARE(table.verticalScrollBar()->value(), place);
        QCOMPARE(table.selectionModel()->selectedRows().value(0).row(), 500);
        QCOMPARE(resets.count() + layouts.count(), 0);
    }

    // The two figures are to be the same.
    void refreshing_data()
    {
        QTest::addColumn<int>("rows");
        QTest::newRow("10") << 10;
        QTest::newRow("100000") << 100000;
    }
    void refreshing()
    {
        QFETCH(int, rows);
        UploadQueues queues;
        StatusTableModel model(queues);
        const FileUrl done = FileUrl::fromPath("/done.mov");
        for (int i = 1; i < rows; ++i) {
            queues.tableList().addObject({"done.mov", "Finished", 100});
            model.appendRow(done);
        }
        fill(queues, model, 1);
        const auto current = static_cast<std::size_t>(rows - 1);
        QTableView table;
        table.setModel(&model);
        table.show();
        table.scrollToBottom();
        QCoreApplication::processEvents();
        std::int32_t percent = 0;
        QBENCHMARK
        {
            percent = (percent + 1) % 100;
            queues.tableList().replace(current, "Uploading", percent);
            model.refreshCurrentRow();
            QCoreApplication::processEvents();
        }
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::StatusTableModelTest)
#include "status_table_model_test.moc"
