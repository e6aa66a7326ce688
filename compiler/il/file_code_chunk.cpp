// IL text of one file's unit.
#include <ostream>

#include "host/ast_nodes.h"
#include "host/source_manager.h"
#include "il/unit_compiler.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

void FileNode::generateILCodeChunk(std::ostream& out, const Str& moduleName, std::set<Str>& defined,
                                   std::set<Str>& declared, std::set<Str>& neededUnits, std::set<Str>& neededBundles,
                                   bool withDebugLines, const Str& unitName, bool linkOnce) {
    CompileSession& session = CompileSession::current();
    UnitRequest request{.name = moduleName.empty() ? path() : moduleName,
                        .registrationUnit = unitName.empty() ? path() : unitName};
    // A unit named explicitly consists of what was registered for it; the file itself may not even be parsed.
    if (unitName.empty())
        request.file = session.loadedFile(path());
    else
        request.furtherUnit = path();
    UnitCompiler compiler(session, request);
    compiler.compile();
    std::unique_ptr<UnitModule> module = compiler.finish();
    if (!module) return;
    for (const std::string& symbol : definedSymbols(*module)) defined.insert(symbol);
    for (const std::string& symbol : declaredSymbols(*module)) declared.insert(symbol);
    for (const std::string& file : compiler.neededFiles()) {
        const FileDeclaration* needed = session.loadedFile(file);
        (needed && needed->isGenerated ? neededBundles : neededUnits).insert(file);
    }
    if (!withDebugLines) dropDebugLines(*module);
    if (linkOnce) makeLinkOnce(*module);
    printIL(*module, out);
}

}  // namespace vesk::compiler
