// Whole bodies: parameters, the statements or the initializers behind them, and the return at the end.
#include "semantics/body_checking.h"

#include <algorithm>
#include <atomic>

#include "generics/generic_specializer.h"
#include "host/tree_generator.h"
#include "semantics/checker.h"
#include "semantics/interactive_session.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

void Checker::declareParameters() {
    if (function_->hasSelf) {
        self_ = newVariable("self", function_->owner, {}, true);
        body_.parameters.push_back(self_);
        addVisible(self_, self_->type);
    }
    for (std::size_t i = 0; i < function_->parameterTypes.size(); i++) {
        const std::string name = i < function_->parameterNames.size() ? function_->parameterNames[i] : "";
        std::size_t position = i;
        if (function_->kind == InstanceKind::DefaultValue) {
            std::lock_guard lock(session_.modelMutex());
            position = session_.state().parameterPositions.at(function_->defaultOf).at(name);
        }
        TokenPtr token;
        if (function_->node && position < function_->node->getParams().size())
            token = function_->node->getParams()[position].token;
        LocalVariable* parameter = newVariable(name, function_->parameterTypes[i], placeOf(token), true);
        body_.parameters.push_back(parameter);
        guarded([&] { declareLocal(parameter, token); });
    }
}

bool Checker::checkFunction() {
    body_.function = function_;
    declaredReturn_ = function_->returnType;
    std::vector<Statement*> statements;
    Place place{function_->line, 1};
    guarded([&] {
        declareParameters();
        switch (function_->kind) {
            case InstanceKind::FieldInitializer: checkFieldInitializer(statements); break;
            case InstanceKind::UnitInitializer: checkUnitInitializer(statements); break;
            case InstanceKind::DefaultValue: checkDefaultValue(statements); break;
            case InstanceKind::Chunk: checkChunk(statements); break;
            default: {
                place = placeOf(*function_->node);
                hasMistakes_ |= function_->node->refusedNames() != nullptr;
                bool isReachable = checkStatements(function_->node->getBody(), statements);
                finishReturns(isReachable, statements);
            }
        }
    });
    body_.body = blockOf(statements, place);
    return !hasMistakes_;
}

Str writtenName(const FunctionInstance& function) {
    const bool hasToken = function.node && function.node->nameToken();
    return hasToken ? function.node->nameToken()->getText() : function.shownName();
}

// Gives the returns of a function their type where none is declared, and finds the end that lacks one.
void Checker::finishReturns(bool endIsReachable, std::vector<Statement*>&) {
    TokenPtr name = function_->node->nameToken() ? function_->node->nameToken() : function_->node->token();
    if (declaredReturn_) {
        inferredReturn_ = declaredReturn_;
        if (endIsReachable && !declaredReturn_->isVoid() && !hasMistakes_)
            fail(name, "missing return: '" + writtenName(*function_) + "' returns " + declaredReturn_->structured);
        return;
    }
    if (hasMistakes_) return;
    const Type* voidType = builtin(TypeKind::Void);
    const Type* type = nullptr;
    for (const PendingReturn& pending : pendingReturns_) {
        const Type* next = pending.statement->value ? pending.statement->value->type : voidType;
        const Type* both = type ? unify(type, next) : next;
        if (!both) fail(pending.token, "Inconsistent return types: " + type->structured + " and " + next->structured);
        type = both;
    }
    if (!type) type = voidType;
    if (type->kind == TypeKind::Null)
        fail(name, "Cannot infer the return type of '" + writtenName(*function_) + "': it returns only null");
    if (endIsReachable && !type->isVoid())
        fail(name, "missing return: '" + writtenName(*function_) + "' returns " + type->structured);
    for (const PendingReturn& pending : pendingReturns_)
        if (pending.statement->value) pending.statement->value = coerce(pending.statement->value, type, *pending.node);
    inferredReturn_ = type;
}

