// Flattened names of instantiations: "vesk.collections.Map<String, Int>" is "vesk.collections.Map__T_String_cInt".
// The part behind the marker is the argument list written with letters, digits and "_" alone: every other character
// is "_" and one lower-case letter, "_" itself included, so two underscores never stand beside each other, the
// marker cannot occur a second time, and the writing can be read back. Grammar of the argument part:
//   arguments = type { "_c" type } | "_h" 32 hexadecimal digits
//   type      = name [ "_l" arguments "_g" ] { "_a" | "_n" } | "_p" [ type { "_c" type } ] "_q_r" type | "_p" type "_q" ...
//   name      = letters, digits, "_u" for an underscore, "_d" for a dot
// A name longer than MAX_FLATTENED_NAME has its argument part replaced by a hash; inner instantiations shrink first.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "semantics/types.h"

namespace vesk::compiler {

inline constexpr std::string_view FLATTENED_MARKER = "__T_";
inline constexpr std::size_t MAX_FLATTENED_NAME = 180;

// The argument part's spelling of one concrete type.
std::string encodeTypeForName(const Type& type);
// The flattened name of a class with concrete arguments.
std::string flattenedName(std::string_view qualifiedName, const std::vector<const Type*>& arguments);
// The structured text that a flattened name was made from, without blanks. Inner hashed instantiations stay flattened.
// Nothing for texts that are not such a name, and for names whose own arguments are hashed.
std::optional<std::string> structuredTextOfFlattened(std::string_view text);

}  // namespace vesk::compiler
