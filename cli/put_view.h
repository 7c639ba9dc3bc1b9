// Turns what the engine reports into calls of a PutReport, keeps the state of each source, and
// answers the engine's questions.
#pragma once

#include "cli/existing_question.h"
#include "cli/put_report.h"
#include "cli/sources.h"
#include "engine/upload_view.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

namespace quenmoor {

class PutView : public UploadView {
public:
    // The upload thread calls `onEnd` when no file is left to send, or when the engine ends the
    // program after giving one up. With `allowChanged` a source that changed counts as finished.
    // `report` outlives the view.
    PutView(std::vector<Source> sources, PutReport& report, AskAboutCopy ask,
            std::function<void()> onEnd, bool allowChanged = false);

    // Any thread. Later calls of the engine have no effect.
    void close() { closed_ = true; }

    // Any thread.
    std::vector<Source> sources() const;

    // The status table and the status bar are not displayed; attemptChanged() has their contents.
    void reloadProgressGrid(std::optional<std::int32_t> /*percent*/) override {}
    void setStatusBar(const std::string& /*filename*/, const std::string& /*rate*/) override {}
    std::optional<std::int32_t> runModal(const Alert& alert) override;
    void terminate() override;
    void attemptChanged(const AttemptEvent& event) override;

private:
    SourceState stateAfter(const AttemptEvent& event, const Source& source) const;
    // Once for each event, when current_ is the source after it.
    RunProgress progressAfter(const AttemptEvent& event);
    // Applies `event` to the source of its row and returns the result.
    Source update(const AttemptEvent& event);

    // Set once at construction.
    PutReport& report_;
    const AskAboutCopy ask_;
    const std::function<void()> onEnd_;
    const bool allowChanged_;
    std::vector<std::size_t> queued_; // the positions in sources_ of the rows of the status table

    // Upload and monitor threads, which call one at a time.
    std::int64_t queuedBytes_ = 0; // of all queued files but those that ended without being sent
    std::int64_t doneBytes_ = 0;   // of the files on the server

    Source current_;
    CopyAnswer answer_; // for the current file

    std::atomic<bool> closed_{false}; // any thread

    mutable std::mutex sourcesMutex_;
    std::vector<Source> sources_; // guarded by sourcesMutex_
};

} // namespace quenmoor
