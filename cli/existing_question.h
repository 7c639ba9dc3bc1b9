// Answers the question about an existing copy on the server: by the policy of the command line, or
// by asking on the terminal.
#pragma once

#include "cli/sources.h"
#include "engine/upload_view.h"

#include <atomic>
#include <functional>
#include <string>

namespace quenmoor {

struct CopyAnswer {
    std::int32_t button = kFirstButton;
    std::string note;  // why it differs from what the user may expect; may be empty
    bool skip = false; // the server holds the whole file, so that the button only ends the attempt
    bool giveUp = false; // nothing is known about a copy; the button only ends the attempt
};

// Asks about the copy of a file. Returns nullopt if the program ended during the question.
using AskAboutCopy = std::function<std::optional<CopyAnswer>(const Source&, const Alert&)>;

// The answer without a question. An answer that the alert does not offer becomes "Cancel", and so
// does ExistingPolicy::Ask: there is no terminal then. `size` is that of the file, in bytes.
CopyAnswer policyAnswer(ExistingPolicy policy, std::int64_t size, const Alert& alert);

// Asks on the terminal, with numbered answers. One thread calls ask(), any thread abandon().
class TerminalQuestion {
public:
    // `in` and `out` are descriptors of a terminal; not owned.
    TerminalQuestion(int in, int out);
    ~TerminalQuestion();
    TerminalQuestion(const TerminalQuestion&) = delete;
    TerminalQuestion& operator=(const TerminalQuestion&) = delete;

    // Blocks until the user has typed the number of a button, its name or the beginning of the
    // name, or an empty line for the first button; repeats the question after any other line. What
    // was typed before the question is discarded. `name` is that of the file, byte for byte.
    // Returns 0, which is no button, at the end of the input, and nullopt after abandon().
    std::optional<std::int32_t> ask(const std::string& name, const Alert& alert);

    // Ends the current question and every later one without an answer.
    void abandon();

private:
    // One line without its line feed; nullopt after abandon() and at the end of the input.
    std::optional<std::string> readLine();
    void write(const std::string& text) const;

    const int in_;
    const int out_;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;
    std::atomic<bool> abandoned_{false};
};

// The button that `line` selects by its number, its name or an unambiguous beginning of the name,
// in any case; the first one for an empty line, nullopt if it selects none.
std::optional<std::int32_t> buttonFor(const std::string& line,
                                      const std::vector<std::string>& buttons);

} // namespace quenmoor
