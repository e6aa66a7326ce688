// The exception that carries every mistake in the program being compiled.
#pragma once

#include <stdexcept>

#include "host/model_records.h"

namespace vesk::compiler {

// One further remark under an error: a text and the place it speaks of (null = no place).
struct DiagnosticNote {
    Str message;
    TokenPtr token;
    bool isRequest = false;  // one link of a chain of requests, of which a reader may be shown the ends only
};

// An error at a token. what() is the message alone. The two last texts are kept for the host and are
// empty in everything that the specializer throws.
class CompilerException : public std::runtime_error {
public:
    CompilerException(TokenPtr token, Str message, CompilerErrorKind kind, Str first, Str second);

    CompilerErrorKind getKind() const { return kind_; }
    TokenPtr getToken() const { return token_; }
    const std::vector<DiagnosticNote>& getNotes() const { return notes_; }
    // Adds a remark below those that are there, a request only once; returns *this so that it can be thrown at once.
    CompilerException& addNote(DiagnosticNote note);
    // It may come from lines that were refused, a mistake that is told where they are: nobody is shown it besides.
    void markAsConsequence() { isConsequence_ = true; }
    bool isConsequence() const { return isConsequence_; }

private:
    TokenPtr token_;
    CompilerErrorKind kind_;
    Str first_, second_;
    std::vector<DiagnosticNote> notes_;
    bool isConsequence_ = false;
};

// The ordinary error of kind 1 at `token`.
CompilerException compileError(const TokenPtr& token, Str message);

}  // namespace vesk::compiler
