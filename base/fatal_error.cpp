#include "base/fatal_error.h"

#include "base/text.h"

#include <cxxabi.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <typeinfo>

namespace quenmoor {
namespace {

constexpr std::size_t kLongestNote = 1024; // bytes with the final NUL

// Only plain memory and write() are used inside a signal handler.
const char* programName = "";
const char* firstText = "";                            // ends the progress line of a terminal
std::array<std::array<char, kLongestNote>, 2> notes{}; // a handler may read one while one is set
std::atomic<const char*> note{""};
static_assert(std::atomic<const char*>::is_always_lock_free);

void writeError(const char* text)
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
}

[[noreturn]] void endProcess(const char* cause)
{
    for (const char* const part :
         {firstText, programName, ": internal error: ", cause, note.load(), "\n"})
        writeError(part);
    std::_Exit(kFatalErrorStatus);
}

[[noreturn]] void onTerminate()
{
    const std::type_info* const type = abi::__cxa_current_exception_type();
    std::string cause = "uncaught exception";
    if (type != nullptr) {
        const char* const plain = abi::__cxa_demangle(type->name(), nullptr, nullptr, nullptr);
        cause += std::string(" of type ") + (plain != nullptr ? plain : type->name());
    }
    syslog(LOG_ERR, "internal error: %s%s", cause.c_str(), note.load());
    endProcess(cause.c_str());
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void onFatalSignal(int number)
{
    switch (number) {
    case SIGSEGV: endProcess("invalid memory access");
    case SIGBUS: endProcess("memory or file that is no longer accessible");
    case SIGFPE: endProcess("invalid arithmetic operation");
    case SIGILL: endProcess("invalid instruction");
    default: endProcess("abort");
    }
}

void handleSignals()
{
    struct sigaction action {};
    action.sa_handler = onFatalSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND); // a fault in the handler ends the process
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
        sigaction(number, &action, nullptr);
}
#else
void handleSignals() {}
#endif

} // namespace

void handleFatalErrors(const char* program)
{
    programName = program;
    firstText = isatty(STDERR_FILENO) != 0 ? "\n" : "";
    std::set_terminate(onTerminate);
    handleSignals();
}

void setUnfinishedUpload(std::string_view name)
{
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    if (name.empty()) {
        note = "";
        return;
    }
    auto& unused = notes[note.load() == notes[0].data() ? 1 : 0];
    // At most three bytes for each byte of the name.
    const std::string text = "; the upload of \"" +
                             printableLine(name.substr(0, kLongestNote / 4)) +
                             "\" is not finished: upload the file again to resume it";
    std::memcpy(unused.data(), text.c_str(), text.size() + 1);
    note = unused.data();
}

} // namespace quenmoor
