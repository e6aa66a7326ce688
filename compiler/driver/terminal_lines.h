// Lines typed at a terminal. They are edited here, by libedit, with a history; where the terminal cannot do that (TERM=dumb,
// output that goes elsewhere), the terminal's own line editing serves. Text is UTF-8 whatever the locale says.
#pragma once

#include <memory>
#include <string>

#include "driver/line_history.h"

namespace vesk::compiler {

class TerminalLines {
public:
    TerminalLines();
    ~TerminalLines();
    TerminalLines(const TerminalLines&) = delete;
    TerminalLines& operator=(const TerminalLines&) = delete;

    struct Line {
        // Dropped: by Ctrl-C. End: of the input.
        enum class Kind { Typed, Dropped, End };
        Kind kind;
        std::string text;              // without its end
        bool isPasteUnderWay = false;  // more lines follow that were pasted with it
    };
    // The terminal has its own settings again when this returns. It does not when a signal ends the process: then they are
    // restored before.
    Line read(const std::string& prompt);

private:
    class Reader;
    class PlainReader;
    class EditingReader;
    void warnOfHistory();

    LineHistory history_ = LineHistory::ofUser();
    std::unique_ptr<Reader> reader_;
};

}  // namespace vesk::compiler
