#include "queue/file_url.h"
#include "queue/upload_queues.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <thread>

namespace quenmoor {
namespace {

TEST(FileUrl, writesAPathWithTheQuerySet)
{
    EXPECT_EQ(FileUrl::fromPath("/tmp/a b#1.mov").text(), "file:///tmp/a%20b%231.mov");
    EXPECT_EQ(FileUrl::fromPath("/tmp/why?.mov").text(), "file:///tmp/why?.mov");
}

TEST(FileUrl, namesTheVerySameFileByEveryRoad)
{
    for (const std::string name : {"/a b", "/100%", "/a#b", "/a?b&c=d", "/line\nfeed", "/caf\xE9",
                                   "/%41", "/\xF0\x9F\x8E\xAC"}) {
        EXPECT_EQ(FileUrl::fromPath(name).path(), name);
        EXPECT_EQ(FileUrl::parse(FileUrl::fromPath(name).text()), FileUrl::fromPath(name));
    }
    // toolkits encode more than we do
    EXPECT_EQ(FileUrl::parse("file:///a%3Fb%26c")->path(), "/a?b&c");
    EXPECT_EQ(FileUrl::parse("file://localhost/a%20b")->filename(), "a b");
}

TEST(FileUrl, refusesWhatNamesNoFileOfThisMachine)
{
    for (const char* const url :
         {"", "/plain/path", "http://host/a", "file:a", "file://", "file://host/a",
          "file://localhost", "file://localhostile/a", "file:///a%00b"})
        EXPECT_FALSE(FileUrl::parse(url)) << url;
}

struct Queues : testing::Test {
    const RecordingLog log;
    const TempFolder folder;
    UploadQueues queues;

    void add(const std::vector<std::filesystem::path>& paths)
    {
        std::vector<FileUrl> urls;
        for (const auto& path : paths)
            urls.push_back(FileUrl::fromPath(path));
        queues.addFiles(urls);
    }
};

TEST_F(Queues, takePlainFilesOnlyAndTakeThemTwiceWhenTold)
{
    const auto clip = folder.file("clip.mov", "12345");
    const auto empty = folder.file("empty", "");
    std::filesystem::create_directory(folder.path() / "folder");
    ASSERT_EQ(mkfifo((folder.path() / "pipe").c_str(), 0600), 0);

    add({clip, folder.path() / "folder", folder.path() / "missing", folder.path() / "pipe", empty,
         clip});

    ASSERT_EQ(queues.fileQueue().size(), 3U);
    EXPECT_EQ(queues.fileQueue()[0].size, 5);
    EXPECT_FALSE(queues.fileQueue()[0].token);
    EXPECT_EQ(queues.fileQueue()[1].size, 0);
    EXPECT_EQ(queues.fileQueue()[2].file, queues.fileQueue()[0].file);
    add({});
    EXPECT_EQ(log.system().back(), "Number of files in file queue: 3");
}

TEST_F(Queues, giveEachTokenARowAndEachCancellationNone)
{
    add({folder.file("a", "1"), folder.file("caf\xE9", "2"), folder.file("c", "3")});

    EXPECT_TRUE(queues.acceptToken("t1"));
    EXPECT_TRUE(queues.acceptToken("t2"));
    EXPECT_TRUE(queues.cancelHead());
    EXPECT_FALSE(queues.acceptToken("t3"));
    EXPECT_FALSE(queues.cancelHead());

    ASSERT_EQ(queues.tableList().count(), 2U);
    EXPECT_EQ(queues.tableList().cell("File", 1), "caf\xEF\xBF\xBD");
    EXPECT_EQ(queues.tableList().cell("Status", 1), "Queued");
    EXPECT_EQ(queues.tableList().cell("Percent", 1), "0%");
    EXPECT_EQ(queues.tableList().cell("Other", 1), "0");
    EXPECT_EQ(queues.tableList().cell("File", 2), "");

    EXPECT_EQ(queues.uploadCount(), 2U);
    EXPECT_EQ(queues.uploadHead()->token, "t1");
    queues.removeUploadHead();
    EXPECT_EQ(queues.uploadHead()->file.filename(), "caf\xE9");
    EXPECT_EQ(queues.tableList().count(), 2U);
}

TEST_F(Queues, neverShowAFileWithoutItsRow)
{
    constexpr std::size_t kFiles = 2000;
    const auto clip = folder.file("clip.mov", "1");
    add(std::vector<std::filesystem::path>(kFiles, clip));
    std::thread uploader([this] {
        for (std::size_t done = 0; done < kFiles;) {
            if (!queues.uploadHead())
                continue;
            EXPECT_NE(queues.tableList().objectAtIndex(done), nullptr);
            queues.tableList().replace(done, "Finished", 100);
            queues.removeUploadHead();
            ++done;
        }
    });
    while (queues.acceptToken("t")) {
    }
    uploader.join();
    EXPECT_EQ(queues.tableList().objectAtIndex(kFiles - 1)->percent, 100);
}

TEST(StatusTable, replacesRowsWholeAndKeepsThemWhenNothingDiffers)
{
    StatusTable table;
    table.addObject({"a", "Queued", 0});
    table.insertObject({"first", "Queued", 7}, 0);
    table.insertObject({"last", "Queued", 0}, 99);
    EXPECT_EQ(table.cell("File", 0) + table.cell("File", 1) + table.cell("File", 2), "firstalast");

    const auto before = table.objectAtIndex(0);
    EXPECT_FALSE(table.replace(0, "Queued", 7));
    EXPECT_EQ(table.objectAtIndex(0), before);

    // a negative percentage keeps the row's own
    EXPECT_TRUE(table.replace(0, "Waiting (Error)", -1));
    EXPECT_EQ(table.cell("Percent", 0), "7%");
    EXPECT_EQ(before->status, "Queued");
    EXPECT_FALSE(table.replace(3, "Connecting", 0));
}

} // namespace
} // namespace quenmoor
