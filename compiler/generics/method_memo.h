// Two per-thread memories of the method driver.
//
// Calls: a further call of a known shape in the same unit costs a look-up. A shape is owner, method, static or not, unit and
// source file, then argument keys and explicit type arguments. Entries are made only where every overload is public, so that
// access cannot depend on the place; they are used only while the unit still has the symbol, or the symbol still comes
// from the same bundle. Errors are never remembered.
//
// Return types: of methods that declare none, by declaration and type arguments.
//
// Both die with the reset of the session.
#pragma once

#include "generics/session_state.h"
#include "host/model_records.h"

namespace vesk::compiler {

// One call's look-up, while the driver works on it.
class MethodCallMemo {
public:
    // `owner` as the caller passed it.
    MethodCallMemo(const ContextPtr& context, const Str& owner, const Str& method, const TokenPtr& token,
                   bool isStatic);

    // Whether a call of this method has been remembered here at all: then its arguments are worth collecting.
    bool isKnownMethod() const { return known_; }
    // Null when the shape is unknown or its specialization is gone. Valid until the next change of the memo.
    const GenericMethodSpec* find(const StrVec& argKeys, const StrVec& explicitTypeArgs);
    void remember(const StrVec& argKeys, const StrVec& explicitTypeArgs, const GenericMethodSpec& spec,
                  const Str& sourcePath);

private:
    ContextPtr context_;
    TokenPtr token_;
    Str unit_, method_;
    bool usable_ = false, known_ = false;
};

Str inferredReturnTypeKey(const GenericMethodInfo& info, const Str& owner, const StrVec& typeArgs);
const Str* rememberedReturnType(const Str& key);
void rememberReturnType(const Str& key, const Str& type);

void resetMethodMemo();

}  // namespace vesk::compiler
