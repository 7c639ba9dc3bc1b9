#include "devservice/certificate.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quenmoor {
namespace {

unsigned modeOf(const std::filesystem::path& path)
{
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 0777U;
}

class CertificateTest : public testing::Test {
protected:
    Certificate ensure()
    {
        const auto made = ensureCertificate(folder.path() / "state", error);
        EXPECT_TRUE(made) << error;
        return made.value_or(Certificate{});
    }

    const TempFolder folder;
    std::string error;
};

TEST_F(CertificateTest, keepsItsKeyToItsOwner)
{
    const Certificate made = ensure();
    EXPECT_EQ(modeOf(made.keyFile), 0600U);
    EXPECT_EQ(modeOf(folder.path() / "state"), 0700U);
}

TEST_F(CertificateTest, isKeptWhileItIsWholeAndMadeAnewOtherwise)
{
    const Certificate made = ensure();
    const std::string first = contentOf(made.certificateFile);
    ensure();
    EXPECT_EQ(contentOf(made.certificateFile), first);

    // half a certificate, then one whose key is another's
    folder.file("state/cert.pem", first.substr(0, first.size() / 2));
    ensure();
    const std::string second = contentOf(made.certificateFile);
    EXPECT_NE(second, first);
    folder.file("state/cert.pem", first);
    ensure();
    EXPECT_NE(contentOf(made.certificateFile), first);

    std::filesystem::remove(made.keyFile);
    ensure();
    EXPECT_TRUE(std::filesystem::exists(made.keyFile));
}

TEST_F(CertificateTest, saysWhyItCannotBeWritten)
{
    folder.file("occupied", "");
    EXPECT_FALSE(ensureCertificate(folder.path() / "occupied" / "state", error));
    EXPECT_NE(error, "");
}

} // namespace
} // namespace quenmoor
