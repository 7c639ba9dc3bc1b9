#include "queue/file_url.h"
#include "queue/upload_queues.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

namespace quenmoor {
namespace {

TEST(FileUrl, convertsAPathToAUrlAndBack)
{
    EXPECT_EQ(FileUrl::fromPath("/tmp/why? a#1.mov").text(), "file:///tmp/why?%20a%231.mov");
    const std::string name = "/a b%#?&=d\n\xE9%41";
    EXPECT_EQ(FileUrl::parse(FileUrl::fromPath(name).text())->path(), name);
    EXPECT_EQ(FileUrl::parse("file:///a%3Fb%26c"), FileUrl::fromPath("/a?b&c"));
    EXPECT_EQ(FileUrl::parse("file://localhost/x/a%20b")->filename(), "a b");
    for (const char* const url :
         {"", "/plain/path", "http://host/a", "file:a", "file://", "file://host/a",
          "file://localhost", "file://localhostile/a", "file:///a%00b"})
        EXPECT_FALSE(FileUrl::parse(url)) << url;
}

struct Queues : testing::Test {
    const RecordingLog log;
    const TempFolder folder;
    UploadQueues queues;

    Intake add(const std::vector<std::filesystem::path>& paths)
    {
        std::vector<FileUrl> urls;
        for (const auto& path : paths)
            urls.push_back(FileUrl::fromPath(path));
        return queues.addFiles(urls);
    }
};

TEST_F(Queues, acceptReadablePlainFilesAndDuplicates)
{
    const auto clip = folder.file("clip.mov", "12345");
    const auto secret = folder.file("secret", "no permission");
    const auto empty = folder.file("empty", "");
    std::filesystem::create_directory(folder.path() / "folder");
    ASSERT_EQ(mkfifo((folder.path() / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(chmod(secret.c_str(), 0) + chmod(folder.path().c_str(), 0755), 0);
    const bool isRoot = seteuid(65534) == 0; // root may open every file
    const Intake intake = add({clip, folder.path() / "folder", folder.path() / "missing",
                               folder.path() / "pipe", secret, empty, clip});
    ASSERT_TRUE(!isRoot || seteuid(0) == 0);
    EXPECT_EQ(intake.taken, 7U);
    EXPECT_EQ(intake.folders * 100 + intake.missing * 10 + intake.unreadable, 112U);
    std::vector<std::int64_t> sizes;
    for (const InfoContainer& file : queues.fileQueue())
        sizes.push_back(file.size);
    EXPECT_EQ(sizes, (std::vector<std::int64_t>{5, 0, 5}));
    const std::vector<FileUrl> more(3, FileUrl::fromPath(clip));
    EXPECT_EQ(queues.addFiles(more, {}).taken, 1U); // the time is over
    EXPECT_EQ(log.system().back(), "Number of files in file queue: 4");
}

TEST_F(Queues, appendARowForEachTokenAndNoneForACancelledFile)
{
    add({folder.file("a", "1"), folder.file("caf\xE9", "2"), folder.file("c", "3")});
    EXPECT_TRUE(queues.acceptToken("t1"));
    EXPECT_TRUE(queues.acceptToken("t2"));
    EXPECT_TRUE(queues.cancelHead());
    EXPECT_FALSE(queues.acceptToken("t3"));
    EXPECT_FALSE(queues.cancelHead());

    const StatusTable& table = queues.tableList();
    EXPECT_EQ(table.cell("File", 1) + table.cell("Status", 1), "caf\uFFFDQueued");
    EXPECT_EQ(table.cell("Percent", 1) + table.cell("Other", 1), "0%0");
    EXPECT_EQ(table.cell("File", 2), "");
}

TEST_F(Queues, appendTheRowBeforeTheUploadThreadSeesTheFile)
{
    constexpr std::size_t kFiles = 20000;
    add(std::vector<std::filesystem::path>(kFiles, folder.file("clip.mov", "1")));
    std::thread uploader([this] {
        for (std::size_t done = 0; done < kFiles;) {
            if (queues.uploadCount() == 0)
                continue;
            EXPECT_TRUE(queues.tableList().replace(done++, "Finished", 100));
            queues.removeUploadHead();
        }
    });
    while (queues.acceptToken("t")) {
    }
    uploader.join();
}

TEST(StatusTable, replacesARowOnlyIfAValueDiffers)
{
    StatusTable table;
    table.addObject({"a", "Queued", 0});
    table.insertObject({"first", "Queued", 7}, 0);
    table.insertObject({"last", "Queued", 0}, 99);
    EXPECT_EQ(table.cell("File", 0) + table.cell("File", 1) + table.cell("File", 2), "firstalast");
    const auto before = table.objectAtIndex(0);
    EXPECT_FALSE(table.replace(0, "Queued", 7));
    EXPECT_EQ(table.objectAtIndex(0), before);
    // A negative percentage keeps the row's own.
    EXPECT_TRUE(table.replace(0, "Waiting (Error)", -1));
    EXPECT_EQ(table.cell("Percent", 0), "7%");
    EXPECT_EQ(before->status, "Queued");
    EXPECT_FALSE(table.replace(3, "Connecting", 0));
}

} // namespace
} // namespace quenmoor
