// The exception of the program being compiled.
#include "host/diagnostics.h"

#include <algorithm>

namespace vesk::compiler {

CompilerException::CompilerException(TokenPtr token, Str message, CompilerErrorKind kind, Str first, Str second)
    : std::runtime_error(message),
      token_(std::move(token)),
      kind_(kind),
      first_(std::move(first)),
      second_(std::move(second)) {}

CompilerException& CompilerException::addNote(DiagnosticNote note) {
    // A chain may be told by its inner end and again by those that the error passes on its way out.
    const bool isThere = note.isRequest && std::any_of(notes_.begin(), notes_.end(), [&](const DiagnosticNote& old) {
                             return old.isRequest && old.token == note.token && old.message == note.message;
                         });
    if (!isThere) notes_.push_back(std::move(note));
    return *this;
}

CompilerException compileError(const TokenPtr& token, Str message) {
    return CompilerException(token, std::move(message), CompilerErrorKind::CompileError, {}, {});
}

}  // namespace vesk::compiler
