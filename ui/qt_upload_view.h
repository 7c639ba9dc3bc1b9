// The window's side of the engine: brings what the upload thread and the monitor report to the
// main thread, as signals.
#pragma once

#include "engine/upload_view.h"
#include "ui/main_thread_bridge.h"

#include <QObject>
#include <QString>
#include <functional>

namespace quenmoor {

// A bridge whose main thread is the one that makes it, served by that thread's event loop.
class QtMainThreadBridge : public MainThreadBridge {
public:
    QtMainThreadBridge();

private:
    // Gets the wake events. Those that nobody has read yet go with it.
    class Receiver : public QObject {
    public:
        explicit Receiver(MainThreadBridge& bridge) : bridge_(bridge) {}
        bool event(QEvent* event) override;

    private:
        MainThreadBridge& bridge_;
    };

    Receiver receiver_{*this};
};

// Lives on the main thread and emits there, while the background thread waits; so what a slot
// does in a direct connection is done when the engine's call returns.
class QtUploadView : public QObject, public UploadView {
    Q_OBJECT

public:
    using Answer = std::function<void(std::int32_t)>;

    // The bridge outlives the view.
    explicit QtUploadView(MainThreadBridge& bridge) : bridge_(bridge) {}

    void reloadProgressGrid(std::optional<std::int32_t> percent) override;
    void setStatusBar(const std::string& filename, const std::string& rate) override;
    std::optional<std::int32_t> runModal(const Alert& alert) override;
    void terminate() override;
    void attemptChanged(const AttemptEvent& event) override;

Q_SIGNALS:
    void progressGridChanged(std::optional<std::int32_t> percent);
    void statusBarChanged(const QString& filename, const QString& rate);
    // One receiver shows the alert, returns at once and calls `answer` on the main thread later.
    void alertRaised(const quenmoor::Alert& alert, const quenmoor::QtUploadView::Answer& answer);
    void terminationRequested();
    void attemptReported(const quenmoor::AttemptEvent& event);

private:
    MainThreadBridge& bridge_;
};

} // namespace quenmoor
