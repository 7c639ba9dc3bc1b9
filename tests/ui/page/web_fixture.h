// A WebServicePage in front of an https server whose pages the test defines. Main thread only.
#pragma once

#include "tests/ui/page/trusting_home.h"
#include "ui/page/web_service_page.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>
#include <QLabel>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QStackedWidget>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>
#include <QWebEnginePage>
#include <QWebEngineView>

namespace quenmoor {

inline constexpr const char* kIndex = "/files/upload/index.html";

// Runs the event loop until `condition` holds, which is returned, or the time is over. The browser
// engine executes a task in each round of the loop, and QTest::qWaitFor() sleeps after every round.
template <typename Condition>
bool waitUntil(const Condition& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(60))
{
    const QDeadlineTimer deadline(limit);
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (condition() || deadline.hasExpired())
            loop.quit();
    });
    poll.start(5);
    if (!condition())
        loop.exec();
    return condition();
}

// Answers 404 to a path without a page, and never to "/silent".
class ScriptedService : public QSslServer {
public:
    std::map<QByteArray, QByteArray> pages; // the html of each path
    // The status and more header lines of every page. A request is not answered while it is empty.
    QByteArray head = "200 OK";
    QByteArrayList targets; // of the request lines, as received

    explicit ScriptedService(const Certificate& certificate)
    {
        QFile key(certificate.keyFile);
        QSslConfiguration configuration;
        configuration.setLocalCertificateChain(
            QSslCertificate::fromPath(QString::fromStdString(certificate.certificateFile)));
        if (key.open(QIODevice::ReadOnly))
            configuration.setPrivateKey(QSslKey(&key, QSsl::Ec));
        setSslConfiguration(configuration);
        connect(this, &QTcpServer::pendingConnectionAvailable, this, [this] {
            QTcpSocket* const socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { answer(*socket); });
        });
        listen(QHostAddress::LocalHost);
    }

    QUrl url(const char* path, const char* host = "localhost") const
    {
        return QUrl(QStringLiteral("https://%1:%2%3")
                        .arg(QLatin1String(host))
                        .arg(serverPort())
                        .arg(QLatin1String(path)));
    }

private:
    void answer(QTcpSocket& socket)
    {
        const QByteArray request = socket.peek(socket.bytesAvailable());
        if (!request.contains("\r\n\r\n"))
            return;
        targets << request.split(' ').value(1);
        if (head.isEmpty() || targets.back() == "/silent")
            return;
        const QByteArray path = targets.back().split('?').front();
        const auto page = pages.find(path);
        socket.write("HTTP/1.1 " + (page == pages.end() ? "404 Not Found" : head) +
                     "\r\nContent-Type: text/" + (path.endsWith(".js") ? "javascript" : "html") +
                     "\r\nConnection: close\r\n\r\n");
        if (page != pages.end())
            socket.write(page->second);
        socket.disconnectFromHost();
    }
};

struct WebFixture {
    explicit WebFixture(const Certificate& certificate)
        : service(certificate),
          page(service.url(kIndex).toString(), [this](const QUrl& url) { opened.push_back(url); })
    {
        QObject::connect(&page, &ServicePage::titleReceived,
                         [this](const PageSignal& signal) { reported.push_back(signal); });
        reset();
        page.widget()->resize(600, 400);
        page.widget()->show();
    }

    // Loads `html`, waits for its title "end" and returns received().
    QString show(const QByteArray& html)
    {
        service.pages[kIndex] = html;
        return load(service.url(kIndex));
    }
    QString load(const QUrl& url)
    {
        const std::size_t before = reported.size();
        page.load(url);
        return waitForTitle(u"end", before) ? received() : QStringLiteral("(time limit)");
    }
    bool waitForTitle(QStringView title, std::size_t after = 0)
    {
        return waitUntil([&] { return reported.size() > after && reported.back().title == title; });
    }
    void reset()
    {
        service.pages.clear();
        service.targets.clear();
        service.head = "200 OK";
        reported.clear();
        opened.clear();
    }

    // The text of `reported`: each title with the values that are present.
    QString received() const
    {
        using namespace Qt::StringLiterals;
        QStringList all;
        for (const PageSignal& signal : reported) {
            all << signal.title;
            for (const auto& [label, value] : {std::pair{u" session="_s, signal.session},
                                               {u" token="_s, signal.token},
                                               {u" major="_s, signal.macMajor},
                                               {u" minor="_s, signal.macMinor},
                                               {u" build="_s, signal.macBuild},
                                               {u" url="_s, signal.updateUrl}}) {
                if (value)
                    all.back() += label + *value;
            }
        }
        return all.join(u'|');
    }

    // Waits for the failure panel and returns its text.
    QString failure()
    {
        return waitUntil([this] { return isPanelShown(); })
                   ? page.widget()->findChild<QLabel*>(QStringLiteral("failureReason"))->text()
                   : QString();
    }
    bool isPanelShown()
    {
        return page.widget()->findChild<QWidget*>(QStringLiteral("failurePanel"))->isVisible();
    }
    QWebEngineView* view() { return page.widget()->findChild<QWebEngineView*>(); }

    ScriptedService service;
    std::vector<PageSignal> reported;
    std::vector<QUrl> opened; // in the user's browser
    WebServicePage page;
};

} // namespace quenmoor
