// Lines typed at a terminal, with editing and a history that outlives the session.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace vesk::compiler {

class TerminalLines {
public:
    // The history lies in the user's home folder under the program's name.
    explicit TerminalLines(const std::string& programName);
    ~TerminalLines();
    TerminalLines(const TerminalLines&) = delete;
    TerminalLines& operator=(const TerminalLines&) = delete;

    // The next line without its end, null at the end of the input.
    std::optional<std::string> read(const std::string& prompt);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vesk::compiler
