// Names across interactive chunks, and taking back what a mistaken chunk has left.
#include "semantics/interactive_session.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/source_manager.h"
#include "semantics/namesakes.h"
#include "semantics/session_tables.h"
#include "syntax/interactive_chunk.h"

namespace vesk::compiler {

// What one name has meant so far, oldest first.
struct InteractiveNames {
    struct Meaning {
        unsigned chunk = 0;
        std::string package;
        const ChunkVariable* variable = nullptr;
    };
    TextTable<std::vector<Meaning>> names;
    std::vector<std::string> imports;
    struct Chunk {
        ClassDeclaration owner;  // of the variables, as fields have one; nothing else knows it
        std::deque<ChunkVariable> variables;
    };
    TextTable<std::unique_ptr<Chunk>> chunks;  // those with variables, by package
    std::vector<FunctionInstance*> failedBodies;
};

namespace {

unsigned chunkNumber(std::string_view package) {
    unsigned number = 0;
    std::size_t begin = package.find_last_not_of("0123456789") + 1;
    std::from_chars(package.data() + begin, package.data() + package.size(), number);
    return number;
}

InteractiveNames& namesOf(CompileSession& session) {
    CompileSession::State& state = session.state();
    if (!state.interactive) {
        state.interactive = std::make_shared<InteractiveNames>();
        state.registry.keepsJournal = true;
    }
    return *state.interactive;
}

// What a name means for code of a chunk: the latest meaning of earlier chunks, else the first of later ones.
const InteractiveNames::Meaning* meaningOf(CompileSession& session, std::string_view name, const std::string& package) {
    const auto& interactive = session.state().interactive;
    if (!interactive) return nullptr;
    auto found = interactive->names.find(name);
    if (found == interactive->names.end()) return nullptr;
    const auto& meanings = found->second;
    unsigned number = chunkNumber(package);
    auto later = std::upper_bound(meanings.begin(), meanings.end(), number,
                                  [](unsigned wanted, const auto& meaning) { return wanted < meaning.chunk; });
    return later == meanings.begin() ? &*later : &*(later - 1);
}

const ChunkVariable* ownVariable(CompileSession& session, std::string_view name, std::string_view package) {
    auto found = session.state().interactive->chunks.find(package);
    if (found == session.state().interactive->chunks.end()) return nullptr;
    for (const ChunkVariable& variable : found->second->variables)
        if (variable.field.name == name) return &variable;
    return nullptr;
}

void addImport(std::vector<std::string>& imports, const std::string& package) {
    if (std::find(imports.begin(), imports.end(), package) == imports.end()) imports.push_back(package);
}

}  // namespace

void beginChunk(CompileSession& session, FileDeclaration& file) {
    std::lock_guard lock(session.modelMutex());
    file.package = interactiveChunkName(file.path);
    file.imports = namesOf(session).imports;
    file.context->setPackageName(file.package);
    for (const std::string& package : file.imports) file.context->addImportedPackageLocal(package);
}

InteractiveChunk declareChunk(CompileSession& session, const std::string& path, const std::string& text) {
    std::lock_guard lock(session.modelMutex());
    namesOf(session);
    InteractiveChunk chunk;
    chunk.mark = session.state().registry.journal.size();
    session.addVirtualSource(path, text);
    chunk.file = session.loadFile(path);
    if (!chunk.file || chunk.file->node->getChildren().empty() || session.hasErrors()) return chunk;
    auto node = std::static_pointer_cast<FunctionNode>(chunk.file->node->getChildren().back());
    FunctionInstance& made = session.state().instances.emplace_back();
    made.kind = InstanceKind::Chunk;
    made.symbol = "vesk_" + chunk.file->package;
    made.displayName = chunk.file->package;
    made.node = node;
    made.file = chunk.file;
    made.sourcePath = chunk.file->path;
    made.line = node->token() ? node->token()->getLine() : 1;
    chunk.statements = &made;
    return chunk;
}

std::vector<const ChunkVariable*> variablesOf(CompileSession& session, const FileDeclaration& file) {
    std::lock_guard lock(session.modelMutex());
    std::vector<const ChunkVariable*> all;
    auto found = namesOf(session).chunks.find(file.package);
    if (found == namesOf(session).chunks.end()) return all;
    for (const ChunkVariable& variable : found->second->variables) all.push_back(&variable);
    return all;
}

void publishChunk(CompileSession& session, const InteractiveChunk& chunk) {
    std::lock_guard lock(session.modelMutex());
    InteractiveNames& names = namesOf(session);
    const FileDeclaration& file = *chunk.file;
    const unsigned number = chunkNumber(file.package);
    auto publish = [&](const std::string& name) -> InteractiveNames::Meaning& {
        auto& meanings = names.names[name];
        if (meanings.empty() || meanings.back().chunk != number) meanings.push_back({number, file.package, nullptr});
        return meanings.back();
    };
    for (const ClassDeclaration* declaration : file.classes) publish(declaration->name);
    for (const FunctionDeclaration* function : file.functions) publish(function->name);
    for (const ChunkVariable* variable : variablesOf(session, file)) publish(variable->field.name).variable = variable;
    for (const std::string& package : file.imports) addImport(names.imports, package);
    session.state().epoch++;
}

void importForChunks(CompileSession& session, const std::string& package) {
    std::lock_guard lock(session.modelMutex());
    addImport(namesOf(session).imports, package);
}

void addSourceRoot(CompileSession& session, const std::string& folder) {
    std::lock_guard lock(session.modelMutex());
    CompileSession::State& state = session.state();
    const std::string root = SourceManager::normalizePath(folder);
    if (std::find(state.roots.begin(), state.roots.end(), root) != state.roots.end()) return;
    const auto end = state.standardLibrary.empty() ? state.roots.end() : state.roots.end() - 1;
    state.roots.insert(end, root);
    state.folders.clear();
    state.epoch++;
}

std::vector<std::string> unitsRegisteredSince(CompileSession& session, const InteractiveChunk& chunk) {
    SpecializationRegistry& registry = session.state().registry;
    std::lock_guard lock(registry.mutex);
    std::set<std::string> units;
    for (std::size_t i = chunk.mark; i < registry.journal.size(); i++)
        if (!registry.journal[i].unit.empty()) units.insert(registry.journal[i].unit);
    return {units.begin(), units.end()};
}

std::vector<std::string> takeRepeatedSymbols(CompileSession& session) {
    SpecializationRegistry& registry = session.state().registry;
    std::lock_guard lock(registry.mutex);
    return std::exchange(registry.repeated, {});
}

std::unordered_set<std::string> dropRegistrations(CompileSession& session, const InteractiveChunk& chunk) {
    std::lock_guard modelLock(session.modelMutex());
    for (FunctionInstance* function : std::exchange(namesOf(session).failedBodies, {})) {
        function->checked.reset();
        if (function->linkage != InstanceLinkage::OnDemand) continue;
        // The next chunk that asks for it is named in the notes of its mistakes.
        function->requester = nullptr;
        function->requestToken = nullptr;
        function->requestDepth = 0;
        function->isGrowing = false;
    }
    {
        GrowthTable& growth = session.state().growth;
        std::lock_guard lock(growth.mutex);
        growth.growing.clear();
        growth.hasEnded = false;
    }
    SpecializationRegistry& registry = session.state().registry;
    std::lock_guard lock(registry.mutex);
    std::unordered_set<std::string> dropped;
    while (registry.journal.size() > chunk.mark) {
        const SpecializationRegistry::Entry entry = std::move(registry.journal.back());
        registry.journal.pop_back();
        if (entry.unit.empty()) {
            registry.instances.erase(entry.symbol);
            registry.signatures.erase(entry.symbol);
            registry.symbolSources.erase(entry.symbol);
        } else {
            SpecializationRegistry::Unit& unit = registry.units[entry.unit];
            unit.registrations.pop_back();
            unit.functions.erase(entry.symbol);
            unit.methods.erase(entry.symbol);
        }
        dropped.insert(entry.symbol);
    }
    return dropped;
}

std::vector<CompilerException> takeDiagnostics(CompileSession& session) {
    std::vector<CompilerException> taken = session.diagnostics();
    CompileSession::State& state = session.state();
    {
        std::lock_guard lock(state.diagnosticsMutex);
        state.diagnostics.clear();
        state.reported.clear();
        state.shownPlaces.clear();
    }
    std::lock_guard lock(state.modelMutex);
    state.refusedNames.clear();  // told now: what lacks from now on is said where it is used
    return taken;
}

std::optional<UnreadableSource> takeUnreadable(CompileSession& session) {
    CompileSession::State& state = session.state();
    std::lock_guard lock(state.diagnosticsMutex);
    return std::exchange(state.unreadableSource, std::nullopt);
}

std::string withoutChunkPackages(CompileSession& session, const std::string& text) {
    constexpr std::string_view PREFIX = "repl_chunk_";
    auto isPart = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
    if (text.find(PREFIX) == std::string::npos) return withoutStandInPackage(session, text);
    std::lock_guard lock(session.modelMutex());
    const auto& names = namesOf(session).names;
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && isPart(text[end])) end++;
        if (end == at) {
            out += text[at++];
            continue;
        }
        const std::string package = text.substr(at, end - at);
        std::size_t nameEnd = end + 1;
        while (nameEnd < text.size() && isPart(text[nameEnd])) nameEnd++;
        bool isQualified = isInteractiveChunk(package) && end < text.size() && text[end] == '.' && nameEnd > end + 1;
        if (isQualified) {
            // A class that a later one hides keeps its package, so that the two can be told apart.
            auto known = names.find(text.substr(end + 1, nameEnd - end - 1));
            if (known == names.end() || known->second.back().chunk <= chunkNumber(package))
                end++;
            else
                out += package;
        } else {
            out += package;
        }
        at = end;
    }
    return out;
}

