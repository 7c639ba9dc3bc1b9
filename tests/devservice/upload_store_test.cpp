#include "devservice/upload_store.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <limits>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

class UploadStoreTest : public ::testing::Test {
protected:
    std::unique_ptr<StoredUpload> upload(std::int64_t size)
    {
        return store->upload("clip.mov", size, error);
    }

    // Leaves an unfinished copy with the bytes `held`, or a finished one if they are all.
    void leave(std::string_view held, std::int64_t size)
    {
        const auto started = upload(size);
        ASSERT_TRUE(started->startOver() && started->append(held));
        ASSERT_TRUE(started->missing() > 0 || started->complete());
    }

    // Resumes the held copy with `rest`.
    void finish(std::int64_t size, std::string_view rest)
    {
        const auto resumed = upload(size);
        ASSERT_TRUE(resumed->resume());
        ASSERT_EQ(resumed->missing(), std::ssize(rest));
        ASSERT_TRUE((rest.empty() || resumed->append(rest)) && resumed->complete());
    }

    void expectHeld(std::int64_t announced, HeldCopy expected)
    {
        EXPECT_EQ(upload(announced)->held(), expected);
    }

    const TempFolder folder;
    const std::filesystem::path file = folder.path() / "clip.mov";
    const std::filesystem::path own = folder.path() / ".quenmoor";
    const std::filesystem::path part = own / "parts/clip.mov";
    const std::filesystem::path record = own / "records/clip.mov";
    std::string error;
    std::chrono::steady_clock::time_point now;
    const std::unique_ptr<UploadStore> store =
        UploadStore::open(folder.path(), error, [this] { return now; });
};

} // namespace

TEST_F(UploadStoreTest, anOverwriteKeepsTheFinishedCopyUntilTheNewOneIsComplete)
{
    leave("the old one", 11);
    expectHeld(12, {true, false, true, 11});
    ASSERT_TRUE(upload(500)->startOver());
    expectHeld(11, {true, true, true, 11}); // an empty part does not count
    leave("the ", 11);
    EXPECT_EQ(contentOf(file), "the old one");
    expectHeld(11, {true, true, false, 4});
    finish(11, "new one");
    EXPECT_FALSE(std::filesystem::exists(part) || std::filesystem::exists(record));
    finish(11, ""); // a finished copy has no missing bytes
    EXPECT_EQ(contentOf(file), "the new one");
}

TEST_F(UploadStoreTest, aPartBelongsToTheFileWhoseSizeAndVersionAreInItsRecord)
{
    leave("half", 8);
    EXPECT_EQ(contentOf(record), "{\"size\":8,\"version\":1}\n"); // every program reads this
    std::ofstream(record) << R"({"size":8})";
    expectHeld(8, {true, true, false, 4});
    for (const char* const version : {"0", "2", "18446744073709551615"}) {
        std::ofstream(record) << R"({"size":8,"version":)" << version << "}";
        EXPECT_EQ(upload(8), nullptr);
        EXPECT_NE(error.find("records/clip.mov has version "s + version), std::string::npos);
    }
    for (const char* const text :
         {"", "{", "[]", R"({"size":"8"})", R"({"size":-8})", R"({"size":18446744073709551615})",
          R"({"size":3})", R"({"size":8,"version":"1"})", R"({"size":8,"version":1)"}) {
        std::ofstream(record) << text;
        expectHeld(8, {true, false, false, 4});
        expectHeld(3, {true, false, false, 4});
    }
    std::filesystem::remove(record);
    expectHeld(8, {true, false, false, 4});
    EXPECT_FALSE(upload(8)->resume());
    EXPECT_EQ(contentOf(part), "half");
    leave("new", 3);
    EXPECT_EQ(contentOf(file), "new");
}

TEST_F(UploadStoreTest, aKillBetweenTwoStepsNeverMixesTwoUploads)
{
    // complete, but not renamed yet
    leave("whole", 6);
    std::ofstream(record) << "{\"size\":5}";
    finish(5, "");
    // renamed, but the record not removed yet
    std::ofstream(record) << "{\"size\":7}";
    expectHeld(7, {true, false, true, 5});
    // emptied, but the record not replaced yet: the folder makes replacing it fail
    std::filesystem::remove(file);
    leave("half", 8);
    std::filesystem::create_directory(own / "drafts/clip.mov");
    EXPECT_FALSE(upload(4)->startOver());
    EXPECT_EQ(contentOf(part), "");
    now += 60s;
    expectHeld(8, {});
}

TEST_F(UploadStoreTest, anUploadIsRefusedWithoutSpaceAndForAMinuteAfterAnErrorOfTheDisk)
{
    EXPECT_EQ(upload(std::numeric_limits<std::int64_t>::max()), nullptr);
    EXPECT_NE(error.find("No space left"), std::string::npos) << error;
    ASSERT_EQ(mkfifo((own / "drafts/clip.mov").c_str(), 0600), 0); // open() would block
    leave("half", 5'000);

    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    const rlimit small{1'000, RLIM_INFINITY};
    ASSERT_EQ(prlimit(0, RLIMIT_FSIZE, &small, &before), 0);
    {
        const auto resumed = upload(5'000);
        EXPECT_TRUE(resumed->resume());
        EXPECT_FALSE(resumed->append(std::string(2'000, 'x')));
    }
    setrlimit(RLIMIT_FSIZE, &before);
    now += 59s;
    EXPECT_EQ(upload(5'000), nullptr);
    now += 1s;
    EXPECT_NE(upload(5'000), nullptr) << error;
}

TEST_F(UploadStoreTest, onlyFilesAreWrittenAndAFolderHasOneStore)
{
    for (const std::string& name :
         {""s, "."s, ".."s, "../up"s, "a/b"s, "/"s, ".quenmoor"s, "nul\0"s, std::string(256, 'n')})
        EXPECT_EQ(store->upload(name, 1, error), nullptr) << name;
    EXPECT_EQ(upload(-1), nullptr);
    const auto longest = store->upload(std::string(255, 'n'), 0, error);
    EXPECT_TRUE(longest && longest->startOver() && longest->complete()) << error;

    const auto target = folder.file("target", "untouched");
    for (const auto& link : {file, part}) {
        std::filesystem::create_symlink(target, link);
        EXPECT_EQ(upload(3), nullptr);
        std::filesystem::remove(link);
    }
    std::filesystem::create_directory(file);
    EXPECT_EQ(upload(3), nullptr);
    EXPECT_EQ(contentOf(target), "untouched");
    EXPECT_EQ(UploadStore::open(folder.path(), error), nullptr);
}

} // namespace quenmoor
