// Concrete functions that the specializer registers, program-wide by (unit, symbol).
// A signature may be known before its node (a function that calls itself) and without one (a specialization that lies
// in a bundle): then a record without a node stands for the symbol until the node arrives. Records never change, since
// calls on other threads may hold them.
#include "generics/generic_specializer.h"
#include "host/class_loader.h"
#include "host/diagnostics.h"
#include "host/source_manager.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

bool isGeneratedUnit(const Str& unit) { return isGenericMethodBundlePath(unit) && isKeptGenericMethodBundle(unit); }
// The name under which everything that a bundle lists is registered.
bool isBundleUnitName(const Str& unit) { return unit.starts_with("__vesk_generic_method_bundle_"); }

CompileSession::State& currentState() { return CompileSession::current().state(); }

// Remembers who asked for a specialization. Throws when the chain has become too long.
void recordRequester(FunctionInstance& made) {
    if (takeRequestUnderWay(made)) return;
    made.requester = ScopedRequester::current();
    made.requestToken = ScopedRequester::currentToken();
    made.requestDepth = made.requester ? made.requester->requestDepth + 1 : 0;
    if (made.requestDepth <= MAX_REQUEST_DEPTH) return;
    CompilerException error = compileError(made.requestToken, "Generic specialization is nested too deeply");
    if (made.requestToken) error.addNote(specializationRequestNote(made.shownName(), made.requestToken));
    for (DiagnosticNote& note : requestChain(made.requester)) error.addNote(std::move(note));
    throw error;
}

// The types of a list of texts, as seen from a scope.
std::vector<const Type*> typesOf(const StrVec& texts, const ContextPtr& scope) {
    std::vector<const Type*> types;
    types.reserve(texts.size());
    for (const Str& text : texts) types.push_back(resolveType(text, scope));
    return types;
}

// The position behind which the record of a symbol is made; keeps one that is there already.
FunctionInstance* knownInstance(SpecializationRegistry& registry, const Str& symbol) {
    std::lock_guard lock(registry.mutex);
    auto found = registry.instances.find(symbol);
    return found == registry.instances.end() ? nullptr : found->second;
}

FunctionInstance* keepInstance(SpecializationRegistry& registry, const Str& symbol, FunctionInstance made) {
    std::lock_guard lock(registry.mutex);
    auto [place, isNew] = registry.instances.try_emplace(symbol, nullptr);
    if (!isNew) return place->second;
    registry.note("", symbol);
    return place->second = &registry.storage.emplace_back(std::move(made));
}

void fillPlace(FunctionInstance& made, const CallableDeclarationNode& node) {
    if (const TokenPtr& token = node.token()) {
        made.line = token->getLine();
        made.sourcePath = token->getFilename();
    }
    CompileSession& session = CompileSession::current();
    if (!made.sourcePath.empty()) made.file = session.loadedFile(made.sourcePath);
}

// What a node says about its function.
void fillFromNode(FunctionInstance& made, const std::shared_ptr<CallableDeclarationNode>& node) {
    made.node = node;
    made.parameterNames.clear();
    made.parameterTypes.clear();
    made.parameterNames.reserve(node->getParams().size());
    made.parameterTypes.reserve(node->getParams().size());
    for (std::size_t i = 0; i < node->getParams().size(); i++) {
        const FunctionParam& parameter = node->getParams()[i];
        made.parameterNames.push_back(parameter.name);
        made.parameterTypes.push_back(resolveType(declaredParameterType(parameter), node->context()));
        if (parameter.isVariadic) {
            made.isVariadic = true;
            made.variadicIndex = static_cast<int>(i);
        }
        if (parameter.isNamedVariadic) {
            made.isNamedVariadic = true;
            made.namedVariadicIndex = static_cast<int>(i);
        }
    }
    if (!node->returnType().empty())
        made.returnType = resolveType(node->returnType(), node->context());
    else if (!node->hasBody())
        made.returnType = CompileSession::current().types().builtin(TypeKind::Void);
    fillPlace(made, *node);
}

// A bundle is compiled on its own: its methods have been requested by those who asked for the bundle.
void inheritRequester(FunctionInstance& made) {
    if (made.requester || made.requestToken) return;
    const FunctionInstance* known = knownInstance(currentState().registry, made.symbol);
    if (!known) return;
    made.requester = known->requester;
    made.requestToken = known->requestToken;
    made.requestDepth = known->requestDepth;
}

