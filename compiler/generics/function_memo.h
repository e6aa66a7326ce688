// Remembers which symbol a call of a generic function led to, so that a further call of the same shape in the same unit
// costs a look-up. Per thread. Keys: the unit, the declaring file, the function, then either the call's argument keys and
// normalized explicit type arguments, or (where the return type is inferred) the type arguments and parameter types. An
// entry says what the answer was, not that it still stands: it is used only while the unit has the symbol. Errors are
// never remembered. Dies with the reset of the session. Unit, file and function are held once, as a number.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// A key: the number of unit, file and function, and lists of types, joined by separators that no type text holds.
class FunctionMemoKey {
public:
    FunctionMemoKey(char kind, const Str& unit, const GenericFunctionInfo& info);
    FunctionMemoKey& add(const StrVec& types);
    const Str& text() const { return text_; }

private:
    Str text_;
};

// The remembered symbol if the unit still has it, else null. The pointer lives until the next change of the memo.
const Str* rememberedFunctionSymbol(const FunctionMemoKey& key, const Str& unit, const ContextPtr& context);
void rememberFunctionSymbol(const FunctionMemoKey& key, const Str& symbol);
void resetFunctionMemo();

}  // namespace vesk::compiler
