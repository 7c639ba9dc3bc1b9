// The page server over https for a client that trusts its certificate, and what it needs: the
// certificate, the sessions and the tokens.
#include "base/text.h"
#include "devservice/https_server.h"
#include "tests/fakes/local_service.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using std::filesystem::perms;

class PageServerTest : public testing::Test, protected LocalService {
protected:
    PageServerTest() { startPage(certificate); }

    httplib::Result get(const std::string& name) { return client().Get("/files/upload/" + name); }
    httplib::Result post(const std::string& name, const std::string& body,
                         const char* type = "application/json")
    {
        return client().Post("/files/upload/" + name, body, type);
    }
    json postJson(const std::string& name, const json& body, int status = 200)
    {
        const httplib::Result reply = post(name, body.dump());
        EXPECT_TRUE(reply && reply->status == status) << body;
        return json::parse(reply->body);
    }
    httplib::Client client() const
    {
        httplib::Client made("https://localhost:" + std::to_string(pageServer->port()));
        made.set_ca_cert_path(certificate.certificateFile.c_str());
        made.set_url_encode(false);
        return made;
    }

    const TempFolder folder;
    std::string error;
    const Certificate certificate = *ensureCertificate(folder.path(), error);
};

TEST_F(PageServerTest, servesThePageForEveryQueryAndOnlyThePageFilesInItsFolder)
{
    const httplib::Result page = get("index.html?session=(null)&filename=a&size=1");
    ASSERT_TRUE(page) << httplib::to_string(page.error());
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_TRUE(
        page->get_header_value("Content-Security-Policy").starts_with("default-src 'none'"));
    EXPECT_EQ(get("index.html?session=s&filename=what?really??.mov&size=1")->body, page->body);
    EXPECT_EQ(get("key.pem?a?b")->status, 400);
    EXPECT_EQ(client().Get("/")->get_header_value("Location"), "/files/upload/index.html");
    EXPECT_EQ(get("upload.css")->status, 200);

    std::filesystem::create_directories(folder.path() / "page/sub.html");
    for (const char* name :
         {"secret.html", "page/index.html", "page/.hidden.html", "page/notes.txt"})
        folder.file(name, name);
    PageSettings settings;
    settings.pageFolder = folder.path() / "page";
    startPage(certificate, settings);
    EXPECT_EQ(get("index.html")->body, "page/index.html");
    for (const char* name : {"../secret.html", "..%2fsecret.html", "%2e%2e/secret.html",
                             "..\\secret.html", ".hidden.html", "notes.txt", "sub.html",
                             "/index.html", "", "index.html%00.css", "//etc/passwd"})
        EXPECT_EQ(get(name)->status, 404) << name;
}

