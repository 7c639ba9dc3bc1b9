#include "ui/window_start.h"

#include "base/log.h"
#include "ui/app_delegate.h"
#include "ui/end_process.h"
#include "ui/page/page_url.h"
#include "ui/window_settings.h"

#include <QApplication>
#include <QIcon>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string_view>

#ifdef __APPLE__
#include <CoreFoundation/CoreFoundation.h>
#endif

namespace quenmoor {
namespace {

constexpr std::string_view kEndOfOptions = "--";

constexpr const char* kHelp =
    "Usage: quenmoor-upload [FILE...]\n"
    "\n"
    "Opens the upload window. FILE... are queued as if they had been opened with it.\n"
    "\n"
    "  -h, --help     show this help\n"
    "      --version  show the version\n";

#ifdef __APPLE__
// The bundle's own word, which the system shows too.
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

} // namespace

std::optional<ViewController::Client> thisClient()
{
    const std::string text = versionText();
    const std::optional<Version> version = parseVersion(text);
    if (!version) {
        logSystem("The version of this program must have three numbers: \"{}\" has fewer.", text);
        return std::nullopt;
    }
    return ViewController::Client{QString::fromStdString(text), *version,
                                  baseUrl(QString::fromUtf8(kServiceHost), kServicePagePort)};
}

bool answerWithoutWindow(int argc, char** argv)
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

void nameApplication()
{
    QApplication::setApplicationName(QStringLiteral("quenmoor-upload"));
    QApplication::setApplicationVersion(QString::fromStdString(versionText()));
    QApplication::setDesktopFileName(QStringLiteral("com.quenmoor.Upload"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("com.quenmoor.Upload")));
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

void connectEnd(ViewController& controller, AppDelegate& delegate, QtUploadView& view,
                MainThreadBridge& bridge, const EndSignals& endSignals)
{
    MainWindow& window = controller.window();
    delegate.setWindow(&window);
    QObject::connect(&window, &MainWindow::quitRequested, &delegate, &AppDelegate::terminate);
    // Queued: a window that closes is on screen until its close event has been answered.
    QObject::connect(&window, &MainWindow::windowClosed, &delegate, &AppDelegate::lastWindowClosed,
                     Qt::QueuedConnection);
    QObject::connect(&controller, &ViewController::terminationRequested, &delegate,
                     &AppDelegate::terminate);
    // The user has been told that the application will exit; there is nothing left to ask.
    QObject::connect(&view, &QtUploadView::terminationRequested, &delegate,
                     [&delegate] { delegate.terminateAtOnce(EXIT_SUCCESS); });
    QObject::connect(&endSignals, &EndSignals::endRequested, &delegate,
                     &AppDelegate::terminateAtOnce);
    QObject::connect(&delegate, &AppDelegate::willTerminate, &delegate,
                     [&bridge] { bridge.close(); });
}

} // namespace quenmoor
