// The exception of the program being compiled.
#include "host/diagnostics.h"

namespace vesk::compiler {

CompilerException::CompilerException(TokenPtr token, Str message, CompilerErrorKind kind, Str first, Str second)
    : std::runtime_error(message),
      token_(std::move(token)),
      kind_(kind),
      first_(std::move(first)),
      second_(std::move(second)) {}

CompilerException& CompilerException::addNote(DiagnosticNote note) {
    notes_.push_back(std::move(note));
    return *this;
}

CompilerException compileError(const TokenPtr& token, Str message) {
    return CompilerException(token, std::move(message), CompilerErrorKind::CompileError, {}, {});
}

}  // namespace vesk::compiler
