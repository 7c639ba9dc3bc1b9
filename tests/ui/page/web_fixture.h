// A service page over a scripted service, and what it signalled.
#pragma once

#include "tests/ui/page/scripted_service.h"
#include "ui/page/web_service_page.h"

#include <QStackedWidget>
#include <QTest>
#include <QWebEnginePage>
#include <QWebEngineView>

namespace quenmoor {

inline constexpr const char* kIndex = "/files/upload/index.html";

struct WebFixture {
    explicit WebFixture(const Certificate& certificate,
                        std::chrono::milliseconds patience = std::chrono::seconds(30))
        : service(certificate),
          page(
              service.baseUrl(), [this](const QUrl& url) { opened.push_back(url); }, patience)
    {
        QObject::connect(&page, &ServicePage::titleReceived,
                         [this](const PageSignal& signal) { signals_.push_back(signal); });
        page.widget()->resize(600, 400);
        page.widget()->show();
    }

    // Shows `html` in place of whatever is there, and waits until it has said "end".
    void show(const QByteArray& html)
    {
        service.setPage(kIndex, html);
        load(service.url(kIndex));
    }
    void load(const QUrl& url)
    {
        const std::size_t before = signals_.size();
        page.load(url);
        QVERIFY(QTest::qWaitFor(
            [&] {
                return signals_.size() > before && signals_.back().title == QStringLiteral("end");
            },
            20'000));
    }

    // All so far, with "|" between them.
    QString titles() const
    {
        QStringList all;
        for (const PageSignal& signal : signals_)
            all << signal.title;
        return all.join(QLatin1Char('|'));
    }

    QWebEngineView* view() { return page.widget()->findChild<QWebEngineView*>(); }
    bool isPanelShown()
    {
        return page.widget()->findChild<QWidget*>(QStringLiteral("failurePanel"))->isVisible();
    }

    ScriptedService service;
    std::vector<QUrl> opened; // in the user's own browser
    std::vector<PageSignal> signals_;
    WebServicePage page;
};

} // namespace quenmoor
