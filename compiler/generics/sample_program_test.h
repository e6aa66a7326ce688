// A small program for tests: its files lie in a temporary folder of its own, and nothing is kept on disk.
#pragma once

#include "generics/generic_specializer.h"
#include "generics/program_test.h"
#include "generics/typetext/type_text.h"

namespace vesk::compiler {

class SampleProgram : private TemporaryFolder, public TestProgram {
public:
    SampleProgram() : TestProgram(path(), CacheMode::Memory) { resetGenericSpecializerSession(); }
    ~SampleProgram() { resetGenericSpecializerSession(); }

    const Str& root() const { return path(); }

    // A statement of a function's body that is a call.
    std::shared_ptr<CallableExpressionNode> call(const Str& file, const Str& functionName,
                                                 std::size_t statement) const {
        auto node =
            std::dynamic_pointer_cast<CallableExpressionNode>(function(file, functionName)->getBody().at(statement));
        if (!node) throw std::runtime_error("not a call");
        return node;
    }
    // Asks for the specialization that such a call needs.
    Str specialize(const Str& file, const Str& functionName, std::size_t statement) const {
        const auto node = call(file, functionName, statement);
        const ParsedGenericType callee = parseGenericTypeText(node->name());
        return ensureGenericFunctionSpecialization(node->context(), callee.base, node->getArguments(), node->token(),
                                                   callee.args);
    }
};

}  // namespace vesk::compiler
