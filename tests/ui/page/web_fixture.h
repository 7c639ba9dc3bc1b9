// A WebServicePage in front of an https server whose pages the test defines.
#pragma once

#include "tests/ui/page/trusting_home.h"
#include "ui/page/web_service_page.h"

#include <httplib.h>

#include <QStackedWidget>
#include <QTest>
#include <QWebEnginePage>
#include <QWebEngineView>
#include <atomic>
#include <mutex>
#include <thread>

namespace quenmoor {

inline constexpr const char* kIndex = "/files/upload/index.html";

class ScriptedService {
public:
    struct Page {
        std::string html;
        int status = 404; // kSilent: the request is not answered until reset()
        const char* disposition = nullptr;
    };
    static constexpr int kSilent = 0;

    explicit ScriptedService(const Certificate& certificate)
        : server_(certificate.certificateFile.c_str(), certificate.keyFile.c_str())
    {
        server_.set_keep_alive_max_count(1); // so that no connection outlives its page
        server_.set_keep_alive_timeout(1);
        const auto respond = [this](const httplib::Request& request, httplib::Response& response) {
            answer(request, response);
        };
        server_.Get(".*", respond);
        // The library itself answers 400 to a query with a second "?".
        server_.set_error_handler([respond](const auto& request, httplib::Response& response) {
            if (response.status == 400)
                respond(request, response);
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~ScriptedService()
    {
        reset();
        while (!server_.is_running())
            std::this_thread::yield();
        server_.stop();
        thread_.join();
    }

    void setPage(const std::string& path, Page page)
    {
        const std::lock_guard lock(mutex_);
        pages_[path] = std::move(page);
    }
    void reset()
    {
        ++epoch_;
        const std::lock_guard lock(mutex_);
        pages_.clear();
        targets_.clear();
    }

    QUrl url(const char* path, const char* host = "localhost") const
    {
        return QUrl(QStringLiteral("https://%1:%2%3")
                        .arg(QLatin1String(host))
                        .arg(port_)
                        .arg(QLatin1String(path)));
    }

    // The targets of the request lines, as received.
    std::vector<std::string> targets() const
    {
        const std::lock_guard lock(mutex_);
        return targets_;
    }

private:
    void answer(const httplib::Request& request, httplib::Response& response)
    {
        Page page;
        const int epoch = epoch_;
        {
            const std::lock_guard lock(mutex_);
            targets_.push_back(request.target);
            if (const auto known = pages_.find(request.path); known != pages_.end())
                page = known->second;
        }
        while (page.status == kSilent && epoch == epoch_)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        response.status = page.status;
        if (page.disposition != nullptr)
            response.set_header("Content-Disposition", page.disposition);
        if (page.status != 204)
            response.set_content(page.html, "text/html");
    }

    httplib::SSLServer server_;
    int port_ = 0;
    std::thread thread_;
    std::atomic<int> epoch_ = 0; // number of resets
    mutable std::mutex mutex_;
    std::map<std::string, Page> pages_; // guarded by mutex_
    std::vector<std::string> targets_;  // guarded by mutex_
};

struct WebFixture {
    explicit WebFixture(const Certificate& certificate,
                        std::chrono::milliseconds loadTimeout = std::chrono::seconds(30))
        : service(certificate),
          page(
              service.url(kIndex).toString(), [this](const QUrl& url) { opened.push_back(url); },
              loadTimeout)
    {
        QObject::connect(&page, &ServicePage::titleReceived,
                         [this](const PageSignal& signal) { received.push_back(signal); });
        page.widget()->resize(600, 400);
        page.widget()->show();
    }

    // Loads `html` and waits for its title "end".
    void show(const std::string& html)
    {
        service.setPage(kIndex, {html, 200});
        load(service.url(kIndex));
    }
    void load(const QUrl& url)
    {
        const std::size_t before = received.size();
        page.load(url);
        QVERIFY(QTest::qWaitFor(
            [&] { return received.size() > before && received.back().title == u"end"; }, 20'000));
    }
    void reset()
    {
        service.reset();
        received.clear();
        opened.clear();
    }

    // All titles so far, separated by "|".
    QString titles() const
    {
        QStringList all;
        for (const PageSignal& signal : received)
            all << signal.title;
        return all.join(QLatin1Char('|'));
    }

    QWebEngineView* view() { return page.widget()->findChild<QWebEngineView*>(); }
    bool isPanelShown()
    {
        return page.widget()->findChild<QWidget*>(QStringLiteral("failurePanel"))->isVisible();
    }

    ScriptedService service;
    std::vector<QUrl> opened; // in the user's browser
    std::vector<PageSignal> received;
    WebServicePage page;
};

} // namespace quenmoor
