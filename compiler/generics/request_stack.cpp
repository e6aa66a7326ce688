// The stack of requests and the texts of the notes.
#include "generics/request_stack.h"

#include "generics/generic_specializer.h"
#include "generics/typetext/type_text.h"

namespace vesk::compiler {

namespace {

// What people read of one type argument.
constexpr std::size_t MAX_SHOWN_TYPE = 2048;

thread_local std::vector<const Str*> gRequestsUnderWay;

}  // namespace

SpecializationRequest::SpecializationRequest(Str key, RequestedSpecialization requested, const ContextPtr& context)
    : link_(std::move(requested), context), key_(std::move(key)) {
    gRequestsUnderWay.push_back(&key_);
}

SpecializationRequest::~SpecializationRequest() { gRequestsUnderWay.pop_back(); }

bool SpecializationRequest::isUnderWay(const Str& key) {
    for (const Str* other : gRequestsUnderWay) {
        if (*other == key) return true;
    }
    return false;
}

Str genericDeclarationKey(const Str& sourceFile, int declarationLine, const Str& name) {
    return sourceFile + "\n" + std::to_string(declarationLine) + "\n" + name;
}

DiagnosticNote specializationRequestNote(const Str& displayName, const TokenPtr& requestToken) {
    return {"in specialization of " + displayName + " requested here", requestToken, true};
}

CompilerException nestedTooDeeplyError(const TokenPtr& token) {
    return CompilerException(token, "Generic specialization is nested too deeply", CompilerErrorKind::CompileError, "",
                             "");
}

CompilerException typeArgumentsTooLongError(const Str& name, const TokenPtr& token) {
    return compileError(token, "Type arguments of " + name + " are too long");
}

void checkTypeArgumentsLength(const Str& name, const Str& owner, const StrVec& typeArgs, const ContextPtr& context,
                              const TokenPtr& token) {
    // A flattened name may stand for a type of any length.
    const auto lengthOf = [&](const Str& type) {
        return type.find("__T_") == Str::npos ? type.size() : wholeTypeTextLength(type, context);
    };
    std::size_t length = owner.empty() ? 0 : lengthOf(owner);
    for (const Str& arg : typeArgs) length += lengthOf(arg);
    if (length > MAX_TYPE_ARGUMENTS_TEXT) throw typeArgumentsTooLongError(name, token);
}

Str specializationDisplayName(const Str& name, const StrVec& typeArgs) {
    Str display = name;
    for (std::size_t i = 0; i < typeArgs.size(); i++) {
        display += i == 0 ? "<" : ", ";
        display += shownTypeText(typeArgs[i], MAX_SHOWN_TYPE);
    }
    if (!typeArgs.empty()) display += '>';
    return display;
}

}  // namespace vesk::compiler
