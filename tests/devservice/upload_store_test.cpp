#include "devservice/upload_store.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>

namespace quenmoor {
namespace {

class UploadStoreTest : public ::testing::Test {
protected:
    UploadStoreTest() { restart(); }

    // As after a kill: what the old store had in memory is gone.
    void restart()
    {
        store.reset();
        store = UploadStore::open(folder.path(), error);
        ASSERT_NE(store, nullptr) << error;
    }

    std::unique_ptr<StoredUpload> upload(std::int64_t size)
    {
        return store->upload("clip.mov", size, error);
    }

    // A copy of `held` bytes of an upload of `size`.
    void leavePart(const std::string& held, std::int64_t size)
    {
        const auto begun = upload(size);
        ASSERT_TRUE(begun->startOver() && begun->append(held));
    }

    void leaveFile(const std::string& content)
    {
        const auto begun = upload(static_cast<std::int64_t>(content.size()));
        ASSERT_TRUE(begun->startOver() && begun->append(content) && begun->complete());
    }

    std::filesystem::path part() const { return folder.path() / ".quenmoor/parts/clip.mov"; }
    std::filesystem::path record() const { return folder.path() / ".quenmoor/records/clip.mov"; }
    std::filesystem::path file() const { return folder.path() / "clip.mov"; }

    TempFolder folder;
    std::string error;
    std::unique_ptr<UploadStore> store;
};

void expectHeld(const std::unique_ptr<StoredUpload>& upload, HeldCopy expected)
{
    ASSERT_NE(upload, nullptr);
    EXPECT_EQ(upload->held().exists, expected.exists);
    EXPECT_EQ(upload->held().equal, expected.equal);
    EXPECT_EQ(upload->held().complete, expected.complete);
    EXPECT_EQ(upload->held().size, expected.size);
}

} // namespace

TEST_F(UploadStoreTest, aFileTakesItsNameOnlyWhenItIsWhole)
{
    const std::string content = sampleContent(1000);
    leavePart(content.substr(0, 400), 1000);
    EXPECT_FALSE(std::filesystem::exists(file()));

    restart();
    auto rest = upload(1000);
    expectHeld(rest, {true, true, false, 400});
    ASSERT_TRUE(rest->resume());
    EXPECT_EQ(rest->missing(), 600);
    ASSERT_TRUE(rest->append(std::string_view(content).substr(400)) && rest->complete());

    EXPECT_EQ(contentOf(file()), content);
    EXPECT_FALSE(std::filesystem::exists(part()));
    EXPECT_FALSE(std::filesystem::exists(record()));
}

TEST_F(UploadStoreTest, aCompleteCopyIsEqualWhenItsSizeIs)
{
    leaveFile("twelve bytes");
    expectHeld(upload(12), {true, true, true, 12});
    expectHeld(upload(13), {true, false, true, 12});

    // a client that missed the closing document resumes at the end
    const auto again = upload(12);
    ASSERT_TRUE(again->resume());
    EXPECT_EQ(again->missing(), 0);
    EXPECT_TRUE(again->complete());
    EXPECT_EQ(contentOf(file()), "twelve bytes");
}

TEST_F(UploadStoreTest, anOverwriteLeavesTheOldFileUntilTheNewOneIsWhole)
{
    leaveFile("the old one");
    leavePart("the ", 11);
    EXPECT_EQ(contentOf(file()), "the old one");
    expectHeld(upload(11), {true, true, false, 4});

    const auto rest = upload(11);
    ASSERT_TRUE(rest->resume() && rest->append(std::string_view("new one")) && rest->complete());
    EXPECT_EQ(contentOf(file()), "the new one");
}

TEST_F(UploadStoreTest, anOverwriteGivenUpBeforeItsFirstByteShowsTheOldFile)
{
    leaveFile("the old one");
    leavePart("", 500);
    expectHeld(upload(11), {true, true, true, 11});
}

TEST_F(UploadStoreTest, lookingChangesNothingAndACopyOfAnotherFileIsNeverContinued)
{
    expectHeld(upload(5), {});
    EXPECT_FALSE(std::filesystem::exists(part()));
    EXPECT_FALSE(std::filesystem::exists(record()));

    leavePart("half", 8);
    const auto other = upload(9);
    expectHeld(other, {true, false, false, 4});
    EXPECT_FALSE(other->resume());
    EXPECT_EQ(contentOf(part()), "half");
}

TEST_F(UploadStoreTest, aPartThatItsRecordDoesNotExplainIsAnotherFile)
{
    for (const std::string text : {"", "{", "[]", "{\"size\":\"8\"}", "{\"size\":-8}",
                                   "{\"size\":18446744073709551615}", "{\"size\":3}"}) {
        leavePart("half", 8);
        std::ofstream(record()) << text;
        for (const std::int64_t size : {8, 3})
            expectHeld(upload(size), {true, false, false, 4});
    }
    std::filesystem::remove(record());
    expectHeld(upload(8), {true, false, false, 4});

    const auto again = upload(3);
    ASSERT_TRUE(again->startOver() && again->append(std::string_view("new")) && again->complete());
    EXPECT_EQ(contentOf(file()), "new");
}

TEST_F(UploadStoreTest, aKillBetweenTheTwoStepsLeavesAResumableCopy)
{
    // whole, and not yet renamed
    leavePart("whole", 5);
    {
        const auto rest = upload(5);
        ASSERT_TRUE(rest->resume());
        EXPECT_EQ(rest->missing(), 0);
        ASSERT_TRUE(rest->complete());
    }
    // renamed, and the record not yet gone
    std::ofstream(record()) << "{\"size\":7}";
    expectHeld(upload(7), {true, false, true, 5});
    // emptied, and the record still of the upload before
    std::filesystem::remove(file());
    std::ofstream(part()).flush();
    expectHeld(upload(7), {});
}

TEST_F(UploadStoreTest, theOldBytesAreGoneBeforeTheRecordChanges)
{
    leavePart("half", 8);
    std::filesystem::create_directory(folder.path() / ".quenmoor/drafts/clip.mov");
    EXPECT_FALSE(upload(4)->startOver());
    EXPECT_EQ(contentOf(part()), "");
}

// The process dies at a moment that nobody chose. Whatever lies there as one of the two uploads
// holds bytes of that one only.
TEST_F(UploadStoreTest, aKillAtAnyMomentNeverMixesTwoUploads)
{
    constexpr std::int64_t kSizes[] = {30'000, 50'000};
    store.reset();
    for (int round = 0; round < 60; ++round) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const auto own = UploadStore::open(folder.path(), error);
            for (int turn = round % 2;; turn = 1 - turn) {
                const std::string block(5'000, turn == 0 ? 'a' : 'b');
                const auto begun = own->upload("clip.mov", kSizes[turn], error);
                bool good = begun->startOver();
                while (good && begun->missing() > 0)
                    good = begun->append(block);
                if (!good || !begun->complete())
                    _exit(1);
            }
        }
        usleep(static_cast<useconds_t>(2'000 + round * 3'571 % 30'000));
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));

        restart();
        for (int which = 0; which < 2; ++which) {
            const HeldCopy held = upload(kSizes[which])->held();
            const std::string content = contentOf(held.complete ? file() : part());
            if (held.equal) {
                EXPECT_EQ(content, std::string(content.size(), which == 0 ? 'a' : 'b'));
            }
        }
        store.reset();
    }
}

