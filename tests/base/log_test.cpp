#include "tests/fakes/quiet_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

namespace quenmoor {
namespace {

TEST(Log, printsTextsSafelyAndBytesUnchanged)
{
    const std::string bytes("bind: {}\0\x01\xFF", 11);
    testing::internal::CaptureStdout();
    logOutputBytes(bytes);
    logOutput("received: a\n\x1b[2J\x9B");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), bytes + "\nreceived: a\n\u241B[2J\uFFFD\n");
    const RecordingLog log;
    logSystem("Page title: {}", "a\nquenmoor-upload: forged\x1b");
    EXPECT_EQ(log.system().front(), "Page title: a\u240Aquenmoor-upload: forged\u241B");
}

TEST(Log, dropsWhatAFullPipeHasNoRoomFor)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    ASSERT_EQ(dup2(ends[1], 0), 0); // nothing here reads standard input
    const std::string line(static_cast<std::size_t>(fcntl(0, F_SETPIPE_SZ, 4096)), 'x');
    for (int i = 0; i < 3; ++i)
        writeDiagnostic(0, line, {}); // the first one fills the pipe
    std::string got(2 * line.size(), ' ');
    EXPECT_EQ(read(ends[0], got.data(), got.size()), static_cast<ssize_t>(line.size()));
    writeDiagnostic(0, "again", {});
    EXPECT_EQ(read(ends[0], got.data(), got.size()), 5);
}

} // namespace
} // namespace quenmoor