std::string publishedPackage(CompileSession& session, std::string_view name, const std::string& package) {
    const InteractiveNames::Meaning* meaning = meaningOf(session, name, package);
    return meaning ? meaning->package : "";
}

const ChunkVariable* findChunkVariable(CompileSession& session, std::string_view name, const std::string& package) {
    std::lock_guard lock(session.modelMutex());
    if (!session.state().interactive) return nullptr;
    if (const ChunkVariable* own = ownVariable(session, name, package)) return own;
    // A function or a class of the chunk itself hides variables of earlier ones.
    if (auto found = session.state().packages.find(package); found != session.state().packages.end()) {
        const auto functions = found->second->functions.find(name);
        if (functions != found->second->functions.end() && !functions->second.empty()) return nullptr;
        if (found->second->classes.find(name) != found->second->classes.end()) return nullptr;
    }
    const InteractiveNames::Meaning* meaning = meaningOf(session, name, package);
    return meaning ? meaning->variable : nullptr;
}

std::string chunkOf(CompileSession& session, const ContextPtr& scope) {
    if (!session.state().interactive) return "";
    std::lock_guard lock(session.modelMutex());
    for (const LookupEnvironment* at = &lookupEnvironment(session, scope.get()); at; at = at->parent)
        if (!at->declaringFile.empty())
            return isInteractiveChunk(at->declaringFile) ? std::string(interactiveChunkName(at->declaringFile)) : "";
    return "";
}

