// Interactive chunks: what is entered at once in a session, each a unit of its own.
// A chunk is a package named like it (syntax/interactive_chunk.h). While it is compiled only the chunk itself sees what it
// declares; when it has run, publishChunk() makes its names visible to later chunks, where they hide earlier ones. A chunk
// that failed is simply never published. Code of a chunk, a generic body included, goes on to see names as they were
// when it was entered; a name that nothing declared then is looked for among later ones.
// Variables of a chunk are static fields without a class: every function of later chunks may use them.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "semantics/compile_session.h"

namespace vesk::compiler {

struct InteractiveChunk {
    FileDeclaration* file = nullptr;
    // The statements; () -> type of the last one when it is an expression, which is then printed with its type.
    FunctionInstance* statements = nullptr;
    std::size_t mark = 0;  // where its registrations begin
};

struct ChunkVariable {
    FieldDeclaration field;
    const Type* type = nullptr;
    int line = 0;
};

// Parses and declares a chunk. Its mistakes go to the session's diagnostics.
InteractiveChunk declareChunk(CompileSession& session, const std::string& path, const std::string& text);
// The variables that the chunk's statements have declared so far.
std::vector<const ChunkVariable*> variablesOf(CompileSession& session, const FileDeclaration& file);
// Makes the chunk's names and imports known to later chunks.
void publishChunk(CompileSession& session, const InteractiveChunk& chunk);
// Makes a package known to later chunks.
void importForChunks(CompileSession& session, const std::string& package);
// A further source root, looked in before the standard library.
void addSourceRoot(CompileSession& session, const std::string& folder);
// The units that got specializations since the chunk began, each once, sorted.
std::vector<std::string> unitsRegisteredSince(CompileSession& session, const InteractiveChunk& chunk);
// The symbols that were registered again since the last question.
std::vector<std::string> takeRepeatedSymbols(CompileSession& session);
// Takes back what was registered since the chunk began; answers the symbols.
std::unordered_set<std::string> dropRegistrations(CompileSession& session, const InteractiveChunk& chunk);
// The diagnostics so far, which the session forgets.
std::vector<CompilerException> takeDiagnostics(CompileSession& session);
// The source that could not be read, if there is one, which the session forgets: later chunks try again.
std::optional<UnreadableSource> takeUnreadable(CompileSession& session);
// A text in which types of chunks stand without their package where the short name means them.
std::string withoutChunkPackages(CompileSession& session, const std::string& text);

// --- for the folder's own use -------------------------------------------------------------------------------------
// Gives a chunk's file its package and the imports of earlier chunks.
void beginChunk(CompileSession& session, FileDeclaration& file);
// The package of the chunk that a name comes from for code of the chunk `package`, "" when there is none.
std::string publishedPackage(CompileSession& session, std::string_view name, const std::string& package);
// The variable that a name means in code of the chunk `package`, null when it means none.
const ChunkVariable* findChunkVariable(CompileSession& session, std::string_view name, const std::string& package);
// The chunk whose code a scope belongs to, "" for other files.
std::string chunkOf(CompileSession& session, const ContextPtr& scope);
// Null when the chunk has one of that name.
const ChunkVariable* declareChunkVariable(CompileSession& session, FileDeclaration& file, const std::string& name,
                                          const Type* type, const TokenPtr& token);
// A body whose mistakes have been told; they are told again when a later chunk uses it.
void noteFailedBody(CompileSession& session, FunctionInstance& function);

}  // namespace vesk::compiler
