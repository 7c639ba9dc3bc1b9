// The documents as the service reads them, the transfer server against clients over the real link,
// and the supervisor of the service's processes.
#include "devservice/service_documents.h"
#include "devservice/supervisor.h"
#include "tests/fakes/local_service.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

std::string confirmation(bool resume)
{
    return buildXML(ConfirmContainer{resume, false}.XMLpayload(), "ConfirmContainer");
}

// The response for an unfinished copy of `held` bytes; none if it is 0.
std::string response(std::int64_t held, bool equal = true)
{
    return responseDocument({held > 0, held > 0 && equal, false, held, 0});
}

class TransferServerTest : public ::testing::Test, protected LocalService {
protected:
    TransferServerTest()
    {
        transferSettings.timeouts.closingPause = 1000ms;
        startServer();
    }

    ServiceClient client() const { return ServiceClient(server->port()); }

    const std::string content = sampleContent(50'000);
    const std::string kRefused = responseDocument({false, false, false, 0, 1});
};

TEST(ServiceDocuments, areReadOnlyWhenCompleteAndWithTheBytesOfTheName)
{
    for (const std::string name :
         {"", "<size>1</size><token>other</token>", "</originFilename>\n</RequestContainer>"}) {
        const std::string text = buildXML(
            RequestContainer{name, "t&<o>k", 5'000'000'000}.XMLpayload(), "RequestContainer");
        const auto read = readRequest(text);
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(std::tie(read->originFilename, read->token, read->size),
                  std::make_tuple(name, "t&<o>k", 5'000'000'000));
        EXPECT_FALSE(readRequest(text.substr(0, text.size() - 1)));
    }
    const std::string rest = "<originFilename>n</originFilename></RequestContainer>";
    EXPECT_FALSE(readRequest("<size>1x</size><token>t</token>" + rest));
    EXPECT_FALSE(readRequest("<size>1</size>" + rest));

    const std::string text = confirmation(true);
    EXPECT_EQ(confirmationLength(text + "</ConfirmContainer>"), text.size());
    EXPECT_EQ(confirmationLength(text.substr(0, text.size() - 1)), std::nullopt);
    EXPECT_FALSE(readConfirmation("<resume>true</resume>"));
    EXPECT_FALSE(readConfirmation("<resume>yes</resume><overwrite>false</overwrite>"));
}

TEST_F(TransferServerTest, aNewerAttemptReplacesTheOlderOneAndCancelsOrResumesItsCopy)
{
    tokens.add("other");
    ServiceClient older = client();
    EXPECT_EQ(older.announce("clip.mov", 50'000), response(0));
    EXPECT_EQ(client().announce("clip.mov", 50'000, "other"), kRefused) << "the name is in use";
    {
        const auto start = std::chrono::steady_clock::now();
        ServiceClient empty = client();
        EXPECT_EQ(empty.announce("empty.mov", 0), response(0)) << "another file with the token";
        EXPECT_EQ(empty.receive(), finishedDocument(0));
        EXPECT_GE(std::chrono::steady_clock::now() - start, 1000ms);
    }
    EXPECT_EQ(client().announce("other.mov", 1, "unknown"), kRefused);
    EXPECT_TRUE(older.sendAll(content.substr(0, 20'000))); // none of these has replaced it
    ASSERT_TRUE(awaitPart("clip.mov", 20'000));
    for (const bool cancel : {true, false}) { // or resumed as a file of another size
        ServiceClient newer = client();
        EXPECT_EQ(newer.announce("clip.mov", cancel ? 50'000 : 40'000), response(20'000, cancel));
        EXPECT_TRUE(older.awaitEnd());
        EXPECT_TRUE(newer.sendAll(confirmation(!cancel)));
        EXPECT_TRUE(newer.awaitEnd());
    }
    const std::string session = sessions.open("").value();
    const std::string token = sessions.issueToken(session, "clip.mov", 50'000).token;
    EXPECT_EQ(client().announce("clip.mov", 50'000, token), response(20'000));
    auto newest = std::make_unique<ServiceClient>(server->port());
    EXPECT_EQ(newest->announce("clip.mov", 50'000, token), response(20'000));
    // the confirmation and the first bytes of the file in one message
    EXPECT_TRUE(newest->sendAll(confirmation(true) + content.substr(20'000)));
    EXPECT_EQ(newest->receive(), finishedDocument(50'000));
    EXPECT_EQ(stored("clip.mov"), content);
    newest.reset();
    EXPECT_TRUE(awaitIdle());
    EXPECT_EQ(client().announce("clip.mov", 50'000, token), kRefused) << "the token is used up";
}

TEST_F(TransferServerTest, newerClientsReplaceHalfOpenOnesAndSilentOnesAreDisconnected)
{
    transferSettings.timeouts.rendezvous = transferSettings.timeouts.refusal = 20s;
    transferSettings.timeouts.idle = 4s;
    transferSettings.maxSessions = 2;
    startServer();
    const auto announced = [this](const char* line) {
        return waitUntil([&] { return std::ranges::count(log.system(), line) > 0; });
    };
    // The library hands over clients that wait to be accepted newest first, so one at a time.
    ServiceClient absent = client();
    ASSERT_TRUE(absent.sendRequest("absent.mov", 10));
    ASSERT_TRUE(announced("Attempt 1: announces 10 bytes for \"absent.mov\""));
    ServiceClient unknown = client();
    ASSERT_TRUE(unknown.sendRequest("unknown.mov", 10, "unknown"));
    ASSERT_TRUE(announced("Attempt 2: announces 10 bytes for \"unknown.mov\""));
    ServiceClient third = client(); // replaces the one without a valid token, which is younger
    EXPECT_EQ(third.announce("third.mov", 10), response(0));
    ServiceClient fourth = client(); // replaces the one without a rendezvous
    EXPECT_EQ(fourth.announce("fourth.mov", 10), response(0));
    ServiceClient fifth = client();
    fifth.sendRequest("fifth.mov", 10); // may fail: the server closes at once
    EXPECT_TRUE(fourth.awaitEnd());
    EXPECT_TRUE(awaitIdle());

    server->stop(); // ends the thread that logs
    const std::vector<std::string> lines = log.system();
    auto from = lines.begin();
    for (const char* const line : {"Attempt 2: ended: replaced by a newer client",
                                   "Attempt 1: ended: replaced by a newer client",
                                   "Attempt 5: rejected, 2 others are active"}) {
        from = std::find(from, lines.end(), line);
        EXPECT_NE(from, lines.end()) << line;
    }
}

// Exits with the status of a supervisor that stops a part, which returns `onStop()` then.
void runAndStop(const std::function<int()>& onStop)
{
    Supervisor supervisor;
    const bool started = supervisor.start("part", [&](const PartStart& start) {
        start.ready(1);
        awaitTermination();
        return onStop();
    });
    raise(SIGTERM);
    std::_Exit(started ? supervisor.run() : 99);
}

TEST(SupervisorTest, returnsHowAPartFailsWhileItStopsAndKillsItOnASecondSignal)
{
    using testing::ExitedWithCode;
    EXPECT_EXIT(runAndStop([] { return 0; }), ExitedWithCode(0), "");
    EXPECT_EXIT(runAndStop([] { return 7; }), ExitedWithCode(7), "");
    EXPECT_EXIT(runAndStop([]() -> int { abort(); }), ExitedWithCode(1), "while it stopped");
    EXPECT_EXIT(runAndStop([] { return kill(getppid(), SIGTERM), pause(); }), ExitedWithCode(1),
                "did not stop in time");
}

} // namespace
} // namespace quenmoor
