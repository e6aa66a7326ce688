// Errors that say why in a form that code can read. Whoever finds the reason puts it into the exception; whoever adds
// notes, or prefers one error to another, looks at the reason and never at the message.
#pragma once

#include "host/diagnostics.h"

namespace vesk::compiler {

enum class InferenceFailureReason {
    WrongArgumentCount,       // the arguments do not pair with the parameters
    InconsistentArguments,    // two arguments make one type parameter two types
    NothingBinds,             // a type parameter that no argument tells and that has no default
    ConstraintNotSatisfied,   // a type argument is not what its parameter asks for
    ReturnTypeNotInferrable,  // the return type hangs on itself or on an expression without a type
};

struct InferenceFailure {
    InferenceFailureReason reason;
    Str parameter = {};  // the type parameter, "" where the failure is none of one
    std::size_t position =
        0;  // of that parameter in its list; of InconsistentArguments: of the argument that disagrees
};

// An error of kind 1 with its reason.
class InferenceError : public CompilerException {
public:
    InferenceError(const TokenPtr& token, const Str& message, InferenceFailure failure)
        : CompilerException(token, message, CompilerErrorKind::CompileError, "", ""), failure_(std::move(failure)) {}

    const InferenceFailure& failure() const { return failure_; }
    // The position is known further out than the rest.
    void setPosition(std::size_t position) { failure_.position = position; }

private:
    InferenceFailure failure_;
};

// The reason of an error, null where it has none.
inline const InferenceFailure* inferenceFailureOf(const CompilerException& error) {
    const auto* reasoned = dynamic_cast<const InferenceError*>(&error);
    return reasoned ? &reasoned->failure() : nullptr;
}

inline InferenceError returnTypeNotInferrable(const TokenPtr& token) {
    return InferenceError(token, "Cannot infer return type for generic function",
                          {InferenceFailureReason::ReturnTypeNotInferrable});
}

}  // namespace vesk::compiler
