// An https service whose pages a test writes, and a home folder that trusts its certificate.
#pragma once

#include "devservice/certificate.h"
#include "tests/fakes/temp_folder.h"

#include <httplib.h>

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QUrl>
#include <atomic>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace quenmoor {

// Stands before the application: the browser engine looks for its trust store once.
class TrustingHome {
public:
    TrustingHome()
    {
        std::string error;
        certificate_ = ensureCertificate(state_.path() / "trusted", error);
        strange_ = ensureCertificate(state_.path() / "strange", error);
        qputenv("HOME", QByteArray::fromStdString(home_.path().string()));
        for (const char* place : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"})
            qunsetenv(place);
        // Without a session bus one would be started, and leave its address in the home folder.
        qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
        std::filesystem::create_directories(home_.path() / ".pki/nssdb");
        certutil({QStringLiteral("-N"), QStringLiteral("--empty-password")});
        certutil({QStringLiteral("-A"), QStringLiteral("-t"), QStringLiteral("CP,,"),
                  QStringLiteral("-n"), QStringLiteral("dev"), QStringLiteral("-i"),
                  QString::fromStdString(certificate_->certificateFile.string())});
    }

    const Certificate& certificate() const { return *certificate_; }
    const Certificate& untrustedCertificate() const { return *strange_; }

    // Every file below the home folder, with its content.
    std::map<std::string, std::string> files() const
    {
        std::map<std::string, std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(home_.path()))
            if (entry.is_regular_file())
                found[entry.path().string()] = contentOf(entry.path());
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
    std::optional<Certificate> strange_;
};

// Answers each path with the page that was last written for it; others with 404.
class ScriptedService {
public:
    explicit ScriptedService(const Certificate& certificate)
        : server_(certificate.certificateFile.c_str(), certificate.keyFile.c_str())
    {
        server_.set_keep_alive_max_count(1); // so that no connection outlives its page
        server_.set_keep_alive_timeout(1);
        server_.Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
            answer(request, response);
        });
        // The library itself answers 400 to a query that holds a second "?".
        server_.set_error_handler(
            [this](const httplib::Request& request, httplib::Response& response) {
                if (response.status == 400)
                    answer(request, response);
            });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~ScriptedService()
    {
        ended_ = true;
        while (!server_.is_running())
            std::this_thread::yield();
        server_.stop();
        thread_.join();
    }

    void setPage(const std::string& path, const QByteArray& html, int status = 200)
    {
        const std::lock_guard lock(mutex_);
        pages_[path] = {html.toStdString(), status, {}};
    }
    void setAttachment(const std::string& path)
    {
        const std::lock_guard lock(mutex_);
        pages_[path] = {"bytes", 200, "attachment; filename=unwanted.bin"};
    }
    // Requests for `path` wait until the service ends.
    void setSilent(const std::string& path)
    {
        const std::lock_guard lock(mutex_);
        pages_[path] = {{}, 0, {}};
    }

    QUrl url(const char* path, const char* host = "localhost") const
    {
        return QUrl(QStringLiteral("https://%1:%2%3")
                        .arg(QLatin1String(host))
                        .arg(port_)
                        .arg(QLatin1String(path)));
    }
    QString baseUrl() const { return url("/files/upload/index.html").toString(); }

    // The request lines' targets, as they came over the wire.
    std::vector<std::string> targets() const
    {
        const std::lock_guard lock(mutex_);
        return targets_;
    }

private:
    struct Page {
        std::string html;
        int status;
        std::string disposition;
    };

    void answer(const httplib::Request& request, httplib::Response& response)
    {
        Page page{{}, 404, {}};
        {
            const std::lock_guard lock(mutex_);
            targets_.push_back(request.target);
            if (const auto known = pages_.find(request.path); known != pages_.end())
                page = known->second;
        }
        while (page.status == 0 && !ended_)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        response.status = page.status;
        if (!page.disposition.empty())
            response.set_header("Content-Disposition", page.disposition);
        if (page.status != 204)
            response.set_content(page.html, "text/html");
    }

    httplib::SSLServer server_;
    int port_ = 0;
    std::thread thread_;
    std::atomic<bool> ended_ = false;
    mutable std::mutex mutex_;
    std::map<std::string, Page> pages_; // guarded by mutex_
    std::vector<std::string> targets_;  // guarded by mutex_
};

} // namespace quenmoor
