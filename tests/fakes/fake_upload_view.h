// A view that records its calls and takes its answers from a list.
#pragma once

#include "engine/upload_view.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace quenmoor {

struct FakeUploadView : UploadView {
    // Answers to alerts with buttons; the first button when the list is empty.
    std::deque<std::optional<std::int32_t>> answers;
    // Used instead of the list if set.
    std::function<std::optional<std::int32_t>(const Alert&)> answer;
    std::function<void()> onReload;

    std::vector<AttemptEvent> events;
    std::vector<std::optional<std::int32_t>> reloads;
    std::vector<std::string> statusBar; // file name, ": ", rate
    std::vector<Alert> alerts;
    bool terminated = false;

    void reloadProgressGrid(std::optional<std::int32_t> percent) override
    {
        const std::lock_guard lock(mutex_);
        reloads.push_back(percent);
        if (onReload)
            onReload();
    }

    void setStatusBar(const std::string& filename, const std::string& rate) override
    {
        const std::lock_guard lock(mutex_);
        statusBar.push_back(filename + ": " + rate);
    }

    std::optional<std::int32_t> runModal(const Alert& alert) override
    {
        alerts.push_back(alert);
        if (alert.buttons.empty() || (!answer && answers.empty()))
            return kFirstButton;
        if (answer)
            return answer(alert);
        const auto next = answers.front();
        answers.pop_front();
        return next;
    }

    void terminate() override { terminated = true; }

    void attemptChanged(const AttemptEvent& event) override
    {
        const std::lock_guard lock(mutex_);
        events.push_back(event);
    }

    std::size_t questions() const
    {
        return static_cast<std::size_t>(
            std::count_if(alerts.begin(), alerts.end(),
                          [](const Alert& alert) { return !alert.buttons.empty(); }));
    }

    // Any thread. The first event of `kind`, if there is one.
    std::optional<AttemptEvent> first(AttemptEventKind kind) const
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::find_if(events.begin(), events.end(),
                                        [kind](const auto& event) { return event.kind == kind; });
        return found == events.end() ? std::nullopt : std::optional(*found);
    }

    // The texts that `row` displayed.
    std::vector<std::string> statuses(std::size_t row) const
    {
        std::vector<std::string> texts;
        for (const AttemptEvent& event : events) {
            const std::string text = statusText(event);
            if (event.row == row && event.kind != AttemptEventKind::GaveUp && !text.empty())
                texts.push_back(text);
        }
        return texts;
    }

private:
    mutable std::mutex mutex_;
};

} // namespace quenmoor
