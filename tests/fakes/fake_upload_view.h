// A view that records its calls and resumes every existing copy. The progress monitor calls it only
// while the upload thread does not.
#pragma once

#include "engine/upload_view.h"

#include <vector>

namespace quenmoor {

struct FakeUploadView : UploadView {
    std::vector<AttemptEvent> events;
    std::vector<std::optional<std::int32_t>> reloads;

    void reloadProgressGrid(std::optional<std::int32_t> percent) override
    {
        reloads.push_back(percent);
    }

    void attemptChanged(const AttemptEvent& event) override { events.push_back(event); }

    std::optional<std::int32_t> runModal(const Alert& /*alert*/) override { return kThirdButton; }
    void setStatusBar(const std::string& /*filename*/, const std::string& /*rate*/) override {}
    void terminate() override {}
};

} // namespace quenmoor