void Checker::checkFieldInitializer(std::vector<Statement*>& out) {
    const Type* owner = function_->owner;
    const ClassLayout& layout = session_.layoutOf(owner);
    if (const Type* super = directSuperClass(owner)) {
        if (FunctionInstance* initializer = session_.fieldInitializerOf(super)) {
            noteRequest(*initializer, function_->requestToken);
            Expression* self = convertAssignable(readLocal(self_, {}), super);
            std::vector<Expression*> arguments{self};
            Expression* call = make<Call>(ExpressionKind::Call, builtin(TypeKind::Void), Place{function_->line, 1},
                                          initializer, list(arguments), Dispatch::Direct, true);
            out.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, call->place, call));
        }
    }
    for (auto& field : owner->declaration->fields) {
        NodePtr initializer = field->node->getInitializer();
        if (field->isStatic || !initializer) continue;
        const FieldSlot* slot = &layout.slotOf(*field);
        guarded([&] {
            Expression* value = checkInto(initializer, slot->type);
            out.push_back(makeStatement<AssignField>(StatementKind::AssignField, placeOf(*field->node),
                                                     readLocal(self_, placeOf(*field->node)), slot, value, true));
        });
    }
    inferredReturn_ = builtin(TypeKind::Void);
}

void Checker::checkUnitInitializer(std::vector<Statement*>& out) {
    std::vector<FieldDeclaration*> fields;
    std::vector<ClassDeclaration*> classes = function_->file->classes;
    for (std::size_t i = 0; i < classes.size(); i++) {
        for (auto& field : classes[i]->fields)
            if (field->isStatic && field->node->getInitializer()) fields.push_back(field.get());
        std::vector<ClassDeclaration*> nested = classes[i]->nested;
        classes.insert(classes.end(), nested.begin(), nested.end());
    }
    std::sort(fields.begin(), fields.end(), [](const FieldDeclaration* first, const FieldDeclaration* second) {
        Place a = placeOf(*first->node), b = placeOf(*second->node);
        return a.line != b.line ? a.line < b.line : a.column < b.column;
    });
    for (FieldDeclaration* field : fields) {
        selfType_ = types_.classType(field->owner, {});
        guarded([&] {
            const Type* type = declaredType(field->node->type(), field->node->getContext(), field->node->token());
            Expression* value = checkInto(field->node->getInitializer(), type);
            out.push_back(
                makeStatement<AssignStatic>(StatementKind::AssignStatic, placeOf(*field->node), field, value));
        });
    }
    selfType_ = nullptr;
    inferredReturn_ = builtin(TypeKind::Void);
}

// The tokens of a default stand for an expression in the scope of their declaration, with the earlier parameters in it.
void Checker::checkDefaultValue(std::vector<Statement*>& out) {
    const FunctionParam& parameter = function_->node->getParams().at(static_cast<std::size_t>(function_->defaultIndex));
    const TokenPtr& first = parameter.defaultValueTokens.at(0);
    Tokenizer word("return", first->getFilename());
    TokenVec tokens{word.nextToken()->withPlace(first->getLine(), first->getColumn())};
    tokens.insert(tokens.end(), parameter.defaultValueTokens.begin(), parameter.defaultValueTokens.end());
    auto block = std::make_shared<BlockNode>(std::make_shared<Context>(function_->node->getContext()), first);
    TreeGenerator parser(first->getFilename(), std::move(tokens), block->getContext(), false);
    parser.parseBlock(block, 0);
    if (block->getStatements().size() != 1 || block->getStatements()[0]->getKind() != NodeKind::Return)
        fail(first, "The default of '" + parameter.name + "' is not an expression");
    checkReturn(static_cast<const ReturnNode&>(*block->getStatements()[0]), out);
    // The typed body keeps nothing of the nodes but their texts, which it has copied.
}

// --------------------------------------------------------------------------------------------------- entries

namespace {

// A body by itself: null, with everything reported, when it is mistaken.
std::unique_ptr<TypedBody> checkedBody(CompileSession& session, FunctionInstance& function, const Type*& returnType) {
    ScopedCompileSession scope(session);
    TokenPtr requestToken;
    {
        std::lock_guard lock(session.modelMutex());
        requestToken = function.requestToken;
    }
    ScopedRequester requester(&function, requestToken);
    auto body = std::make_unique<TypedBody>();
    Checker checker(session, *body, &function, CheckMode::Body);
    bool isRight = checker.checkFunction();
    returnType = checker.inferredReturnType();
    if (!isRight) session.keepRequestsOfMistaken(function, checker.requested());
    return isRight ? std::move(body) : nullptr;
}

bool hasBody(const FunctionInstance& function) {
    if (function.linkage == InstanceLinkage::Native) return false;
    bool isInitializer = function.kind == InstanceKind::FieldInitializer ||
                         function.kind == InstanceKind::UnitInitializer || function.kind == InstanceKind::DefaultValue;
    return isInitializer || (function.node && function.node->hasBody());
}

// A body that stands too far behind the first request of its chain is not looked at.
std::optional<CompilerException> lastOfTooLongChain(CompileSession& session, const FunctionInstance& function) {
    std::lock_guard lock(session.modelMutex());
    if (function.requestDepth <= MAX_REQUEST_DEPTH) return std::nullopt;
    session.state().growth.hasEnded = true;
    CompilerException error = nestedTooDeeplyError(function.requestToken);
    addRequestNotes(error, &function);
    return error;
}

}  // namespace

