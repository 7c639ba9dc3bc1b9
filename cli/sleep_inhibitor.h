// Keeps the computer from going to sleep while files are sent. The screen may still be switched off
// and locked.
//
// Asks the login manager on the system bus, and if that refuses or does not exist, the desktop
// portal on the session bus. Where neither exists, for example in a container, nothing happens and
// nothing is reported.
#pragma once

#include <stop_token>
#include <thread>

namespace quenmoor {

class SleepInhibitor {
public:
    // Starts a thread that asks for the inhibitor, and returns at once.
    SleepInhibitor();

    // Releases the inhibitor. Waits for the thread, which never waits for an answer then.
    ~SleepInhibitor();

    SleepInhibitor(const SleepInhibitor&) = delete;
    SleepInhibitor& operator=(const SleepInhibitor&) = delete;

private:
    // Holds the inhibitor until `stop` is requested, which also makes wakeEnd_ readable.
    void hold(const std::stop_token& stop) const;

    const int wakeEnd_; // an event descriptor, or -1
    std::jthread thread_;
};

} // namespace quenmoor