// Keeps the record of a node; from now on it stands for its symbol, unless one with a node does so already.
FunctionInstance* attachNode(const Str& symbol, FunctionInstance made) {
    SpecializationRegistry& registry = currentState().registry;
    std::lock_guard lock(registry.mutex);
    FunctionInstance*& known = registry.instances[symbol];
    FunctionInstance* kept = &registry.storage.emplace_back(std::move(made));
    if (!known || !known->node) {
        registry.note("", symbol);
        known = kept;
    }
    return kept;
}

// Of a signature whose node has come, the types alone are still asked for.
void dropProvisionalParts(const Str& symbol) {
    SpecializationRegistry& registry = currentState().registry;
    std::lock_guard lock(registry.mutex);
    auto found = registry.signatures.find(symbol);
    if (found == registry.signatures.end()) return;
    StrVec().swap(found->second.paramNames);
    Str().swap(found->second.sourceFile);
    found->second.scope.reset();
}

void addRegistration(const Str& unit, const Str& symbol, const Str& owner, const Str& sourceOrTarget,
                     std::shared_ptr<CallableDeclarationNode> node, FunctionInstance* instance, bool isMethod) {
    SpecializationRegistry& registry = currentState().registry;
    std::lock_guard lock(registry.mutex);
    SpecializationRegistry::Unit& table = registry.units[unit];
    auto& symbols = isMethod ? table.methods : table.functions;
    const auto [place, isNew] = symbols.try_emplace(symbol, table.registrations.size());
    if (!isNew) return;
    registry.note(unit, symbol);
    table.registrations.push_back({&place->first, owner, registry.keptPath(sourceOrTarget), std::move(node), instance});
}

bool hasRegistration(const Str& unit, const Str& symbol, bool isMethod) {
    SpecializationRegistry& registry = currentState().registry;
    std::lock_guard lock(registry.mutex);
    auto found = registry.units.find(unit);
    if (found == registry.units.end()) return false;
    return (isMethod ? found->second.methods : found->second.functions).count(symbol) > 0;
}

}  // namespace

std::vector<DiagnosticNote> requestChain(const FunctionInstance* function) {
    std::vector<DiagnosticNote> notes;
    for (; function && function->requestToken && notes.size() <= static_cast<std::size_t>(MAX_REQUEST_DEPTH) + 1;
         function = function->requester)
        notes.push_back(specializationRequestNote(function->shownName(), function->requestToken));
    return notes;
}

void Context::addFunction(const Str& symbol, const StrVec& paramTypes, const Str& returnType, const StrVec& paramNames,
                          const std::vector<TokenVec>&, bool variadic, int variadicIndex, const std::vector<bool>&,
                          bool namedVariadic, int namedVariadicIndex, const std::vector<ParameterPassingMode>&,
                          const ContextPtr& declaringScope, const Str& sourceFile) {
    SpecializationRegistry& registry = currentState().registry;
    {
        std::lock_guard lock(registry.mutex);
        if (registry.signatures.count(symbol)) {
            if (registry.keepsJournal) registry.repeated.push_back(symbol);
            return;
        }
    }
    SpecializationRegistry::Signature made;
    made.paramTypes = paramTypes;
    made.returnType = returnType;
    made.paramNames = paramNames;
    made.scope = declaringScope ? declaringScope : std::const_pointer_cast<Context>(shared_from_this());
    made.sourceFile = SourceManager::normalizePath(sourceFile);
    made.isVariadic = variadic;
    made.variadicIndex = variadicIndex;
    made.isNamedVariadic = namedVariadic;
    made.namedVariadicIndex = namedVariadicIndex;
    const RequestPlace request = requestUnderWay();
    made.requester = request.requester;
    made.requestToken = request.token;
    made.requestDepth = request.depth;
    std::lock_guard lock(registry.mutex);
    if (!made.sourceFile.empty()) registry.symbolSources.try_emplace(symbol, registry.keptPath(made.sourceFile));
    registry.note("", symbol);
    registry.signatures.try_emplace(symbol, std::move(made));
}

StrVec Context::getFunctionParams(const Str& symbol) const {
    SpecializationRegistry& registry = currentState().registry;
    std::lock_guard lock(registry.mutex);
    auto found = registry.signatures.find(symbol);
    return found == registry.signatures.end() ? StrVec{} : found->second.paramTypes;
}

