// The memo of function specializations.
#include "generics/function_memo.h"

#include <functional>

#include "host/context.h"

namespace vesk::compiler {

namespace {

thread_local std::unordered_map<Str, Str> gFunctionSymbols;

constexpr char PART_END = '\x1f', LIST_END = '\x1e';

}  // namespace

FunctionMemoKey::FunctionMemoKey(char kind, const Str& unit, const GenericFunctionInfo& info) {
    text_.reserve(unit.size() + info.sourceFile.size() + info.name.size() + 96);
    text_ += kind;
    for (const Str& part : {std::cref(unit), std::cref(info.sourceFile), std::cref(info.name)}) {
        text_ += part;
        text_ += PART_END;
    }
}

FunctionMemoKey& FunctionMemoKey::add(const StrVec& types) {
    for (const Str& type : types) {
        text_ += type;
        text_ += PART_END;
    }
    text_ += LIST_END;
    return *this;
}

const Str* rememberedFunctionSymbol(const FunctionMemoKey& key, const Str& unit, const ContextPtr& context) {
    const auto found = gFunctionSymbols.find(key.text());
    if (found == gFunctionSymbols.end() || !context->hasSpecializedFunctionForUnit(unit, found->second)) return nullptr;
    return &found->second;
}

void rememberFunctionSymbol(const FunctionMemoKey& key, const Str& symbol) {
    gFunctionSymbols.insert_or_assign(key.text(), symbol);
}

void resetFunctionMemo() { gFunctionSymbols.clear(); }

}  // namespace vesk::compiler
