// Errors as people and tools read them.
//   text   path:line:column: error: message, the source line, a caret; notes below in the same form
//   json   one object a line: severity, message, file, line, column, notes
// Paths are relative to the working folder when they lie below it. Type names in messages are shown structured,
// never flattened. Of a long chain of requests both forms show the ends, and between them how many are left out.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/diagnostics.h"
#include "semantics/types.h"

namespace vesk::compiler {

struct RenderOptions {
    bool color = false;
    std::string workingFolder;
    TypeTable* types = nullptr;  // knows how to split flattened names; may be null
    bool allNotes = false;       // of a long chain of requests too
    // How names in messages are shown beyond that, null when they are shown as they are.
    std::function<std::string(const std::string&)> shownNames = nullptr;
};

class DiagnosticRenderer {
public:
    explicit DiagnosticRenderer(RenderOptions options);

    std::string text(const CompilerException& error) const;
    std::string json(const CompilerException& error) const;

    std::string displayPath(const std::string& path) const;
    // The same for a terminal: without characters that it acts on.
    std::string shownPath(const std::string& path) const;
    std::string displayMessage(const std::string& message) const;

private:
    std::vector<DiagnosticNote> shownNotes(const CompilerException& error) const;
    std::string structured(const std::string& message) const;
    std::string withoutWorkingFolder(std::string message) const;
    void append(std::string& out, const char* severity, const char* color, const std::string& message,
                const TokenPtr& token) const;

    RenderOptions options_;
};

// One line of source with the place marked below it: tabs kept, very long lines cut to a window around the place.
// `column` counts bytes from 1. Both lines end in a line end.
std::string markedSourceLine(const std::string& line, int column);

}  // namespace vesk::compiler
