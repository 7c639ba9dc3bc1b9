#include "ui/startup_and_exit.h"

#include "base/log.h"
#include "base/text.h"
#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "ui/app_delegate.h"
#include "ui/window_settings.h"

#include <unistd.h>

#include <QApplication>
#include <QIcon>
#include <QSocketNotifier>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <span>
#include <string_view>

#ifdef __APPLE__
#include <CoreFoundation/CoreFoundation.h>
#endif

namespace quenmoor {
namespace {

constexpr std::chrono::milliseconds kThreadEndLimit{500};
constexpr int kSignalStatus = 128; // shells add the number of the signal
constexpr std::array kSignals{SIGTERM, SIGINT, SIGHUP};

constexpr std::string_view kEndOfOptions = "--";

constexpr const char* kHelp = "Usage: quenmoor-upload [FILE...]\n"
                              "\n"
                              "Opens the upload window and queues each FILE for upload.\n"
                              "\n"
                              "  -h, --help     show this help and exit\n"
                              "      --version  show the version and exit\n";

#ifdef __APPLE__
// The version in the bundle, which the Finder shows too.
std::string versionText()
{
    std::array<char, 64> text{};
    const void* const value = CFBundleGetValueForInfoDictionaryKey(
        CFBundleGetMainBundle(), CFSTR("CFBundleShortVersionString"));
    if (value != nullptr)
        CFStringGetCString(static_cast<CFStringRef>(value), text.data(), text.size(),
                           kCFStringEncodingUTF8);
    return text.data();
}
#else
std::string versionText()
{
    return kVersion;
}
#endif

std::span<char* const> arguments(int argc, char** argv)
{
    return std::span<char* const>(argv, static_cast<std::size_t>(argc)).subspan(argc > 0 ? 1 : 0);
}

void setApplicationNames()
{
    QApplication::setApplicationName(QStringLiteral("quenmoor-upload"));
    QApplication::setApplicationVersion(QString::fromStdString(versionText()));
    QApplication::setDesktopFileName(QStringLiteral("com.quenmoor.Upload"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("com.quenmoor.Upload"),
                                                 QIcon(QStringLiteral(":/ui/icon.png"))));
}

std::mutex startMutex;
// Guarded by startMutex. The messages of Qt while it creates the application object, which aborts
// the process if there is no display; unset after it.
std::optional<std::vector<std::string>> startMessages;

// Any thread.
void onQtMessage(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text)
{
    {
        const std::lock_guard lock(startMutex);
        if (startMessages && type == QtFatalMsg) {
            // The first message is the cause, for example "could not connect to display :0".
            const std::string cause =
                startMessages->empty() ? text.toStdString() : startMessages->front();
            writeDiagnostic(STDERR_FILENO,
                            "quenmoor-upload: cannot open a window: " + printableLine(cause) +
                                ". Set DISPLAY or WAYLAND_DISPLAY, or use quenmoor-put, which "
                                "needs no display.\n");
            std::_Exit(EXIT_FAILURE);
        }
        if (startMessages) {
            startMessages->push_back(text.trimmed().toStdString());
            return;
        }
    }
    writeSystemLine(text.toStdString());
}

} // namespace

std::optional<ViewController::Client> thisClient()
{
    const std::string text = versionText();
    const std::optional<Version> version = parseVersion(text);
    if (!version) {
        logSystem("The version of this program must look like 1.2.3, but is \"{}\".", text);
        return std::nullopt;
    }
    return ViewController::Client{QString::fromStdString(text), *version,
                                  baseUrl(QString::fromUtf8(kServiceHost), kServicePagePort)};
}

bool handleInformationOptions(int argc, char** argv)
{
    for (const std::string_view argument : arguments(argc, argv)) {
        if (argument == kEndOfOptions)
            return false;
        if (argument == "--version") {
            std::printf("quenmoor-upload %s\n", versionText().c_str());
            return true;
        }
        if (argument == "--help" || argument == "-h") {
            std::fputs(kHelp, stdout);
            return true;
        }
    }
    return false;
}

std::unique_ptr<QApplication> makeApplication(int& argc, char** argv)
{
    // Without this variable, the browser engine never describes the page to a screen reader.
    if (!qEnvironmentVariableIsSet("QTWEBENGINE_ENABLE_LINUX_ACCESSIBILITY"))
        qputenv("QTWEBENGINE_ENABLE_LINUX_ACCESSIBILITY", "1");
    startMessages.emplace();
    qInstallMessageHandler(onQtMessage);
    auto application = std::make_unique<QApplication>(argc, argv);
    std::vector<std::string> messages;
    {
        const std::lock_guard lock(startMutex);
        messages = std::move(*startMessages);
        startMessages.reset();
    }
    for (const std::string& message : messages)
        writeSystemLine(message);
    setApplicationNames();
    return application;
}

std::vector<FileUrl> filesToOpen(int argc, char** argv)
{
    std::vector<FileUrl> files;
    bool mayBeOption = true;
    for (const std::string_view argument : arguments(argc, argv)) {
        if (mayBeOption && argument == kEndOfOptions) {
            mayBeOption = false;
            continue;
        }
        std::error_code failed;
        const std::filesystem::path path = std::filesystem::absolute(argument, failed);
        if (!failed)
            files.push_back(FileUrl::fromPath(path));
    }
    return files;
}

EndSignals::EndSignals() : pipe_(kSignals)
{
    if (pipe_.readEnd() < 0)
        return; // the signals then kill the process, which is their default action
    notifier_ = std::make_unique<QSocketNotifier>(pipe_.readEnd(), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this,
            [this] { Q_EMIT endRequested(kSignalStatus + pipe_.read()); });
}

EndSignals::~EndSignals() = default;

void connectEnd(ViewController& controller, AppDelegate& delegate, QtUploadView& view,
                MainThreadBridge& bridge, const EndSignals& endSignals)
{
    MainWindow& window = controller.window();
    delegate.setWindow(&window);
    QObject::connect(&window, &MainWindow::quitRequested, &delegate, &AppDelegate::terminate);
    // Queued, because a closing window is still visible while it handles the close event.
    QObject::connect(&window, &MainWindow::windowClosed, &delegate, &AppDelegate::terminate,
                     Qt::QueuedConnection);
    QObject::connect(&controller, &ViewController::terminationRequested, &delegate,
                     &AppDelegate::terminate);
    // The engine's final alert has informed the user that the application will exit.
    QObject::connect(&view, &QtUploadView::terminationRequested, &delegate,
                     [&delegate] { delegate.terminateAtOnce(EXIT_SUCCESS); });
    QObject::connect(&endSignals, &EndSignals::endRequested, &delegate,
                     &AppDelegate::terminateAtOnce);
    QObject::connect(&delegate, &AppDelegate::willTerminate, &delegate,
                     [&bridge] { bridge.close(); });
}

int endProcess(MainThreadBridge& bridge, SystemClock& clock, UploadEngine& engine, int status)
{
    bridge.close();
    clock.end();
    if (engine.waitForEnd(kThreadEndLimit))
        return status;
    std::_Exit(status); // flushes no stream, because a full pipe would block
}

} // namespace quenmoor
