// The page server over its real https, with the certificate that it makes.
#include "base/text.h"
#include "tests/fakes/local_service.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

namespace quenmoor {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class PageServerTest : public testing::Test, protected LocalService {
protected:
    PageServerTest() { startPage(certificate); }

    httplib::Result get(const std::string& target)
    {
        auto client = makeClient();
        return client->Get(target);
    }
    httplib::Result post(const std::string& path, const std::string& body,
                         const char* type = "application/json")
    {
        auto client = makeClient();
        return client->Post("/files/upload/" + path, body, type);
    }
    json ask(const std::string& path, const json& question, int status = 200)
    {
        const httplib::Result answer = post(path, question.dump());
        EXPECT_TRUE(answer);
        EXPECT_EQ(answer->status, status) << answer->body;
        return json::parse(answer->body);
    }
    std::string openSession() { return ask("session", {{"session", nullptr}})["session"]; }

    std::unique_ptr<httplib::SSLClient> makeClient() const
    {
        auto client = std::make_unique<httplib::SSLClient>("localhost", pageServer->port());
        client->set_ca_cert_path(certificate.certificateFile.c_str());
        client->enable_server_certificate_verification(true);
        client->set_url_encode(false); // what is asked for goes out as it stands
        return client;
    }

    const TempFolder folder;
    std::string error;
    const Certificate certificate = *ensureCertificate(folder.path(), error);
};

TEST_F(PageServerTest, servesThePageToWhoeverTrustsItsCertificate)
{
    const httplib::Result page = get("/files/upload/index.html?session=(null)&filename=a&size=1");
    ASSERT_TRUE(page) << httplib::to_string(page.error());
    EXPECT_EQ(page->status, 200);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    for (const char* id : {"session", "token", "mac_major", "mac_minor", "mac_build", "update_url"})
        EXPECT_NE(page->body.find(std::string("id=\"") + id + '"'), std::string::npos) << id;
    EXPECT_NE(page->get_header_value("Content-Security-Policy").find("default-src 'none'"),
              std::string::npos);
    EXPECT_EQ(page->body.find("http"), std::string::npos) << "something from elsewhere";

    EXPECT_EQ(get("/")->get_header_value("Location"), "/files/upload/index.html");
    EXPECT_EQ(get("/files/upload/upload.js")->status, 200);
    EXPECT_EQ(get("/files/upload/upload.css")->status, 200);
}

TEST_F(PageServerTest, servesThePageForNamesWithQuestionMarks)
{
    const httplib::Result page =
        get("/files/upload/index.html?session=s&filename=what?really??.mov&size=1");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_EQ(page->body, get("/files/upload/index.html")->body);
    EXPECT_EQ(get("/files/upload/key.pem?a?b")->status, 400);
}

TEST_F(PageServerTest, servesNothingOutsideItsFolder)
{
    folder.file("secret.html", "secret");
    std::filesystem::create_directories(folder.path() / "page/sub.html");
    folder.file("page/index.html", "mine");
    folder.file("page/.hidden.html", "secret");
    folder.file("page/notes.txt", "secret");
    PageSettings settings;
    settings.pageFolder = folder.path() / "page";
    startPage(certificate, settings);

    EXPECT_EQ(get("/files/upload/index.html")->body, "mine");
    for (const char* target :
         {"/files/upload/../secret.html", "/files/upload/..%2fsecret.html",
          "/files/upload/%2e%2e/secret.html", "/files/upload/..\\secret.html",
          "/files/upload/.hidden.html", "/files/upload/notes.txt", "/files/upload/sub.html",
          "/files/upload//index.html", "/files/upload/", "/files/upload/key.pem",
          "/files/upload/index.html%00.css", "/etc/passwd", "//etc/passwd"}) {
        const httplib::Result answer = get(target);
        ASSERT_TRUE(answer) << target;
        EXPECT_EQ(answer->status, 404) << target;
        EXPECT_EQ(answer->body.find("secret"), std::string::npos) << target;
    }
}

TEST_F(PageServerTest, aTokenIsForTheBytesThatThePageNamed)
{
    const std::string session = openSession();
    EXPECT_EQ(ask("session", {{"session", session}})["session"], session);
    for (const std::string& name :
         {std::string("clip.mov"), std::string("a&size=9&filename=b?c=d+e.mov"),
          std::string("\xFF\xFE 100%41.mov"), std::string("it's \xC3\xA9\xF0\x9F\x8E\xAC\n")}) {
        const std::string token = ask("token", {{"session", session},
                                                {"filename", percentEncodeQuery(name)},
                                                {"size", "9223372036854775807"}})["token"];
        EXPECT_TRUE(tokens.accepts(token, name, 9'223'372'036'854'775'807));
        EXPECT_FALSE(tokens.accepts(token, name + "x", 9'223'372'036'854'775'807));
    }
}

TEST_F(PageServerTest, refusesWhatIsNoQuestionOfItsPage)
{
    const std::string session = openSession();
    const json good{{"session", session}, {"filename", "a"}, {"size", "1"}};
    ask("token", {{"session", "0000"}, {"filename", "a"}, {"size", "1"}}, 403);
    ask("token", {{"session", session}, {"filename", "%2Fetc%2Fpasswd"}, {"size", "1"}}, 400);
    for (const char* size : {"", "-1", "1x", " 1", "+1", "9223372036854775808"})
        ask("token", {{"session", session}, {"filename", "a"}, {"size", size}}, 400);
    for (const char* body : {"", "[]", "{", "null", "{\"session\":1}", "\"\xFF\"", "{\"size\":{}}"})
        EXPECT_EQ(post("token", body)->status, 400) << body;
    EXPECT_EQ(post("session", "[]")->status, 400);

    EXPECT_EQ(post("token", good.dump(), "text/plain")->status, 415);
    EXPECT_EQ(post("token", std::string(20'000, ' ') + good.dump())->status, 413);
    EXPECT_EQ(post("index.html", good.dump())->status, 404);
    ask("token", good);
}

TEST_F(PageServerTest, publishesTheNewestVersion)
{
    PageSettings settings;
    settings.newestVersion = *parseNewestVersion("12.0.99999999999");
    settings.updateUrl = "https://downloads.example/client";
    settings.automatic = true;
    startPage(certificate, settings);

    const json service = ask("session", {{"session", nullptr}});
    EXPECT_EQ(service["newestVersion"], json({"12", "0", "99999999999"}));
    EXPECT_EQ(service["updateUrl"], "https://downloads.example/client");
    EXPECT_EQ(service["automatic"], true);
    for (const char* text : {"", "1", "1.2", "1.2.3.4", "1..3", "1.2.", "a.b.c", "1.2.-3"})
        EXPECT_FALSE(parseNewestVersion(text)) << text;
}

TEST_F(PageServerTest, saysWhyItCannotStart)
{
    const auto reason = [this](PageSettings settings, const Certificate& with) {
        std::string why;
        EXPECT_FALSE(PageServer(std::move(settings), with, sessions).start(why));
        return why;
    };
    PageSettings settings;
    settings.port = pageServer->port();
    EXPECT_NE(reason(settings, certificate).find(std::to_string(pageServer->port())),
              std::string::npos);
    EXPECT_NE(reason({}, {folder.path() / "none", folder.path() / "none"}).find("certificate"),
              std::string::npos);
    settings.pageFolder = folder.path();
    EXPECT_NE(reason(settings, certificate).find("index.html"), std::string::npos);
}

} // namespace
} // namespace quenmoor
