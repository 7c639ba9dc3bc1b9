// Connects the uploads and the window with the services of the desktop: keeps the computer awake,
// shows notifications and the progress in the taskbar, and receives the files that other processes
// hand over.
#pragma once

#include "ui/application_service.h"
#include "ui/desktop_notices.h"
#include "ui/sleep_inhibitor.h"

#include <QObject>

namespace quenmoor {

struct Alert;
struct AttemptEvent;
class QtUploadView;
class UploadQueues;
class ViewController;

// Main thread only. Create it after the controller and before the window is shown.
class DesktopIntegration : public QObject {
    Q_OBJECT

public:
    // All of them must outlive this object.
    struct Dependencies {
        ViewController& controller;
        QtUploadView& view;
        const UploadQueues& queues;
        ApplicationService& service;
    };

    explicit DesktopIntegration(const Dependencies& dependencies);

private:
    void fileAccepted(qint64 size);
    void attemptReported(const AttemptEvent& event);
    void fileEnded(const AttemptEvent& event);
    void queueEnded();
    void alertRaised(const Alert& alert);
    void applicationStateChanged(Qt::ApplicationState state);

    // Shows `notice` unless the user is looking at the window.
    void notify(const Notice& notice);
    QString currentName() const;

    Dependencies deps_;
    SleepInhibitor inhibitor_;
    Notifier notifier_;
    LauncherEntry launcher_;

    // The files since the upload queue was empty the last time.
    struct Batch {
        qint64 total = 0; // bytes
        qint64 ended = 0; // bytes of the files that are finished or cancelled
        qsizetype finished = 0;
        qsizetype cancelled = 0;
    };
    Batch batch_;
    std::vector<qint64> sizes_; // bytes, one for each row of the status table
};

} // namespace quenmoor
