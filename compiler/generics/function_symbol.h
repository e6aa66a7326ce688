// The symbol of a specialized function: a function of the unit, the name and all types alone, so that every process
// arrives at the same one.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// "pair<gen:Int,String|args:Int,String|ret:Pair<Int, String>>"
Str genericFunctionCacheKey(const Str& name, const StrVec& typeArgs, const StrVec& paramTypes, const Str& returnType);
// "__vesk_f_pair__T_" and the hash of unit and cache key. `declaringFile` is "" but where two files declare a function
// that would get the same symbol.
Str genericFunctionSymbol(const Str& unit, const Str& name, const Str& cacheKey, const Str& declaringFile = {});

}  // namespace vesk::compiler
