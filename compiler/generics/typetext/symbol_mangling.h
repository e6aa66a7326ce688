// Link-level names: operators as words, package prefixes, native targets, and the 64-bit hash that keeps keys short.
// Every name is a pure function of its inputs and the host's answers: separate compiler processes arrive at the
// same one.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/model_records.h"

namespace vesk::compiler {

// The word for an operator ("[]=" is "index_eq"); unknown characters become "_".
Str mangleOperatorSymbol(const Str& op);
// A method's name as part of a symbol: "operator+" is "operator_plus", other names are themselves.
Str mangleMethodName(const Str& name);

// FNV-1a with this system's own start value, which names in existing caches depend on.
std::uint64_t fnv1a64(const Str& text);
// The same in lower-case hexadecimal without leading zeros.
Str fnv1a64Hex(const Str& text);

// "vesk.collections" gives "vesk_collections_"; "" without a scope or a package.
Str packagePrefix(const ContextPtr& context, const Str& className);
// Link name of a native method; overloads from the second on carry their number.
Str nativeMethodTargetSymbol(const ContextPtr& context, const Str& owner, const Str& method, std::size_t ordinal,
                             const TokenPtr& token);

}  // namespace vesk::compiler
