// A temporary home folder whose certificate store trusts a generated certificate.
#pragma once

#include "devservice/certificate.h"
#include "tests/fakes/temp_folder.h"

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <map>

namespace quenmoor {

// Create it before the application object: the browser engine opens the certificate store once.
class TrustingHome {
public:
    TrustingHome()
    {
        std::string error;
        certificate_ = ensureCertificate(state_.path() / "trusted", error);
        untrusted_ = ensureCertificate(state_.path() / "untrusted", error);
        qputenv("HOME", QByteArray::fromStdString(home_.path().string()));
        for (const char* folder : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"})
            qunsetenv(folder);
        // Without a session bus, one would be started and store its address in the home folder.
        qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
        std::filesystem::create_directories(home_.path() / ".pki/nssdb");
        certutil({QStringLiteral("-N"), QStringLiteral("--empty-password")});
        certutil({QStringLiteral("-A"), QStringLiteral("-t"), QStringLiteral("CP,,"),
                  QStringLiteral("-n"), QStringLiteral("dev"), QStringLiteral("-i"),
                  QString::fromStdString(certificate_->certificateFile.string())});
    }

    const Certificate& certificate() const { return *certificate_; }
    const Certificate& untrustedCertificate() const { return *untrusted_; }

    // Every folder and every file in the home folder, with its content.
    std::map<std::string, std::string> files() const
    {
        std::map<std::string, std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(home_.path()))
            found[entry.path().string()] =
                entry.is_regular_file() ? contentOf(entry.path()) : std::string();
        return found;
    }

private:
    void certutil(const QStringList& arguments) const
    {
        const QString store =
            QString::fromStdString("sql:" + home_.path().string() + "/.pki/nssdb");
        QProcess::execute(QStringLiteral("certutil"),
                          QStringList{QStringLiteral("-d"), store} + arguments);
    }

    TempFolder state_;
    TempFolder home_;
    std::optional<Certificate> certificate_;
    std::optional<Certificate> untrusted_;
};

} // namespace quenmoor
