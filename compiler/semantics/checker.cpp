#include "semantics/checker.h"

#include <algorithm>
#include <functional>

#include "semantics/stack_room.h"

namespace vesk::compiler {

namespace {

thread_local Checker* gActiveChecker = nullptr;

}  // namespace

Place placeOf(const TokenPtr& token) { return token ? Place{token->getLine(), token->getColumn()} : Place{}; }
Place placeOf(const AbstractNode& node) { return placeOf(node.token()); }

Checker::Checker(CompileSession& session, TypedBody& body, FunctionInstance* function, CheckMode mode)
    : session_(session),
      types_(session.types()),
      body_(body),
      function_(function),
      mode_(mode),
      previous_(gActiveChecker) {
    if (function && function->owner) {
        selfType_ = function->owner;
        environment_ = environmentOf(function->owner);
    }
    if (function) {
        std::lock_guard lock(session.modelMutex());
        requestDepth_ = function->requestDepth;
    }
    gActiveChecker = this;
}

Checker::~Checker() { gActiveChecker = previous_; }

Checker* Checker::active() { return gActiveChecker; }

const Type* Checker::argumentType(const AbstractNode* node) const {
    auto known = argumentPositions_.find(node);
    return known == argumentPositions_.end() ? nullptr : argumentTypes_[known->second - 1].type;
}

void Checker::addArgumentType(const AbstractNode* node, const Type* type) {
    std::size_t& last = argumentPositions_[node];
    argumentTypes_.push_back({node, type, last});
    last = argumentTypes_.size();
}

void Checker::forgetArgumentTypes(std::size_t count) {
    while (argumentTypes_.size() > count) {
        const KnownArgument& argument = argumentTypes_.back();
        if (argument.hidden)
            argumentPositions_[argument.node] = argument.hidden;
        else
            argumentPositions_.erase(argument.node);
        argumentTypes_.pop_back();
    }
}

// ------------------------------------------------------------------------------------------------ mistakes

void Checker::fail(const TokenPtr& token, std::string message) const { throw CheckMistake(token, std::move(message)); }
void Checker::fail(const AbstractNode& node, std::string message) const { fail(node.token(), std::move(message)); }

void Checker::report(const CompilerException& mistake) {
    hasMistakes_ = true;
    CompilerException withRequests = mistake;
    if (function_) {
        std::lock_guard lock(session_.modelMutex());
        addRequestNotes(withRequests, function_);
    }
    session_.report(withRequests);
}

void addRequestNotes(CompilerException& error, const FunctionInstance* function) {
    for (DiagnosticNote& note : requestChain(function)) error.addNote(std::move(note));
}

void Checker::guardStack(const AbstractNode& node) const {
    if (isStackUsedUp()) fail(node, "This is nested too deeply");
}

// --------------------------------------------------------------------------------------------- making nodes

BlockStatement* Checker::blockOf(const std::vector<Statement*>& statements, Place place) {
    return makeStatement<BlockStatement>(StatementKind::Block, place, StatementList(body_.arena.copy(statements)));
}

LocalVariable* Checker::newVariable(std::string_view name, const Type* type, Place place, bool isParameter) {
    LocalVariable* variable = body_.arena.make<LocalVariable>();
    variable->name = body_.arena.copy(name);
    variable->type = type;
    variable->place = place;
    variable->isParameter = isParameter;
    return variable;
}

Expression* Checker::typedOnly(const Type* type, Place place) {
    return make<NullConstant>(ExpressionKind::NullConstant, type, place);
}

Expression* Checker::boolean(bool value, Place place) {
    return make<IntegerConstant>(ExpressionKind::IntegerConstant, builtin(TypeKind::Bool), place, std::uint64_t{value});
}

Expression* Checker::text(std::string_view value, Place place) {
    return make<StringConstant>(ExpressionKind::StringConstant, builtin(TypeKind::String), place,
                                body_.arena.copy(value));
}

Expression* Checker::nullValue(Place place) { return typedOnly(builtin(TypeKind::Null), place); }

Expression* Checker::readLocal(LocalVariable* variable, Place place) {
    return make<LocalRead>(ExpressionKind::LocalRead, variable->type, place, variable);
}

Expression* Checker::wrapInLets(const std::vector<std::pair<LocalVariable*, Expression*>>& lets, Expression* body) {
    for (auto let = lets.rbegin(); let != lets.rend(); ++let)
        body = make<Let>(ExpressionKind::Let, body->type, body->place, let->first, let->second, body);
    return body;
}

Expression* Checker::once(Expression* value, std::vector<std::pair<LocalVariable*, Expression*>>& lets) {
    switch (value->kind) {
        case ExpressionKind::IntegerConstant:
        case ExpressionKind::FloatingConstant:
        case ExpressionKind::NullConstant:
        case ExpressionKind::StringConstant: return value;
        case ExpressionKind::LocalRead:
            if (static_cast<LocalRead*>(value)->variable == self_) return value;
            break;
        default: break;
    }
    LocalVariable* variable = newVariable("", value->type, value->place);
    lets.emplace_back(variable, value);
    return readLocal(variable, value->place);
}

// --------------------------------------------------------------------------------------------- local names

void Checker::addVisible(LocalVariable* variable, const Type* type) {
    std::size_t& last = visibleByName_[variable->name];
    visible_.push_back({variable, type, static_cast<unsigned>(lambdas_.size()), last});
    last = visible_.size();
}

void Checker::forgetVisible(std::size_t count) {
    while (visible_.size() > count) {
        const VisibleLocal& local = visible_.back();
        if (local.hidden)
            visibleByName_[local.variable->name] = local.hidden;
        else
            visibleByName_.erase(local.variable->name);
        visible_.pop_back();
    }
}

void Checker::declareLocal(LocalVariable* variable, const TokenPtr& token) {
    auto known = visibleByName_.find(variable->name);
    if (known != visibleByName_.end() && known->second > scopeStart_) {
        Place earlier = visible_[known->second - 1].variable->place;
        std::string where = earlier.line > 0 ? " (line " + std::to_string(earlier.line) + ")" : "";
        fail(token, "'" + std::string(variable->name) + "' is already declared in this scope" + where);
    }
    addVisible(variable, variable->type);
}

LocalVariable* Checker::capture(const VisibleLocal& local) {
    if (local.depth < lambdas_.size()) {
        local.variable->isCaptured = true;
        for (std::size_t depth = lambdas_.size(); depth > local.depth; depth--) {
            // What an inner lambda captures all lambdas around it have.
            if (!captured_[depth - 1].insert(local.variable).second) break;
            lambdas_[depth - 1]->captures.push_back(local.variable);
        }
    }
    return local.variable;
}

LocalVariable* Checker::findLocal(std::string_view name, const AbstractNode& node) {
    if (auto known = visibleByName_.find(name); known != visibleByName_.end()) {
        const VisibleLocal& local = visible_[known->second - 1];
        if (local.type->kind == TypeKind::Unknown) throw Poisoned{};
        return capture(local);
    }
    return mode_ == CheckMode::Inference ? scopeLocal(std::string(name), node) : nullptr;
}

std::size_t Checker::CallShapeHash::operator()(const std::vector<const void*>& shape) const {
    std::size_t hash = shape.size();
    for (const void* part : shape) hash = (hash ^ reinterpret_cast<std::uintptr_t>(part)) * 0x9E3779B97F4A7C15ull;
    return hash ^ (hash >> 32);
}

}  // namespace vesk::compiler