TEST_F(UploadStoreTest, noNameLeavesTheFolder)
{
    for (const std::string name : {"", ".", "..", "../up", "a/b", "/", ".quenmoor"})
        EXPECT_EQ(store->upload(name, 1, error), nullptr) << name;
    for (const std::string& name : {std::string("nul\0", 4), std::string(256, 'n')})
        EXPECT_EQ(store->upload(name, 1, error), nullptr) << name;
    EXPECT_EQ(store->upload("negative", -1, error), nullptr);

    for (const std::string& name : {std::string("%2e%2e & <\"?#\n>"), std::string("caf\xE9"),
                                    std::string("..."), std::string(255, 'n')}) {
        const auto begun = store->upload(name, 0, error);
        ASSERT_NE(begun, nullptr) << name << error;
        EXPECT_TRUE(begun->startOver() && begun->complete()) << begun->error();
        EXPECT_TRUE(std::filesystem::exists(folder.path() / name));
    }
}

TEST_F(UploadStoreTest, neitherLinkNorFolderIsWrittenThrough)
{
    const TempFolder elsewhere;
    const auto target = elsewhere.file("target", "untouched");
    for (const auto& link : {file(), part()}) {
        std::filesystem::create_symlink(target, link);
        EXPECT_EQ(upload(3), nullptr);
        std::filesystem::remove(link);
    }
    std::filesystem::create_directory(file());
    EXPECT_EQ(upload(3), nullptr);
    EXPECT_EQ(contentOf(target), "untouched");
}

TEST_F(UploadStoreTest, aNameHasOneWriterAndAFolderOneStore)
{
    auto first = upload(3);
    EXPECT_EQ(upload(3), nullptr);
    EXPECT_NE(store->upload("other.mov", 3, error), nullptr);
    first.reset();
    EXPECT_NE(upload(3), nullptr);

    EXPECT_EQ(UploadStore::open(folder.path(), error), nullptr);
}

TEST_F(UploadStoreTest, sizesBeyondFourGigabytesAreCountedRight)
{
    constexpr std::int64_t kSize = 5'000'000'000;
    leavePart("x", kSize);
    std::filesystem::resize_file(part(), kSize - 1);
    const auto rest = upload(kSize);
    expectHeld(rest, {true, true, false, kSize - 1});
    ASSERT_TRUE(rest->resume());
    EXPECT_EQ(rest->missing(), 1);
    EXPECT_TRUE(rest->append(std::string_view("y")));
    EXPECT_EQ(std::filesystem::file_size(part()), static_cast<std::uintmax_t>(kSize));
}

} // namespace quenmoor