Str Context::getFunctionReturn(const Str& symbol) const {
    SpecializationRegistry& registry = currentState().registry;
    std::lock_guard lock(registry.mutex);
    auto found = registry.signatures.find(symbol);
    return found == registry.signatures.end() ? Str() : found->second.returnType;
}

bool Context::hasSpecializedFunctionForUnit(const Str& unit, const Str& symbol) const {
    return hasRegistration(unit, symbol, false);
}
bool Context::hasSpecializedMethodForUnit(const Str& unit, const Str& symbol) const {
    return hasRegistration(unit, symbol, true);
}

void Context::addSpecializedFunctionForUnit(const Str& unit, const Str& symbol, std::shared_ptr<FunctionNode> node) {
    if (hasRegistration(unit, symbol, false)) return;
    FunctionInstance made;
    made.kind = InstanceKind::Function;
    made.symbol = symbol;
    made.linkage = isGeneratedUnit(unit) ? InstanceLinkage::OnDemand : InstanceLinkage::Unit;
    made.displayName = node->displayName().empty() ? node->name() : node->displayName();
    fillFromNode(made, node);
    recordRequester(made);
    FunctionInstance* instance = attachNode(symbol, std::move(made));
    dropProvisionalParts(symbol);
    addRegistration(unit, symbol, {}, instance->sourcePath, std::move(node), instance, false);
}

void Context::addSpecializedMethodForUnit(const Str& unit, const Str& owner, const Str& symbol,
                                          std::shared_ptr<MethodNode> node, const Str& sourceOrTarget) {
    if (hasRegistration(unit, symbol, true)) return;
    FunctionInstance made;
    made.kind = InstanceKind::Method;
    made.symbol = symbol;
    made.linkage = InstanceLinkage::OnDemand;
    if (node->isNative()) {
        made.linkage = InstanceLinkage::Native;
        made.nativeTarget = sourceOrTarget;
        made.typeArguments = typesOf(node->typeArguments(), node->context());
    }
    made.owner = withoutNull(resolveType(owner, node->context()));
    made.hasSelf = !node->isStatic();
    made.displayName =
        node->displayName().empty() ? shortDisplay(made.owner) + "." + node->name() : node->displayName();
    fillFromNode(made, node);
    if (!node->isNative() && made.sourcePath.empty()) made.sourcePath = SourceManager::normalizePath(sourceOrTarget);
    if (!made.file && made.owner && declarationOf(made.owner)) made.file = declarationOf(made.owner)->file;
    recordRequester(made);
    if (isBundleUnitName(unit)) {
        made.generatedUnit = unit;
        inheritRequester(made);
    }
    FunctionInstance* instance = attachNode(symbol, std::move(made));
    addRegistration(unit, symbol, owner, sourceOrTarget, std::move(node), instance, true);
}

void Context::addExternalSpecializedMethod(const Str& owner, const Str& symbol, std::shared_ptr<MethodNode> signature) {
    SpecializationRegistry& registry = currentState().registry;
    {
        std::lock_guard lock(registry.mutex);
        registry.externals.push_back(symbol);
        if (registry.keepsNews) registry.news.symbols.push_back(symbol);
    }
    if (knownInstance(registry, symbol)) return;
    FunctionInstance made;
    made.kind = InstanceKind::Method;
    made.linkage = InstanceLinkage::OnDemand;
    made.symbol = symbol;
    made.generatedUnit = symbol;  // some bundle
    made.owner = withoutNull(resolveType(owner, signature->context()));
    made.hasSelf = !signature->isStatic();
    made.displayName = signature->displayName();
    fillFromNode(made, signature);
    if (made.owner && declarationOf(made.owner)) {
        made.file = declarationOf(made.owner)->file;
        made.sourcePath = made.file->path;
    }
    recordRequester(made);
    keepInstance(registry, symbol, std::move(made));
}

std::vector<std::string> CompileSession::externalMethods(std::size_t from) const {
    std::lock_guard lock(state_->registry.mutex);
    const auto& all = state_->registry.externals;
    return {all.begin() + static_cast<std::ptrdiff_t>(std::min(from, all.size())), all.end()};
}

