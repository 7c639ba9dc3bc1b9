#include "devservice/tokens.h"

#include <gtest/gtest.h>

#include <set>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
using Refusal = SessionStore::Refusal;

class SessionStoreTest : public testing::Test {
protected:
    std::string issue(std::string_view session, std::string_view name, std::int64_t size)
    {
        return sessions.issueToken(session, name, size).token;
    }
    Refusal refusal(std::string_view session, std::string_view name, std::int64_t size)
    {
        const SessionStore::IssuedToken answer = sessions.issueToken(session, name, size);
        EXPECT_EQ(answer.token, "");
        return answer.refusal;
    }

    std::chrono::steady_clock::time_point now;
    TokenStore tokens{[this] { return now; }};
    SessionStore sessions{tokens, {60s, 600s}, [this] { return now; }};
};

TEST_F(SessionStoreTest, aTokenOpensItsOwnFileAndNoOther)
{
    const std::string session = *sessions.open("");
    const std::string name = "clip \xFF&size=1.mov";
    const std::string token = issue(session, name, 1000);
    const std::string other = issue(session, "other.mov", 1000);

    EXPECT_TRUE(tokens.accepts(token, name, 1000));
    EXPECT_FALSE(tokens.accepts(token, name, 999));
    EXPECT_FALSE(tokens.accepts(token, "clip \xFE&size=1.mov", 1000));
    EXPECT_FALSE(tokens.accepts(token, "other.mov", 1000));
    EXPECT_FALSE(tokens.accepts(token.substr(1), name, 1000));
    EXPECT_FALSE(tokens.accepts("", name, 1000));
    EXPECT_FALSE(tokens.accepts(other, name, 1000));
}

TEST_F(SessionStoreTest, sessionsAndTokensNeverRepeatAndFitOnOneLine)
{
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        const std::string session = *sessions.open("not known");
        seen.insert(session);
        seen.insert(issue(session, "a", 0));
    }
    EXPECT_EQ(seen.size(), 400U);
    for (const std::string& text : seen)
        EXPECT_EQ(text.find_first_not_of("0123456789abcdef"), std::string::npos) << text;
    EXPECT_EQ(seen.begin()->size(), 64U);
}

TEST_F(SessionStoreTest, aTokenStaysGoodForRetriesAndEndsWithItsTime)
{
    const std::string token = issue(*sessions.open(""), "a", 5);
    now += 599s;
    EXPECT_TRUE(tokens.accepts(token, "a", 5));
    EXPECT_TRUE(tokens.accepts(token, "a", 5));
    now += 1s;
    EXPECT_FALSE(tokens.accepts(token, "a", 5));
}

TEST_F(SessionStoreTest, aSessionLastsWhileItIsUsed)
{
    const std::string session = *sessions.open("");
    for (int i = 0; i < 5; ++i) {
        now += 59s;
        EXPECT_EQ(sessions.open(session), session);
        EXPECT_NE(issue(session, "a", 1), "");
    }
    now += 60s;
    EXPECT_EQ(refusal(session, "a", 1), Refusal::UnknownSession);
    EXPECT_NE(sessions.open(session), session);
}

TEST_F(SessionStoreTest, refusesUnknownSessionsAndBadFiles)
{
    const std::string session = *sessions.open("");
    EXPECT_EQ(refusal("", "a", 1), Refusal::UnknownSession);
    EXPECT_EQ(refusal("(null)", "a", 1), Refusal::UnknownSession);
    EXPECT_EQ(refusal(session, "", 1), Refusal::BadFile);
    EXPECT_EQ(refusal(session, "../a", 1), Refusal::BadFile);
    EXPECT_EQ(refusal(session, std::string_view("a\0b", 3), 1), Refusal::BadFile);
    EXPECT_EQ(refusal(session, std::string(256, 'a'), 1), Refusal::BadFile);
    EXPECT_EQ(refusal(session, "a", -1), Refusal::BadFile);
    EXPECT_NE(issue(session, std::string(255, 'a'), 0), "");
}

TEST_F(SessionStoreTest, fullStoresRefuseUntilSomethingEnds)
{
    std::string session;
    while (const auto opened = sessions.open(""))
        session = *opened;
    ASSERT_NE(session, "");
    EXPECT_EQ(sessions.open(session), session);

    while (!issue(session, "a", 1).empty()) {
    }
    EXPECT_EQ(refusal(session, "a", 1), Refusal::TooManyTokens);
    now += 600s;
    EXPECT_NE(issue(*sessions.open(""), "a", 1), "");
}

} // namespace
} // namespace quenmoor