std::unique_ptr<TypedBody> CompileSession::bodyOf(FunctionInstance& function) {
    if (!hasBody(function)) return nullptr;
    // The unit's growth has been reported: what has grown is not looked at any more.
    if (function.isGrowing && state_->growth.hasEnded) {
        noteFailedBody(*this, function);
        return nullptr;
    }
    std::unique_lock lock(inferenceMutex());
    if (!function.returnType) returnTypeOf(function);
    if (function.checked) {
        if (function.checked->state == CheckedBody::State::Failed) return nullptr;
        if (function.checked->body) return std::move(function.checked->body);
    }
    // Members of instantiations are checked for every unit that uses them, one at a time.
    if (function.linkage != InstanceLinkage::OnDemand) lock.unlock();
    if (const auto error = lastOfTooLongChain(*this, function)) {
        report(*error);
        return nullptr;
    }
    const Type* returnType = nullptr;
    std::unique_ptr<TypedBody> body = checkedBody(*this, function, returnType);
    if (!body) noteFailedBody(*this, function);
    return body;
}

void CompileSession::keepRequestsOfMistaken(const FunctionInstance& function,
                                            const std::vector<FunctionInstance*>& requested) {
    std::vector<FunctionInstance*> once;
    std::unordered_set<const FunctionInstance*> seen;
    for (FunctionInstance* each : requested)
        if (seen.insert(each).second) once.push_back(each);
    std::lock_guard lock(state_->modelMutex);
    state_->requestsOfMistaken.insert_or_assign(&function, std::move(once));
}

std::vector<FunctionInstance*> CompileSession::requestsOfMistaken(const FunctionInstance& function) const {
    std::lock_guard lock(state_->modelMutex);
    const auto found = state_->requestsOfMistaken.find(&function);
    return found == state_->requestsOfMistaken.end() ? std::vector<FunctionInstance*>{} : found->second;
}

const Type* CompileSession::returnTypeOf(FunctionInstance& function) {
    std::atomic_ref<const Type*> returnType(function.returnType);
    if (const Type* known = returnType.load(std::memory_order_acquire)) return known;
    std::lock_guard lock(inferenceMutex());
    if (const Type* known = returnType.load(std::memory_order_acquire)) return known;
    const Type* voidType = types().builtin(TypeKind::Void);
    if (!hasBody(function)) {
        returnType.store(voidType, std::memory_order_release);
        return voidType;
    }
    if (function.checked) {
        if (function.checked->state == CheckedBody::State::UnderWay) {
            const TokenPtr& name = function.node->nameToken() ? function.node->nameToken() : function.node->token();
            throw CheckMistake(name,
                               "Cannot infer the return type of '" + writtenName(function) + "': it depends on itself");
        }
        return types().builtin(TypeKind::Unknown);
    }
    function.checked = std::make_shared<CheckedBody>();
    const Type* inferred = nullptr;
    std::unique_ptr<TypedBody> body;
    bool hasOwnUnit = function.linkage == InstanceLinkage::Unit && function.file;
    try {
        if (const auto error = lastOfTooLongChain(*this, function)) throw CheckMistake(*error);
        // What a function of another file asks for belongs to that file's unit.
        std::optional<ScopedSpecializationUnit> unit;
        std::optional<ScopedDependencyUnit> dependencies;
        if (hasOwnUnit && function.kind != InstanceKind::Chunk) {
            unit.emplace(function.file->path);
            dependencies.emplace(function.file->path);
        }
        body = checkedBody(*this, function, inferred);
    } catch (...) {
        function.checked->state = CheckedBody::State::Failed;
        noteFailedBody(*this, function);
        throw;
    }
    if (!body || !inferred) {
        function.checked->state = CheckedBody::State::Failed;
        noteFailedBody(*this, function);
        return types().builtin(TypeKind::Unknown);
    }
    function.checked->state = CheckedBody::State::Done;
    if (hasOwnUnit) function.checked->body = std::move(body);
    returnType.store(inferred, std::memory_order_release);
    return inferred;
}

}  // namespace vesk::compiler
