// Forming function symbols.
#include "generics/function_symbol.h"

#include "generics/typetext/symbol_mangling.h"
#include "generics/typetext/type_text.h"

namespace vesk::compiler {

Str genericFunctionCacheKey(const Str& name, const StrVec& typeArgs, const StrVec& paramTypes, const Str& returnType) {
    return name + "<gen:" + joinTypes(typeArgs) + "|args:" + joinTypes(paramTypes) + "|ret:" + returnType + ">";
}

Str genericFunctionSymbol(const Str& unit, const Str& name, const Str& cacheKey, const Str& declaringFile) {
    Str hashed = unit + "|" + cacheKey;
    if (!declaringFile.empty()) hashed += "|file:" + declaringFile;
    return "__vesk_f_" + name + "__T_" + fnv1a64Hex(hashed);
}

}  // namespace vesk::compiler
