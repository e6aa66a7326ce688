// What every specialization takes over from its declaration: names, defaults, passing modes and the variadic parameters. One
// place for it, whichever record receives it: a function's specification, a method's, a block of a bundle.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

template <class Record, class Declaration>
void takeOverDeclaration(Record& record, const Declaration& declaration) {
    record.paramNames = declaration.paramNames;
    record.paramHasDefault = declaration.paramHasDefault;
    record.passingModes = declaration.passingModes;
    record.defaultValueTokens = declaration.defaultValueTokens;
    record.variadicIndex = declaration.isVariadic ? declaration.variadicIndex : -1;
    record.namedVariadicIndex = declaration.isNamedVariadic ? declaration.namedVariadicIndex : -1;
    if constexpr (requires { record.isVariadic; }) {
        record.isVariadic = declaration.isVariadic;
        record.isNamedVariadic = declaration.isNamedVariadic;
    }
    if constexpr (requires { record.isNative; }) {
        record.isStatic = declaration.isStatic;
        record.isNative = declaration.isNative;
    }
}

}  // namespace vesk::compiler
