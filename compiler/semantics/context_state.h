// What a scope declares itself: the inside of Context.
// Most scopes are blocks with a few locals; the rare parts lie behind one further pointer.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
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
    // Of scopes with many variables: the position of the last one of each name, for the first `indexed` of them.
    struct VariableIndex {
        std::unordered_map<std::string, std::size_t> positions;
        std::size_t indexed = 0;
    };
    mutable std::unique_ptr<VariableIndex> index;
    // The position of the last variable of that name, the number of variables when there is none.
    std::size_t lastVariable(std::string_view name) const;
    struct Rare {
        std::string compileUnitFile, packageName, declaringFile, selfType;
        std::vector<std::string> imports;
        std::vector<std::string> typeParameters;
        std::unordered_set<std::string> typeParameterSet;  // the same
        bool hasPackage = false;                           // a package name was set, perhaps the empty one
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
