#include "devservice/tokens.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
using Refusal = SessionStore::Refusal;

class TokensTest : public testing::Test {
protected:
    SessionStore::IssuedToken issue(std::string_view name, std::int64_t size)
    {
        return sessions.issueToken(session, name, size);
    }

    std::chrono::steady_clock::time_point now;
    TokenStore tokens{[this] { return now; }};
    SessionStore sessions{tokens, {60s, 600s}, [this] { return now; }};
    std::string session = *sessions.open("not a session");
};

TEST_F(TokensTest, aTokenIsValidForItsOwnFileUntilItExpires)
{
    const std::string name = "clip \xFF&size=1.mov";
    const std::string token = issue(name, 1000).token;
    EXPECT_EQ(token.size(), 64U);
    EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos) << token;
    EXPECT_NE(issue(name, 1000).token, token);
    EXPECT_FALSE(tokens.accepts(token, name, 999));
    EXPECT_FALSE(tokens.accepts(token, "clip \xFE&size=1.mov", 1000));
    EXPECT_FALSE(tokens.accepts("", name, 1000));
    now += 599s;
    for (const char* const attempt : {"first", "retry"})
        EXPECT_TRUE(tokens.accepts(token, name, 1000)) << attempt;
    now += 1s;
    EXPECT_FALSE(tokens.accepts(token, name, 1000));
}

TEST_F(TokensTest, aSessionLastsWhileItIsUsedAndRefusesBadFiles)
{
    for (const std::string& name :
         {std::string(), std::string("../a"), std::string("a\0b", 3), std::string(256, 'a')})
        EXPECT_EQ(issue(name, 1).refusal, Refusal::BadFile) << name;
    EXPECT_EQ(issue("a", -1).refusal, Refusal::BadFile);
    now += 59s;
    EXPECT_EQ(sessions.open(session), session);
    now += 59s;
    EXPECT_NE(issue(std::string(255, 'a'), 0).token, "");
    now += 59s;
    EXPECT_EQ(sessions.open(session), session);
    now += 60s;
    EXPECT_EQ(issue("a", 1).token, "");
    EXPECT_NE(sessions.open(session), session);
}

TEST_F(TokensTest, fullStoresRefuseUntilSomethingExpires)
{
    while (sessions.open("")) {
    }
    EXPECT_EQ(sessions.open(session), session);
    while (!issue("a", 1).token.empty()) {
    }
    EXPECT_EQ(issue("a", 1).refusal, Refusal::TooManyTokens);
    now += 600s;
    session = sessions.open("").value_or("");
    EXPECT_NE(issue("a", 1).token, "");
}

} // namespace
} // namespace quenmoor
