#include "cli/existing_question.h"

#include "base/text.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>

namespace quenmoor {
namespace {

constexpr std::int32_t kNoButton = 0;
constexpr std::size_t kMaxLineLength = 256;

std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string trimmed(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

std::string prompt(const std::vector<std::string>& buttons)
{
    std::string text;
    for (std::size_t i = 0; i < buttons.size(); ++i)
        text += fmt::format("{}[{}] {}{}", i > 0 ? "   " : "", i + 1, buttons[i],
                            i == 0 ? " (default)" : "");
    return text + ": ";
}

} // namespace

std::optional<std::int32_t> buttonFor(const std::string& line,
                                      const std::vector<std::string>& buttons)
{
    const std::string answer = lowerCase(trimmed(line));
    if (answer.empty())
        return kFirstButton;
    std::optional<std::int32_t> selected;
    for (std::size_t i = 0; i < buttons.size(); ++i) {
        if (answer != std::to_string(i + 1) && !lowerCase(buttons[i]).starts_with(answer))
            continue;
        if (selected)
            return std::nullopt;
        selected = kFirstButton + static_cast<std::int32_t>(i);
    }
    return selected;
}

CopyAnswer policyAnswer(ExistingPolicy policy, std::int64_t size, const Alert& alert)
{
    const ExistingCopy copy = alert.copy.value_or(ExistingCopy{});
    // An unreadable response counts as a complete copy of the same file. To leave the file out
    // because of it would lose the file.
    if (copy.unknown && policy != ExistingPolicy::Overwrite)
        return {.note = {}, .giveUp = true};
    switch (policy) {
    case ExistingPolicy::Ask:
        return {kFirstButton, "There is no terminal to ask on; use --existing to choose."};
    case ExistingPolicy::Overwrite: return {kSecondButton, {}};
    case ExistingPolicy::Skip:
        // A server that omits a flag sets it, so that the size decides as well.
        if (copy.equal && copy.complete && copy.size == size)
            return {kFirstButton, {}, true};
        [[fallthrough]];
    case ExistingPolicy::Resume:
        if (alert.buttons.size() >= 3)
            return {kThirdButton, {}};
        return {kFirstButton, "\"Resume\" is not offered for this copy."};
    case ExistingPolicy::Cancel: break;
    }
    return {kFirstButton, {}};
}

TerminalQuestion::TerminalQuestion(int in, int out) : in_(in), out_(out)
{
    std::array<int, 2> ends{-1, -1};
    if (pipe(ends.data()) != 0)
        return; // without the pipe only an answer ends an open question
    wakeRead_ = ends[0];
    wakeWrite_ = ends[1];
    fcntl(wakeRead_, F_SETFD, FD_CLOEXEC);
    fcntl(wakeWrite_, F_SETFD, FD_CLOEXEC);
}

TerminalQuestion::~TerminalQuestion()
{
    close(wakeRead_);
    close(wakeWrite_);
}

std::optional<std::int32_t> TerminalQuestion::ask(const std::string& name, const Alert& alert)
{
    tcflush(in_, TCIFLUSH);
    write(printableLine(name) + ": " + alert.messageText + "\n" + alert.informativeText + "\n");
    while (!abandoned_) {
        write(prompt(alert.buttons));
        const std::optional<std::string> line = readLine();
        if (!line && !abandoned_)
            return kNoButton;
        if (!line)
            break;
        if (const auto button = buttonFor(*line, alert.buttons))
            return button;
    }
    return std::nullopt;
}

void TerminalQuestion::abandon()
{
    if (!abandoned_.exchange(true)) {
        [[maybe_unused]] const ssize_t written = ::write(wakeWrite_, "", 1);
    }
}

std::optional<std::string> TerminalQuestion::readLine()
{
    std::string line;
    while (true) {
        std::array<pollfd, 2> descriptors{pollfd{in_, POLLIN, 0}, pollfd{wakeRead_, POLLIN, 0}};
        if (poll(descriptors.data(), descriptors.size(), -1) < 0 && errno != EINTR)
            return std::nullopt;
        if (abandoned_)
            return std::nullopt;
        if (descriptors[0].revents == 0)
            continue;
        char c = 0;
        if (read(in_, &c, 1) != 1)
            return std::nullopt;
        if (c == '\n')
            return line;
        if (line.size() < kMaxLineLength)
            line += c;
    }
}

void TerminalQuestion::write(const std::string& text) const
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(out_, text.data() + done, text.size() - done);
        if (written <= 0)
            return;
        done += static_cast<std::size_t>(written);
    }
}

} // namespace quenmoor
