// Asks the user on the terminal, in words, with numbered answers.
#pragma once

#include "engine/upload_view.h"

#include <atomic>

namespace quenmoor {

// ask() is called by one thread at a time, abandon() by any.
class TerminalQuestion {
public:
    // `in` and `out` are descriptors of a terminal; not owned.
    TerminalQuestion(int in, int out);
    ~TerminalQuestion();
    TerminalQuestion(const TerminalQuestion&) = delete;
    TerminalQuestion& operator=(const TerminalQuestion&) = delete;

    // Blocks until the user typed a number, a button's name or its beginning; anything else is
    // asked again. At the end of the input the answer is "some other way out". Nothing after
    // abandon().
    std::optional<std::int32_t> ask(const Alert& alert);

    // Ends a question that stands, and every later one, without an answer.
    void abandon();

private:
    // A line without its line feed; nothing when abandoned or at the end of the input.
    std::optional<std::string> readLine();
    void say(const std::string& text) const;

    const int in_;
    const int out_;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;
    std::atomic<bool> abandoned_{false};
};

// The button that `line` means, by number, name or an unambiguous beginning; case does not matter.
// Nothing when it means none.
std::optional<std::int32_t> buttonFor(const std::string& line,
                                      const std::vector<std::string>& buttons);

} // namespace quenmoor
