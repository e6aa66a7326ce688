// Scopes: what is declared in them, and how the parser records it.
#include "host/context.h"

#include <mutex>
#include <shared_mutex>

#include "host/source_manager.h"
#include "semantics/context_state.h"
#include "semantics/name_lookup.h"
#include "syntax/scope_building.h"

namespace vesk::compiler {

namespace {

// Guards the root and file scopes, the only ones that several threads use.
std::shared_mutex& sharedScopesMutex() {
    static std::shared_mutex mutex;
    return mutex;
}

// Locks for writing when the scope is a shared one.
std::unique_lock<std::shared_mutex> lockForChange(const Context::State& state) {
    return state.isShared ? std::unique_lock(sharedScopesMutex()) : std::unique_lock<std::shared_mutex>();
}

std::shared_lock<std::shared_mutex> lockForReading(const Context::State& state) {
    return state.isShared ? std::shared_lock(sharedScopesMutex()) : std::shared_lock<std::shared_mutex>();
}

constexpr std::size_t MOST_UNINDEXED = 32;  // variables of a scope; walking over them is quicker than a table

ScopeVariable* ownVariable(Context::State& state, std::string_view name) {
    std::size_t position = state.lastVariable(name);
    return position < state.variables.size() ? &state.variables[position] : nullptr;
}

// What the scopes from `scope` outward answer, the nearest first; `get` gives a pointer to a text or null.
template <class Get>
Str nearestText(const Context* scope, Get get) {
    for (; scope; scope = scope->parent().get()) {
        const Context::State* state = scope->stateIfAny();
        if (!state) continue;
        auto lock = lockForReading(*state);
        if (const Str* text = get(*state)) return *text;
    }
    return {};
}

}  // namespace

Context::Context(ContextPtr parent) : parent_(std::move(parent)) {}

Context::~Context() {
    // Long chains of scopes are taken apart one by one.
    ContextPtr next = std::move(parent_);
    while (next && next.use_count() == 1) {
        ContextPtr outer = std::move(next->parent_);
        next = std::move(outer);
    }
}

// Scopes that several threads use declare no variables, so the table needs no lock.
std::size_t Context::State::lastVariable(std::string_view name) const {
    if (variables.size() <= MOST_UNINDEXED || isShared) {
        for (std::size_t i = variables.size(); i-- > 0;)
            if (variables[i].name == name) return i;
        return variables.size();
    }
    if (!index || index->indexed > variables.size()) index = std::make_unique<VariableIndex>();
    for (; index->indexed < variables.size(); index->indexed++)
        index->positions[variables[index->indexed].name] = index->indexed;
    auto found = index->positions.find(std::string(name));
    return found == index->positions.end() ? variables.size() : found->second;
}

Context::State& Context::state() {
    if (!state_) state_ = std::make_unique<State>();
    return *state_;
}

Str Context::getCompileUnitFile() const {
    return nearestText(this, [](const State& own) {
        return own.rare && !own.rare->compileUnitFile.empty() ? &own.rare->compileUnitFile : nullptr;
    });
}

void Context::setCompileUnitFile(const Str& path) {
    // A scope that already answers this path needs no record of its own.
    if (!(state_ && state_->rare && !state_->rare->compileUnitFile.empty()) && getCompileUnitFile() == path) return;
    State& own = state();
    auto lock = lockForChange(own);
    own.rareParts().compileUnitFile = path;
}

void Context::setPackageName(const Str& name) {
    // Whole trees of scopes are told the same package again and again.
    for (const Context* scope = this; scope; scope = scope->parent_.get()) {
        const State* known = scope->stateIfAny();
        if (!known || !known->rare || !known->rare->hasPackage) continue;
        auto lock = lockForReading(*known);
        if (known->rare->packageName == name) return;
        break;
    }
    State& own = state();
    auto lock = lockForChange(own);
    State::Rare& rare = own.rareParts();
    rare.packageName = name;
    rare.hasPackage = true;
    rare.environment = 0;
}

void Context::addImportedPackageLocal(const Str& name) {
    for (const Context* scope = this; scope; scope = scope->parent_.get()) {
        const State* known = scope->stateIfAny();
        if (!known || !known->rare || !known->rare->hasPackage) continue;
        auto lock = lockForReading(*known);
        for (const std::string& imported : known->rare->imports)
            if (imported == name) return;
        break;
    }
    State& own = state();
    auto lock = lockForChange(own);
    State::Rare& rare = own.rareParts();
    for (const std::string& imported : rare.imports)
        if (imported == name) return;
    rare.imports.push_back(name);
    rare.environment = 0;
}

void Context::addGenericTypeParam(const Str& name) {
    State& own = state();
    auto lock = lockForChange(own);
    State::Rare& rare = own.rareParts();
    if (!rare.typeParameterSet.insert(name).second) return;
    rare.typeParameters.push_back(name);
    rare.environment = 0;
}

void Context::clearGenericTypeParams() {
    if (!state_ || !state_->rare || state_->rare->typeParameters.empty()) return;
    auto lock = lockForChange(*state_);
    state_->rare->typeParameters.clear();
    state_->rare->typeParameterSet.clear();
    state_->rare->environment = 0;
}

void Context::setEnclosingClassSelfType(const Str& type) {
    State& own = state();
    auto lock = lockForChange(own);
    State::Rare& rare = own.rareParts();
    rare.selfType = type;
    rare.environment = 0;
}

void Context::addVariable(const Str& name, const Str& type) {
    State& own = state();
    auto lock = lockForChange(own);
    if (ScopeVariable* known = ownVariable(own, name)) {
        known->type = type;
        return;
    }
    own.variables.push_back({name, type, nullptr, 0, 0});
}

void Context::setVariableType(const Str& name, const Str& type) {
    for (Context* scope = this; scope; scope = scope->parent_.get()) {
        if (!scope->state_) continue;
        auto lock = lockForChange(*scope->state_);
        if (ScopeVariable* known = ownVariable(*scope->state_, name)) {
            known->type = type;
            return;
        }
    }
}

Str Context::getReturnType() const {
    return nearestText(this, [](const State& own) { return own.returnType.get(); });
}

const Str* Context::ownReturnType() const {
    const State* const own = stateIfAny();
    return own ? own->returnType.get() : nullptr;
}

void Context::setReturnType(const Str& type) {
    State& own = state();
    auto lock = lockForChange(own);
    own.returnType = type.empty() ? nullptr : std::make_unique<const std::string>(type);
}

void declareScopeVariable(const ContextPtr& scope, const Str& name, const Str& type, const AbstractNode* declaration,
                          int line, int column) {
    if (!scope) return;
    Context::State& state = scope->state();
    auto lock = lockForChange(state);
    state.variables.push_back({name, type, declaration, line, column});
}

void reserveScopeVariables(const ContextPtr& scope, std::size_t count) {
    if (!scope || count == 0) return;
    Context::State& state = scope->state();
    auto lock = lockForChange(state);
    state.variables.reserve(count);
}

void releaseScopeVariables(const ContextPtr& scope) {
    if (!scope || !scope->stateIfAny()) return;
    Context::State& state = scope->state();
    auto lock = lockForChange(state);
    std::vector<ScopeVariable>().swap(state.variables);
    state.index.reset();
}

void setDeclaringFile(const ContextPtr& scope, const Str& path) {
    if (!scope) return;
    Context::State& state = scope->state();
    auto lock = lockForChange(state);
    Context::State::Rare& rare = state.rareParts();
    rare.declaringFile = SourceManager::normalizePath(path);
    rare.environment = 0;
}

FoundVariable lookupVariable(std::string_view name, const Context* scope) {
    for (; scope; scope = scope->parent().get()) {
        const Context::State* state = scope->stateIfAny();
        if (!state) continue;
        auto lock = lockForReading(*state);
        std::size_t position = state->lastVariable(name);
        if (position < state->variables.size()) return {scope, position};
    }
    return {};
}

}  // namespace vesk::compiler
