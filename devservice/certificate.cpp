#include "devservice/certificate.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <system_error>

namespace quenmoor {
namespace {

constexpr long kDay = 24L * 60 * 60;
constexpr long kValidity = 365 * kDay;
constexpr long kMinRemaining = 7 * kDay; // before a certificate is replaced
constexpr int kSerialBits = 127;
constexpr const char* kNames = "DNS:localhost,IP:127.0.0.1,IP:0:0:0:0:0:0:0:1";

template <auto release>
struct Release {
    template <typename T>
    void operator()(T* object) const
    {
        release(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, Release<X509_free>>;
using Bio = std::unique_ptr<BIO, Release<BIO_free_all>>;
using Number = std::unique_ptr<BIGNUM, Release<BN_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>>;

bool isUsable(const Certificate& files)
{
    std::error_code error; // opening a FIFO would block
    if (!std::filesystem::is_regular_file(files.certificateFile, error) ||
        !std::filesystem::is_regular_file(files.keyFile, error))
        return false;
    const Bio certificateBio(BIO_new_file(files.certificateFile.c_str(), "r"));
    const Bio keyBio(BIO_new_file(files.keyFile.c_str(), "r"));
    if (!certificateBio || !keyBio)
        return false;
    const X509Ptr certificate(PEM_read_bio_X509(certificateBio.get(), nullptr, nullptr, nullptr));
    const Key key(PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr, nullptr));
    if (!certificate || !key || X509_check_private_key(certificate.get(), key.get()) != 1)
        return false;
    time_t needed = std::time(nullptr) + kMinRemaining;
    return X509_cmp_time(X509_get0_notAfter(certificate.get()), &needed) > 0 &&
           X509_cmp_current_time(X509_get0_notBefore(certificate.get())) < 0 &&
           X509_check_host(certificate.get(), "localhost", 0, 0, nullptr) == 1;
}

bool addExtension(X509* certificate, int nid, const char* value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    return extension && X509_add_ext(certificate, extension.get(), -1) == 1;
}

bool setNames(X509* certificate)
{
    const Number serial(BN_new());
    X509_NAME* const name = X509_get_subject_name(certificate);
    const auto addEntry = [name](const char* field, const char* value) {
        return X509_NAME_add_entry_by_txt(name, field, MBSTRING_ASC,
                                          reinterpret_cast<const unsigned char*>(value), -1, -1,
                                          0) == 1;
    };
    return serial && BN_rand(serial.get(), kSerialBits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
           BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)) != nullptr &&
           addEntry("O", "quenmoor-devservice") && addEntry("CN", "localhost") &&
           X509_set_issuer_name(certificate, name) == 1;
}

X509Ptr makeCertificate(EVP_PKEY* key)
{
    X509Ptr certificate(X509_new());
    X509* const x509 = certificate.get();
    const bool complete =
        x509 != nullptr && X509_set_version(x509, X509_VERSION_3) == 1 && setNames(x509) &&
        // valid since an hour ago, for clients whose clock is slow
        X509_gmtime_adj(X509_getm_notBefore(x509), -3600) != nullptr &&
        X509_gmtime_adj(X509_getm_notAfter(x509), kValidity) != nullptr &&
        X509_set_pubkey(x509, key) == 1 && addExtension(x509, NID_subject_alt_name, kNames) &&
        addExtension(x509, NID_basic_constraints, "critical,CA:FALSE") &&
        addExtension(x509, NID_key_usage, "critical,digitalSignature") &&
        addExtension(x509, NID_ext_key_usage, "serverAuth") &&
        X509_sign(x509, key, EVP_sha256()) > 0;
    return complete ? std::move(certificate) : nullptr;
}

// Returns the PEM text that `write` writes into a memory BIO, or an empty text on failure.
template <typename Write>
std::string pemText(Write write)
{
    const Bio bio(BIO_new(BIO_s_mem()));
    if (!bio || write(bio.get()) != 1)
        return {};
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : std::string();
}

// Replaces the content of `path` atomically.
bool replaceFile(const std::filesystem::path& path, const std::string& text, mode_t mode)
{
    std::filesystem::path draft = path;
    draft += ".new";
    ::unlink(draft.c_str());
    const int file = ::open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (file < 0)
        return false;
    const ssize_t written = ::write(file, text.data(), text.size());
    const bool closed = ::close(file) == 0;
    return closed && written == static_cast<ssize_t>(text.size()) &&
           ::rename(draft.c_str(), path.c_str()) == 0;
}

} // namespace

std::optional<Certificate> ensureCertificate(const std::filesystem::path& folder,
                                             std::string& error)
{
    Certificate files{folder / "cert.pem", folder / "key.pem"};
    if (isUsable(files))
        return files;

    std::error_code failure;
    if (std::filesystem::create_directories(folder, failure))
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, failure);
    if (failure) {
        error = folder.string() + ": " + failure.message();
        return std::nullopt;
    }
    const Key key(EVP_EC_gen("P-256"));
    const X509Ptr certificate = key ? makeCertificate(key.get()) : nullptr;
    if (!certificate) {
        error = "the certificate could not be generated";
        return std::nullopt;
    }
    const std::string keyText = pemText([&key](BIO* bio) {
        return PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    const std::string certificateText =
        pemText([&certificate](BIO* bio) { return PEM_write_bio_X509(bio, certificate.get()); });
    if (keyText.empty() || certificateText.empty() || !replaceFile(files.keyFile, keyText, 0600) ||
        !replaceFile(files.certificateFile, certificateText, 0644)) {
        error = folder.string() + ": " + std::strerror(errno);
        return std::nullopt;
    }
    return files;
}

} // namespace quenmoor
