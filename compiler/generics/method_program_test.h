// A small program for tests of generic methods: files in a given folder, a cache below it, and the calls in it asked of
// the driver as the checker would ask.
#pragma once

#include <optional>

#include "generics/generic_specializer.h"
#include "generics/program_test.h"
#include "generics/session_state.h"
#include "generics/source/source_text_cache.h"
#include "generics/typetext/type_text.h"

namespace vesk::compiler {

// Several compilations may follow each other on one folder, like compiler processes that share a cache; thread state is
// forgotten at both ends.
class MethodProgram : public TestProgram {
public:
    explicit MethodProgram(const Str& folder, CacheMode cache = CacheMode::On) : TestProgram(folder, cache) {
        forget();
    }
    ~MethodProgram() { forget(); }

    ContextPtr root() { return session().rootContext(); }

    // The call that is a function's first statement that is one.
    std::shared_ptr<CallableExpressionNode> call(const Str& file, const Str& functionName) const {
        for (const NodePtr& statement : function(file, functionName)->getBody()) {
            if (auto node = std::dynamic_pointer_cast<CallableExpressionNode>(statement)) return node;
        }
        throw std::runtime_error("no call in " + functionName);
    }
    // Asks for the specialization that this call needs. A receiver that is a class makes it a static call.
    GenericMethodSpec specialize(const Str& file, const Str& functionName) const {
        const auto node = call(file, functionName);
        const ParsedGenericType callee = parseGenericTypeText(node->name());
        const ContextPtr scope = node->context();
        Str owner;
        bool isStatic = false;
        if (const auto* value = dynamic_cast<ValueExpressionNode*>(node->receiver().get());
            value && value->value() != "self" && std::isupper(static_cast<unsigned char>(value->value()[0]))) {
            owner = value->value();
            isStatic = true;
        } else {
            owner = inferExpressionType(node->receiver(), scope);
        }
        return ensureGenericMethodSpecialization(scope, owner, callee.base, node->getArguments(), node->token(),
                                                 isStatic, callee.args);
    }

    static void forget() {
        resetGenericSpecializerSession();
        gSourceTextCache.clear();
    }
};

inline StrVec notesOf(const CompilerException& error) {
    StrVec texts;
    for (const DiagnosticNote& note : error.getNotes()) texts.push_back(note.message);
    return texts;
}

// The bundle files below a folder, sorted.
inline StrVec bundleFilesBelow(const Str& folder) {
    StrVec files;
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (isGenericMethodBundlePath(entry->path().string()) && entry->path().extension() == ".vk")
            files.push_back(entry->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace vesk::compiler
