// What the run-time library offers to generated code, by name. The table behind it is made from the compiled
// library, so it cannot miss or misname a function.
#pragma once

#include <string_view>

#include "runtime/object_layout.h"

namespace vesk::runtime {

// Address of a function or record, null when the library does not define it.
void* exportedSymbol(std::string_view name);

// Symbol of the record of a type that the library itself provides ("Int", "String[]", "vesk.Comparable<Int>"), null
// for all other types.
const char* recordSymbolOf(std::string_view structuredTypeText);

// Bytes that objects of a native class begin with, header included; 0 when the class is not native.
unsigned nativeInstanceSize(std::string_view qualifiedClassName);

}  // namespace vesk::runtime
