// What is known of a function's body while and after its return type is inferred.
#pragma once

#include <memory>

#include "semantics/typed_tree.h"

namespace vesk::compiler {

// A function's name as its source has it: the node of a specialization is named by its symbol.
Str writtenName(const FunctionInstance& function);

struct CheckedBody {
    enum class State : unsigned char { UnderWay, Done, Failed } state = State::UnderWay;
    // Checked already, for the first bodyOf(); null when taken, or when it has to be checked once per unit.
    std::unique_ptr<TypedBody> body;
};

}  // namespace vesk::compiler
