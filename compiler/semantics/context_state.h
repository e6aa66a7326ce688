// What a scope declares itself: the inside of Context.
// Most scopes are blocks with a few locals; the rare parts lie behind one further pointer.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "host/context.h"
#include "semantics/types.h"

namespace vesk::compiler {

struct FileDeclaration;

// One name declared in a scope. `declaration` is the DeclarationNode, ForNode or null (parameters, self); it does not own.
struct ScopeVariable {
    std::string name, type;  // the auto marker while the type is open
    const AbstractNode* declaration = nullptr;
    int line = 0, column = 0;  // of the declaration, 0 = visible everywhere in the scope
};

struct Context::State {
    std::vector<ScopeVariable> variables;
    struct Rare {
        std::string compileUnitFile, packageName, declaringFile, selfType;
        std::vector<std::string> imports;
        std::vector<std::string> typeParameters;
        bool hasPackage = false;  // a package name was set, perhaps the empty one
        // The session's record of how names are looked up from here (session serial and position), 0 = not asked yet.
        std::atomic<std::uint64_t> environment{0};
        bool decidesLookup() const {
            return hasPackage || !imports.empty() || !typeParameters.empty() || !selfType.empty() ||
                   !declaringFile.empty();
        }
    };
    std::unique_ptr<Rare> rare;
    std::unique_ptr<const std::string> returnType;  // of a function's scope, never empty
    // The root and file scopes: several threads may use them.
    bool isShared = false;
    Rare& rareParts() {
        if (!rare) rare = std::make_unique<Rare>();
        return *rare;
    }
};

}  // namespace vesk::compiler
