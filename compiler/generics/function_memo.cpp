// The memo of function specializations.
#include "generics/function_memo.h"

#include "host/context.h"

namespace vesk::compiler {

namespace {

thread_local std::unordered_map<Str, Str> gFunctionSymbols;
// Numbers of unit, declaring file and function; never reused on a thread.
thread_local std::unordered_map<Str, Str> gFunctionNumbers;

// What was numbered last: calls of one function come in runs.
struct NumberedFunction {
    Str unit, sourceFile, name, number;
};
thread_local NumberedFunction gLastNumbered;

constexpr char PART_END = '\x1f', LIST_END = '\x1e';

const Str& numberOf(const Str& unit, const GenericFunctionInfo& info) {
    NumberedFunction& last = gLastNumbered;
    if (last.unit == unit && last.name == info.name && last.sourceFile == info.sourceFile && !last.number.empty()) {
        return last.number;
    }
    const Str key = unit + PART_END + info.sourceFile + PART_END + info.name;
    const auto [found, isNew] = gFunctionNumbers.try_emplace(key);
    if (isNew) found->second = std::to_string(gFunctionNumbers.size());
    last = {unit, info.sourceFile, info.name, found->second};
    return last.number;
}

}  // namespace

FunctionMemoKey::FunctionMemoKey(char kind, const Str& unit, const GenericFunctionInfo& info) {
    text_.reserve(64);
    text_ += kind;
    text_ += numberOf(unit, info);
    text_ += LIST_END;
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