const ChunkVariable* declareChunkVariable(CompileSession& session, FileDeclaration& file, const std::string& name,
                                          const Type* type, const TokenPtr& token) {
    std::lock_guard lock(session.modelMutex());
    if (ownVariable(session, name, file.package)) return nullptr;
    auto& chunk = namesOf(session).chunks[file.package];
    if (!chunk) {
        chunk = std::make_unique<InteractiveNames::Chunk>();
        chunk->owner.name = chunk->owner.qualifiedName = file.package;
        chunk->owner.package = file.package;
        chunk->owner.file = &file;
    }
    ChunkVariable& made = chunk->variables.emplace_back();
    made.field.name = name;
    made.field.owner = &chunk->owner;
    made.field.node = std::make_shared<FieldNode>(name, type->structured, nullptr, true, MemberVisibility::Public,
                                                  file.context, token);
    made.field.isStatic = true;
    made.field.symbol = "vesk_s_" + file.package + "." + name;
    made.type = type;
    made.line = token ? token->getLine() : 0;
    return &made;
}

void noteFailedBody(CompileSession& session, FunctionInstance& function) {
    std::lock_guard lock(session.modelMutex());
    if (session.state().interactive) session.state().interactive->failedBodies.push_back(&function);
}

}  // namespace vesk::compiler
