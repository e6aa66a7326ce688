// The generic methods that a class offers: its own and those that it inherits.
//
// An overload hides those of farther classes that have its parameter types up to a renaming of type parameters. What is
// nearer is the host's knowledge; an interface also hides what the interfaces that it extends declare, wherever the class
// names them: in `class E implements I, K` with `K extends I`, K's methods hide I's.
//
// What remains stands farthest first: super classes, then interfaces, then the class's own, each in order of declaration.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

std::vector<GenericMethodInfo> genericMethodOverloads(const ContextPtr& context, const Str& owner, const Str& method);
// The names of all of them, each once.
StrVec genericMethodNames(const ContextPtr& context, const Str& owner);

}  // namespace vesk::compiler
