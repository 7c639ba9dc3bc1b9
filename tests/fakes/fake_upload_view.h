// A view that notes what it is told and answers from a list.
#pragma once

#include "engine/upload_view.h"
#include "queue/status_table.h"

#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace quenmoor {

struct FakeUploadView : UploadView {
    struct Seen {
        std::size_t row;
        std::string status;
        std::int32_t percent;
        bool operator==(const Seen&) const = default;
    };

    // With a table, every change of a row is noted.
    const StatusTable* table = nullptr;
    // Answers to alerts with buttons; the first button when the list is empty.
    std::deque<std::optional<std::int32_t>> answers;
    // Instead of the list, when given.
    std::function<std::optional<std::int32_t>(const Alert&)> answer;
    std::function<void()> onReload;

    std::vector<Seen> seen;
    std::vector<std::optional<std::int32_t>> bar;
    std::vector<std::string> statusBar; // file name, ": ", rate
    std::vector<Alert> alerts;
    bool terminated = false;
    std::vector<AttemptEvent> events;

    void reloadProgressGrid(std::optional<std::int32_t> percent) override
    {
        const std::lock_guard lock(mutex_);
        bar.push_back(percent);
        noteRows();
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
        if (answer && !alert.buttons.empty())
            return answer(alert);
        if (alert.buttons.empty() || answers.empty())
            return kFirstButton;
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

    // The step of the latest event; that of the failure after a failed attempt.
    AttemptStep lastStep() const { return events.empty() ? AttemptStep{} : events.back().step; }

    std::size_t questions() const
    {
        std::size_t count = 0;
        for (const Alert& alert : alerts)
            count += alert.buttons.empty() ? 0U : 1U;
        return count;
    }

    // The texts that `row` went through.
    std::vector<std::string> statuses(std::size_t row) const
    {
        std::vector<std::string> texts;
        for (const Seen& change : seen) {
            if (change.row == row)
                texts.push_back(change.status);
        }
        return texts;
    }

private:
    void noteRows()
    {
        if (table == nullptr)
            return;
        rows_.resize(table->count());
        for (std::size_t i = 0; i < rows_.size(); ++i) {
            StatusTable::Row row = table->objectAtIndex(i);
            if (row == rows_[i])
                continue;
            if (rows_[i] != nullptr || row->status != "Queued")
                seen.push_back({i, row->status, row->percent});
            rows_[i] = std::move(row);
        }
    }

    std::mutex mutex_;
    std::vector<StatusTable::Row> rows_;
};

} // namespace quenmoor
