// A view that records its calls and takes its answers from a list.
#pragma once

#include "engine/upload_view.h"

#include <functional>
#include <mutex>
#include <vector>

namespace quenmoor {

struct FakeUploadView : UploadView {
    // The answer to an alert; the first button if it is not set.
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
        return answer ? answer(alert) : kFirstButton;
    }

    void terminate() override { terminated = true; }

    void attemptChanged(const AttemptEvent& event) override
    {
        const std::lock_guard lock(mutex_);
        events.push_back(event);
    }

private:
    std::mutex mutex_;
};

} // namespace quenmoor
