// A page and a desktop that do what a test tells them and note what they are told.
#pragma once

#include "ui/desktop.h"
#include "ui/service_page.h"

#include <QUrl>
#include <QWidget>
#include <deque>
#include <memory>
#include <string>

namespace quenmoor {

class FakePage : public ServicePage {
public:
    std::vector<std::string> loads;

    QWidget* widget() override { return widget_; }
    void load(const QUrl& url) override { loads.push_back(url.toEncoded().toStdString()); }

    void say(const QString& title, const std::optional<QString>& session = QStringLiteral("s1"),
             const std::optional<QString>& token = {})
    {
        PageSignal signal;
        signal.title = title;
        signal.session = session;
        signal.token = token;
        Q_EMIT titleReceived(signal);
    }

private:
    QWidget* widget_ = new QWidget; // the window's, as soon as there is one
};

struct FakeDesktop : Desktop {
    // Answers to modal alerts; nothing, as at the program's end, when the list is empty.
    std::deque<std::optional<std::int32_t>> answers;
    // Called while a modal alert stands.
    std::function<void()> whileModal;
    std::vector<FileUrl> choice;

    std::vector<Alert> alerts;
    std::vector<std::string> opened;
    QString questionTitle;
    std::function<void(std::int32_t)> openQuestion; // answers the engine's alert

    std::optional<std::int32_t> runModal(QWidget* /*window*/, const Alert& alert) override
    {
        alerts.push_back(alert);
        if (whileModal)
            whileModal();
        if (answers.empty())
            return std::nullopt;
        const auto answer = answers.front();
        answers.pop_front();
        return answer;
    }

    void openModal(QWidget* /*window*/, const QString& title, const Alert& alert,
                   std::function<void(std::int32_t)> answered) override
    {
        questionTitle = title;
        alerts.push_back(alert);
        openQuestion = std::move(answered);
    }

    void chooseFiles(QWidget* /*window*/,
                     std::function<void(const std::vector<FileUrl>&)> chosen) override
    {
        if (!choice.empty())
            chosen(choice);
    }

    void openUrl(const QUrl& url) override { opened.push_back(url.toEncoded().toStdString()); }
};

} // namespace quenmoor