TEST_F(PageServerTest, issuesTokensForTheBytesOfTheNameAndRefusesInvalidRequests)
{
    const std::string session = postJson("session", {{"session", nullptr}})["session"];
    const std::string name = "a&size=9?c=d+e \xFF 100%41 \xC3\xA9\n.mov";
    const json request{{"session", session},
                       {"size", "9223372036854775807"},
                       {"filename", percentEncodeQuery(name)}};
    const std::string token = postJson("token", request)["token"];
    EXPECT_TRUE(tokens.accepts(token, name, 9'223'372'036'854'775'807));
    for (const char* size : {"", "-1", "1x", " 1", "+1", "9223372036854775808"})
        postJson("token", {{"session", session}, {"filename", "a"}, {"size", size}}, 400);
    postJson("token", {{"session", session}, {"filename", "%2Fetc"}, {"size", "1"}}, 400);
    postJson("token", {{"session", "0000"}, {"filename", "a"}, {"size", "1"}}, 403);
    for (const char* body : {"", "[]", "{", "null", "{\"session\":1}", "\"\xFF\"", "{\"size\":{}}"})
        EXPECT_EQ(post("token", body)->status, 400) << body;
    EXPECT_EQ(post("session", "[]")->status, 400);
    EXPECT_EQ(post("token", request.dump(), "text/plain")->status, 415);
    EXPECT_EQ(post("token", std::string(20'000, ' ') + request.dump())->status, 413);
    EXPECT_EQ(post("index.html", request.dump())->status, 404);
}

TEST_F(PageServerTest, refusesForeignHostsAndOriginsAndWhatHasNoBound)
{
    using Headers = httplib::Headers;
    const auto status = [this](const Headers& headers) {
        const auto reply = client().Get("/files/upload/index.html", headers);
        return reply ? reply->status : 0;
    };
    const std::string own = "localhost:" + std::to_string(pageServer->port());
    Headers endless{{"Host", own}};
    for (int i = 0; i < 100; ++i)
        endless.emplace("X-Header", std::string(1000, 'x'));
    for (const auto& [headers, expected] : std::initializer_list<std::pair<Headers, int>>{
             {{{"Host", own}, {"Origin", "https://" + own}}, 200},
             {{{"Host", "[::1]"}}, 200},
             {{{"Host", "evil.example"}}, 421},
             {{{"Host", "localhost.evil.example"}}, 421},
             {{{"Host", own}, {"Host", "evil.example"}}, 421},
             {{{"Host", own}, {"Origin", "https://evil.example"}}, 403},
             {{{"Host", own}, {"Transfer-Encoding", "chunked"}}, 411},
             {endless, 400}})
        EXPECT_EQ(status(headers), expected) << headers.rbegin()->second;

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(pageServer->port());
    std::array<FileHandle, 80> silent; // more than are served at once
    for (FileHandle& socket : silent) {
        socket = FileHandle(::socket(AF_INET, SOCK_STREAM, 0));
        ASSERT_EQ(connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(status({}), 200);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kMaxConnectionTime / 2);
}

TEST_F(PageServerTest, itAndTheTransferServerReportWhyTheyCannotStart)
{
    const std::filesystem::path none = folder.path() / "none";
    const auto start = [this](const Certificate& own, const PageSettings& page) {
        EXPECT_FALSE(PageServer(page, own, sessions).start(error));
        return error;
    };
    startServer();
    transferSettings.port = server->port();
    EXPECT_FALSE(TransferServer(transferSettings, *store, tokens).start(error));
    EXPECT_NE(error.find("127.0.0.1"), std::string::npos) << error;
    transferSettings.bindAddress = "localhost";
    EXPECT_FALSE(TransferServer(transferSettings, *store, tokens).start(error));
    PageSettings page;
    page.port = pageServer->port();
    EXPECT_NE(start(certificate, page).find(std::to_string(page.port)), std::string::npos);
    EXPECT_NE(start({none, none}, page).find("certificate"), std::string::npos);
    page.pageFolder = folder.path();
    EXPECT_NE(start(certificate, page).find("index.html"), std::string::npos);
}

TEST(Certificate, isGeneratedAgainUnlessItMatchesItsPrivateKey)
{
    const TempFolder folder;
    const std::filesystem::path state = folder.path() / "state";
    const std::filesystem::path key = state / "key.pem";
    std::string error;
    const auto ensure = [&] {
        EXPECT_TRUE(ensureCertificate(state, error)) << error;
        return contentOf(state / "cert.pem");
    };
    const std::string first = ensure();
    EXPECT_EQ(status(state).permissions(), perms::owner_all);
    EXPECT_EQ(status(key).permissions(), perms::owner_read | perms::owner_write);
    EXPECT_EQ(ensure(), first);

    folder.file("state/cert.pem", first.substr(0, first.size() / 2));
    EXPECT_NE(ensure(), first);
    folder.file("state/cert.pem", first); // its key was replaced
    const std::string third = ensure();
    EXPECT_NE(third, first);
    std::filesystem::remove(key);
    EXPECT_NE(ensure(), third);
    EXPECT_FALSE(ensureCertificate(key / "no-folder", error));
}

TEST(Tokens, areValidForTheirOwnFileUntilTheyOrTheirSessionExpire)
{
    std::chrono::steady_clock::time_point now;
    const TokenStore tokens([&now] { return now; });
    const SessionStore sessions(tokens, {60s, 600s}, [&now] { return now; });
    const std::string session = *sessions.open("not a session");
    const std::string name = "clip \xFF&size=1.mov";
    const std::string token = sessions.issueToken(session, name, 1000).token;
    EXPECT_NE(sessions.issueToken(session, name, 1000).token, token);
    EXPECT_FALSE(tokens.accepts(token, name, 999));
    EXPECT_FALSE(tokens.accepts(token, "clip \xFE&size=1.mov", 1000));
    EXPECT_FALSE(tokens.accepts(session, name, 1000));
    EXPECT_EQ(sessions.issueToken(token, name, 1000).token, "");
    now += 59s;
    EXPECT_EQ(sessions.open(session), session);
    now += 1s;
    EXPECT_EQ(sessions.issueToken(session, "a", 1).token, "");
    EXPECT_NE(sessions.open(session), session);
    now += 539s;
    EXPECT_TRUE(tokens.accepts(token, name, 1000));
    now += 1s;
    EXPECT_FALSE(tokens.accepts(token, name, 1000));
}

} // namespace
} // namespace quenmoor
