// Characters and signals of a terminal, in the order they come.
#pragma once

#include <signal.h>

#include <array>
#include <string>
#include <vector>

namespace vesk::compiler {

// While one lives, signals that concern a terminal are told by TerminalInput::next() instead of being acted upon. Those
// that the command was started to ignore stay ignored.
class ScopedTerminalSignals {
public:
    ScopedTerminalSignals();
    ~ScopedTerminalSignals();
    ScopedTerminalSignals(const ScopedTerminalSignals&) = delete;
    ScopedTerminalSignals& operator=(const ScopedTerminalSignals&) = delete;

    // Does what the signal does by itself: stops the process until it is continued, or ends it.
    void actUpon(int signal);

private:
    static constexpr std::array WATCHED = {SIGINT, SIGHUP, SIGTERM, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH};
    struct sigaction previous_[WATCHED.size()];
};

// Keeps the signals above from a thread that does not read the terminal.
void blockTerminalSignals(sigset_t& previous);

class TerminalInput {
public:
    TerminalInput();

    struct Event {
        enum class Kind { Character, Signal, End, HungUp };
        Kind kind;
        wchar_t character = 0;
        int signal = 0;
    };
    // Waits. Bytes that are no UTF-8 come as U+FFFD.
    Event next();
    // The same for bytes, which a terminal that edits lines itself hands over line by line.
    Event nextByte();
    // Forgets what was typed and not read.
    void drop() { bytes_.clear(), read_ = 0; }

private:
    Event::Kind fill();

    std::string bytes_;
    std::size_t read_ = 0;
    int signal_ = 0;
};

}  // namespace vesk::compiler
