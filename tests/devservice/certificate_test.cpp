#include "devservice/certificate.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

namespace quenmoor {

using std::filesystem::perms;

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

} // namespace quenmoor
