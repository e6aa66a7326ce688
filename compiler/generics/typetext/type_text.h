// Types as text: taking a type text apart, putting it together, and replacing type parameters in it.
// Everything here is text in, text out; only the last three operations ask the class loader. No operation throws,
// and each takes time linear in its input. Where structure is followed, a text nested deeper than MAX_TYPE_TEXT_DEPTH is
// left as it is.
#pragma once

#include <string_view>

#include "generics/typetext/type_parameter_index.h"
#include "host/model_records.h"

namespace vesk::compiler {

// The parts of one type text: "vesk.collections.Map<String, List<Int>>[]" has the base "vesk.collections.Map", the
// arguments "String" and "List<Int>", and the array suffix "[]".
struct ParsedGenericType {
    Str base;
    StrVec args;
    Str arraySuffix;
    bool operator==(const ParsedGenericType&) const = default;
};

inline constexpr int MAX_TYPE_TEXT_DEPTH = 256;
// Marks a flattened name of a concrete generic class; only the host can split one.
inline constexpr std::string_view FLATTENED_TYPE_MARKER = "__T_";

// Without leading and trailing space, tab, line feed and carriage return. The form for type texts.
Str trimCopy(Str text);
// Without leading and trailing white space of every kind. The form for source lines.
Str quickTrimCopy(Str text);

ParsedGenericType parseGenericTypeText(const Str& text);
// True when the text holds a generic clause that closes.
bool hasGenericClauseText(const Str& text);
// What follows the last "."; clauses are not looked at.
Str shortTypeNameLocal(const Str& name);
// The short name of the base, without the generic clause.
Str shortTypeNameGeneric(const Str& text);
// Joined by "," alone: the form in keys and symbols.
Str joinTypes(const StrVec& types);

// Replaces type parameters that stand as the whole text, as type arguments or in a function type; clauses come back
// with ", " between arguments. Leaves bare arrays ("T[]") and bases ("T<Int>") as they are.
Str substituteGenericTypeParamsLocal(const Str& text, const StrVec& params, const StrVec& args);
// The same for a text that goes on behind its first clause: "Box<T>.Inner", "List<T>?".
Str substituteGenericIdentifierType(const Str& text, const StrVec& params, const StrVec& args);
// Replaces type parameters wherever a type may stand: also as array elements, before "?", and inside parentheses.
// This is the substitution for parameter, return, declared and cast types, type expressions and callee names.
Str substituteTypeThroughout(const Str& text, const StrVec& params, const StrVec& args);
// The same for callers with many texts, who make the index once.
Str substituteIndexedType(const Str& text, const TypeParameterIndex& params, const StrVec& args);
// The same where most texts do not change: false, and `out` is not touched, when the result would be the text itself.
bool substituteTypeThroughout(std::string_view text, const TypeParameterIndex& params, const StrVec& args, Str& out);
// True when one of the names occurs in the text as a word of its own.
bool mentionsTypeName(std::string_view text, const TypeParameterIndex& names);
// Which of the names occur so in one of the texts, by position.
std::vector<bool> mentionedTypeNames(const StrVec& texts, const TypeParameterIndex& names);

// The form in which bindings are compared: the canonical base name of the resolved type.
Str canonicalTypeForBinding(const Str& type, const ContextPtr& context, const TokenPtr& token);
// A type argument as written at a call, resolved; a raw generic class is completed with its defaults.
Str normalizeExplicitGenericSpecializationArg(const Str& arg, const ContextPtr& context, const TokenPtr& token);
// True when `parsed` describes a generic or array type after the call; a flattened text is split by the host.
bool recoverStructuredGenericType(const Str& text, const ContextPtr& context, const TokenPtr& token,
                                  ParsedGenericType& parsed);
// The resolved form of a type text, the text itself where the host throws.
Str resolveTypeNameOrKeep(const Str& type, const ContextPtr& context, const TokenPtr& token);
// The form that people read: every flattened name that the host can split is written with its clause.
Str structuredTypeText(const Str& text);
// The same as far as the host keeps it (a long clause is "<...>"), cut off with "..." where it is longer than `limit`.
Str shownTypeText(const Str& text, std::size_t limit);

}  // namespace vesk::compiler
