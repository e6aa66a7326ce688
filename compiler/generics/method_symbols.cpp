// Forming the names.
#include "generics/method_symbols.h"

#include "generics/bundles/bundle_paths.h"
#include "generics/candidate_cache.h"
#include "generics/session_state.h"
#include "generics/typetext/symbol_mangling.h"
#include "generics/typetext/type_text.h"
#include "host/il_gen_context.h"

namespace vesk::compiler {

namespace {

Str unitOfGeneratedModule() {
    try {
        return ILGenContext::get().unitName;
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace

Str genericMethodBundleSymbol(const ContextPtr& context, const Str& owner, const Str& method, std::size_t overloadIndex,
                              const StrVec& typeArgs, const TokenPtr& token, const StrVec& callers) {
    const Str canonical = canonicalOwnerClassName(context, token, owner);
    StrVec typeList = typeArgs;
    typeList.insert(typeList.end(), callers.begin(), callers.end());
    const Str caller = genericMethodBundleCaller(canonical, typeList, context, token, nullptr);
    return genericMethodSymbolOfCaller(context, canonical, method, overloadIndex, typeArgs, caller);
}

Str genericMethodSymbolOfCaller(const ContextPtr& context, const Str& canonicalOwner, const Str& method,
                                std::size_t overloadIndex, const StrVec& typeArgs, const Str& caller) {
    Str key = canonicalOwner + "." + method + "|overload:" + std::to_string(overloadIndex) +
              "<gen:" + joinTypes(typeArgs) + ">";
    if (!caller.empty()) key += "|caller:" + caller;
    return "__vesk_m_" + packagePrefix(context, canonicalOwner) + shortTypeNameLocal(canonicalOwner) + "_" +
           mangleMethodName(method) + "__T_" + fnv1a64Hex(key);
}

Str genericNativeMethodLocalSymbol(const ContextPtr& context, const Str& owner, const Str& method,
                                   std::size_t overloadIndex, const StrVec& typeArgs, const TokenPtr& token) {
    const Str base = genericMethodBundleSymbol(context, owner, method, overloadIndex, typeArgs, token);
    Str unit = unitOfGeneratedModule();
    if (unit.empty()) unit = specializationUnitTag(context, token);
    return unit.empty() ? base : base + "__U_" + fnv1a64Hex(unit);
}

}  // namespace vesk::compiler
