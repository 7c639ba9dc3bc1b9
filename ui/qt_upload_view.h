// Forwards the engine's calls from the background threads to the main thread, as Qt signals.
#pragma once

#include "engine/upload_view.h"
#include "ui/main_thread_bridge.h"

#include <QObject>
#include <QString>

namespace quenmoor {

// A bridge to the thread that creates it, run by that thread's Qt event loop.
class QtMainThreadBridge : public MainThreadBridge {
public:
    QtMainThreadBridge();

private:
    // Receives the wake events. Qt drops the pending ones when it is destroyed.
    class Receiver : public QObject {
    public:
        explicit Receiver(MainThreadBridge& bridge) : bridge_(bridge) {}
        bool event(QEvent* event) override;

    private:
        MainThreadBridge& bridge_;
    };

    Receiver receiver_{*this};
};

// Created on the main thread, where it emits all signals. The engine's call returns after all slots
// in direct connections have returned, or at once if the bridge is closed.
class QtUploadView : public QObject, public UploadView {
    Q_OBJECT

public:
    using AnswerCallback = MainThreadBridge::AnswerCallback;

    // The bridge must outlive the view.
    explicit QtUploadView(MainThreadBridge& bridge) : bridge_(bridge) {}

    void reloadProgressGrid(std::optional<std::int32_t> percent) override;
    void setStatusBar(const std::string& filename, const std::string& rate) override;
    std::optional<std::int32_t> runModal(const Alert& alert) override;
    void terminate() override;
    void attemptChanged(const AttemptEvent& event) override;

Q_SIGNALS:
    void progressGridChanged(std::optional<std::int32_t> percent);
    void statusBarChanged(const QString& filename, const QString& rate);
    // Exactly one slot opens the alert, returns at once and calls `answer` on the main thread
    // later.
    void alertRaised(const quenmoor::Alert& alert,
                     const quenmoor::QtUploadView::AnswerCallback& answer);
    void terminationRequested();
    void attemptReported(const quenmoor::AttemptEvent& event);

private:
    MainThreadBridge& bridge_;
};

} // namespace quenmoor
