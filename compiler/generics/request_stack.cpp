// The stack of requests and the texts of the notes.
#include "generics/request_stack.h"

#include "generics/generic_specializer.h"
#include "generics/typetext/type_text.h"

namespace vesk::compiler {

namespace {

// The host limits the chains of requests that bodies make when they are compiled to the same length.
constexpr std::size_t MAX_NESTED_REQUESTS = 200;

thread_local std::vector<const Str*> gRequestsUnderWay;

}  // namespace

SpecializationRequest::SpecializationRequest(Str key, const TokenPtr& token) : key_(std::move(key)) {
    if (gRequestsUnderWay.size() >= MAX_NESTED_REQUESTS) throw nestedTooDeeplyError(token);
    gRequestsUnderWay.push_back(&key_);
}

SpecializationRequest::~SpecializationRequest() { gRequestsUnderWay.pop_back(); }

bool SpecializationRequest::isUnderWay(const Str& key) {
    for (const Str* other : gRequestsUnderWay) {
        if (*other == key) return true;
    }
    return false;
}

DiagnosticNote specializationRequestNote(const Str& displayName, const TokenPtr& requestToken) {
    return {"in specialization of " + displayName + " requested here", requestToken, true};
}

CompilerException nestedTooDeeplyError(const TokenPtr& token) {
    return CompilerException(token, "Generic specialization is nested too deeply", CompilerErrorKind::CompileError, "",
                             "");
}

Str specializationDisplayName(const Str& name, const StrVec& typeArgs) {
    Str display = name;
    for (std::size_t i = 0; i < typeArgs.size(); i++) {
        display += i == 0 ? "<" : ", ";
        display += structuredTypeText(typeArgs[i]);
    }
    if (!typeArgs.empty()) display += '>';
    return display;
}

}  // namespace vesk::compiler