FunctionInstance* CompileSession::specializedInstance(const std::string& symbol) {
    if (FunctionInstance* known = knownInstance(state_->registry, symbol)) return known;
    SpecializationRegistry::Signature signature;
    {
        std::lock_guard lock(state_->registry.mutex);
        auto found = state_->registry.signatures.find(symbol);
        if (found == state_->registry.signatures.end()) return nullptr;
        signature = found->second;
    }
    ScopedCompileSession scope(*this);
    FunctionInstance made;
    made.kind = InstanceKind::Function;
    made.symbol = made.displayName = symbol;
    made.parameterNames = signature.paramNames;
    made.parameterTypes = typesOf(signature.paramTypes, signature.scope);
    if (!signature.returnType.empty()) made.returnType = resolveType(signature.returnType, signature.scope);
    made.isVariadic = signature.isVariadic;
    made.variadicIndex = signature.variadicIndex;
    made.isNamedVariadic = signature.isNamedVariadic;
    made.namedVariadicIndex = signature.namedVariadicIndex;
    made.sourcePath = signature.sourceFile;
    made.file = signature.sourceFile.empty() ? nullptr : loadedFile(signature.sourceFile);
    made.requester = signature.requester;
    made.requestToken = signature.requestToken;
    made.requestDepth = signature.requestDepth;
    return keepInstance(state_->registry, symbol, std::move(made));
}

FunctionInstance* CompileSession::specializedMethod(const GenericMethodSpec& spec, const Type* owner,
                                                    const std::string& name) {
    if (FunctionInstance* known = knownInstance(state_->registry, spec.symbol)) return known;
    ScopedCompileSession scope(*this);
    FunctionInstance made;
    made.kind = InstanceKind::Method;
    made.linkage = InstanceLinkage::OnDemand;
    made.symbol = spec.symbol;
    made.owner = owner;
    made.hasSelf = !spec.isStatic;
    made.displayName = shortDisplay(owner) + "." + name;
    made.generatedUnit = spec.symbol;  // some bundle, known when it is compiled
    made.parameterNames = spec.paramNames;
    made.parameterTypes = typesOf(spec.paramTypes, state_->root);
    if (!spec.returnType.empty()) made.returnType = resolveType(spec.returnType, state_->root);
    made.isVariadic = spec.isVariadic;
    made.variadicIndex = spec.variadicIndex;
    made.isNamedVariadic = spec.isNamedVariadic;
    made.namedVariadicIndex = spec.namedVariadicIndex;
    if (const ClassDeclaration* declaration = declarationOf(owner)) {
        made.file = declaration->file;
        made.sourcePath = declaration->file->path;
    }
    recordRequester(made);
    return keepInstance(state_->registry, spec.symbol, std::move(made));
}

std::vector<CompileSession::Registration> CompileSession::registrationsOf(const std::string& unit,
                                                                          std::size_t from) const {
    std::lock_guard lock(state_->registry.mutex);
    auto found = state_->registry.units.find(unit);
    if (found == state_->registry.units.end() || from >= found->second.registrations.size()) return {};
    const auto& all = found->second.registrations;
    std::vector<Registration> registrations;
    registrations.reserve(all.size() - from);
    for (std::size_t i = from; i < all.size(); i++) registrations.push_back(all[i].of(unit));
    return registrations;
}

std::size_t CompileSession::registrationCount(const std::string& unit) const {
    std::lock_guard lock(state_->registry.mutex);
    auto found = state_->registry.units.find(unit);
    return found == state_->registry.units.end() ? 0 : found->second.registrations.size();
}

CompileSession::Registration CompileSession::registrationAt(const std::string& unit, std::size_t position) const {
    std::lock_guard lock(state_->registry.mutex);
    return state_->registry.units.at(unit).registrations.at(position).of(unit);
}

Str ClassLoader::sourceFileForSymbol(const Str& symbol) {
    SpecializationRegistry& registry = currentState().registry;
    std::lock_guard lock(registry.mutex);
    auto found = registry.symbolSources.find(symbol);
    return found == registry.symbolSources.end() ? Str() : *found->second;
}

void ClassLoader::registerSyntheticSymbolSource(const Str& symbol, const Str& path) {
    SpecializationRegistry& registry = currentState().registry;
    Str normal = SourceManager::normalizePath(path);
    std::lock_guard lock(registry.mutex);
    registry.symbolSources.insert_or_assign(symbol, registry.keptPath(normal));
    if (registry.keepsNews) registry.news.symbols.push_back(symbol);
}

}  // namespace vesk::compiler
