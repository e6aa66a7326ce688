// The driver's memories.
#include "generics/method_memo.h"

#include "generics/candidate_cache.h"
#include "generics/method_materialization.h"
#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/context.h"

namespace vesk::compiler {

namespace {

struct RememberedCall {
    GenericMethodSpec spec;
    Str sourcePath;  // the bundle, "" where the unit itself holds the specialization
};

thread_local std::unordered_map<Str, std::unordered_map<Str, RememberedCall>> gRememberedCalls;
thread_local std::unordered_map<Str, Str> gInferredReturnTypes;

constexpr char PART_END = '\x1f', LIST_END = '\x1e';

// True for texts that mean the same type in every scope: qualified and flattened names.
bool isScopeFree(const Str& type) {
    return type.find(FLATTENED_TYPE_MARKER) != Str::npos ||
           (type.find('.') != Str::npos && type.find_first_of("<(") == Str::npos);
}

void addPart(Str& key, const Str& part) {
    key += part;
    key += PART_END;
}

void addList(Str& key, const StrVec& parts) {
    for (const Str& part : parts) addPart(key, part);
    key += LIST_END;
}

Str shapeOf(const StrVec& argKeys, const StrVec& explicitTypeArgs) {
    Str shape;
    addList(shape, argKeys);
    addList(shape, explicitTypeArgs);
    return shape;
}

}  // namespace

MethodCallMemo::MethodCallMemo(const ContextPtr& context, const Str& owner, const Str& method, const TokenPtr& token,
                               bool isStatic)
    : context_(context), token_(token) {
    if (!context) return;
    unit_ = receivingUnit(context, token);
    if (unit_.empty()) return;
    usable_ = true;
    addPart(method_, isScopeFree(owner) ? owner : resolveTypeNameOrKeep(owner, context, token));
    addPart(method_, method);
    addPart(method_, isStatic ? "1" : "0");
    addPart(method_, unit_);
    addPart(method_, context->getCompileUnitFile());
    known_ = gRememberedCalls.contains(method_);
}

const GenericMethodSpec* MethodCallMemo::find(const StrVec& argKeys, const StrVec& explicitTypeArgs) {
    const auto calls = gRememberedCalls.find(method_);
    if (calls == gRememberedCalls.end()) return nullptr;
    const auto found = calls->second.find(shapeOf(argKeys, explicitTypeArgs));
    if (found == calls->second.end()) return nullptr;
    const RememberedCall& remembered = found->second;
    if (remembered.sourcePath.empty()) {
        return context_->hasSpecializedMethodForUnit(unit_, remembered.spec.symbol) ? &remembered.spec : nullptr;
    }
    if (ClassLoader::sourceFileForSymbol(remembered.spec.symbol) != remembered.sourcePath) return nullptr;
    // Code of this unit's file may stand in several modules; each of them depends on the bundle.
    ClassLoader::trackSourceDependency(remembered.sourcePath);
    return &remembered.spec;
}

void MethodCallMemo::remember(const StrVec& argKeys, const StrVec& explicitTypeArgs, const GenericMethodSpec& spec,
                              const Str& sourcePath) {
    if (!usable_) return;
    gRememberedCalls[method_].insert_or_assign(shapeOf(argKeys, explicitTypeArgs), RememberedCall{spec, sourcePath});
}

Str inferredReturnTypeKey(const GenericMethodInfo& info, const Str& owner, const StrVec& typeArgs) {
    Str key;
    addPart(key, info.sourceFile);
    addPart(key, owner);
    addPart(key, info.name);
    addPart(key, std::to_string(info.overloadIndex));
    addPart(key, std::to_string(info.declarationLine));
    addList(key, typeArgs);
    return key;
}

const Str* rememberedReturnType(const Str& key) {
    const auto found = gInferredReturnTypes.find(key);
    return found == gInferredReturnTypes.end() ? nullptr : &found->second;
}

void rememberReturnType(const Str& key, const Str& type) { gInferredReturnTypes.insert_or_assign(key, type); }

void resetMethodMemo() {
    gRememberedCalls.clear();
    gInferredReturnTypes.clear();
}

}  // namespace vesk::compiler
