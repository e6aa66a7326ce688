// Statements, each checked for itself: a mistake in one does not hide those in the next.
#include <algorithm>

#include "generics/generic_specializer.h"
#include "semantics/body_checking.h"
#include "semantics/checker.h"

namespace vesk::compiler {

namespace {

const NodeVec& statementsOf(const AbstractNode& block) { return static_cast<const BlockNode&>(block).getStatements(); }

bool isLiteralTrue(const AbstractNode& node) {
    return node.getKind() == NodeKind::Literal &&
           static_cast<const LiteralNode&>(node).literalKind() == LiteralKind::Bool &&
           static_cast<const LiteralNode&>(node).text() == "true";
}

}  // namespace

bool Checker::checkStatements(const NodeVec& statements, std::vector<Statement*>& out) {
    bool isReachable = true;
    for (const NodePtr& statement : statements)
        guarded([&] {
            if (!checkStatement(statement, out)) isReachable = false;
        });
    return isReachable;
}

bool Checker::checkBlock(const NodeVec& statements, Place place, BlockStatement*& out) {
    BlockScope scope(*this);
    std::vector<Statement*> checked;
    bool isReachable = checkStatements(statements, checked);
    out = blockOf(checked, place);
    return isReachable;
}

bool Checker::checkStatement(const NodePtr& node, std::vector<Statement*>& out) {
    Place place = placeOf(*node);
    switch (node->getKind()) {
        case NodeKind::Pass: return true;
        case NodeKind::Break:
            loops_.back().hasBreak = true;
            out.push_back(makeStatement<Statement>(StatementKind::Break, place));
            return false;
        case NodeKind::Continue: out.push_back(makeStatement<Statement>(StatementKind::Continue, place)); return false;
        case NodeKind::Declaration: checkDeclaration(static_cast<const DeclarationNode&>(*node), out); return true;
        case NodeKind::Assignment: checkAssignment(static_cast<const AssignmentNode&>(*node), out); return true;
        case NodeKind::Return: checkReturn(static_cast<const ReturnNode&>(*node), out); return false;
        case NodeKind::If: return checkIf(static_cast<const IfNode&>(*node), out);
        case NodeKind::While: return checkWhile(static_cast<const WhileNode&>(*node), out);
        case NodeKind::For: checkFor(static_cast<const ForNode&>(*node), out); return true;
        case NodeKind::Block: {
            guardStack(*node);
            BlockStatement* block = nullptr;
            bool isReachable = checkBlock(statementsOf(*node), place, block);
            out.push_back(block);
            return isReachable;
        }
        default: {
            Expression* value = check(node);
            out.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, place, value));
            return !neverReturns(value);
        }
    }
}

bool Checker::neverReturns(const Expression* expression) const {
    while (expression->kind == ExpressionKind::Let) expression = static_cast<const Let*>(expression)->body;
    if (expression->kind != ExpressionKind::Call) return false;
    const FunctionInstance& target = *static_cast<const Call*>(expression)->target;
    return !target.owner && target.node && target.node->name() == "panic" && target.file &&
           target.file->package == "vesk";
}

// ---------------------------------------------------------------------------------------------- branches, loops

bool Checker::checkIf(const IfNode& node, std::vector<Statement*>& out) {
    guardStack(node);
    struct Branch {
        Place place;
        Expression* condition;
        BlockStatement* block;
    };
    std::vector<Branch> branches;
    bool isReachable = false;
    Statement* otherwise = nullptr;
    NodePtr next;
    for (const IfNode* current = &node; current;) {
        Branch branch{placeOf(*current), nullptr, nullptr};
        guarded([&] { branch.condition = checkInto(current->getCondition(), builtin(TypeKind::Bool)); });
        const NodePtr thenBranch = current->getThenBranch();
        if (checkBlock(statementsOf(*thenBranch), placeOf(*thenBranch), branch.block)) isReachable = true;
        branches.push_back(branch);
        next = current->getElseBranch();
        if (next && next->getKind() == NodeKind::If) {
            current = static_cast<const IfNode*>(next.get());
            continue;
        }
        current = nullptr;
        if (!next) {
            isReachable = true;
        } else {
            BlockStatement* block = nullptr;
            if (checkBlock(statementsOf(*next), placeOf(*next), block)) isReachable = true;
            otherwise = block;
        }
    }
    for (auto branch = branches.rbegin(); branch != branches.rend(); ++branch) {
        if (!branch->condition) branch->condition = boolean(false, branch->place);
        otherwise =
            makeStatement<IfStatement>(StatementKind::If, branch->place, branch->condition, branch->block, otherwise);
    }
    out.push_back(otherwise);
    return isReachable;
}

bool Checker::checkWhile(const WhileNode& node, std::vector<Statement*>& out) {
    guardStack(node);
    Expression* condition = nullptr;
    guarded([&] { condition = checkInto(node.condition(), builtin(TypeKind::Bool)); });
    loops_.emplace_back();
    BlockStatement* body = nullptr;
    checkBlock(node.getStatements(), placeOf(node), body);
    bool hasBreak = loops_.back().hasBreak;
    loops_.pop_back();
    if (!condition) condition = boolean(false, placeOf(node));
    out.push_back(makeStatement<WhileStatement>(StatementKind::While, placeOf(node), condition, body));
    return hasBreak || !isLiteralTrue(*node.condition());
}

// The call `range(from, to)` that a loop goes over without making a list of it, null for every other iterable.
const CallableExpressionNode* Checker::rangeCall(const NodePtr& node) {
    if (node->getKind() != NodeKind::Callable) return nullptr;
    auto& call = static_cast<const CallableExpressionNode&>(*node);
    if (call.name() != "range" || call.getArguments().size() != 2) return nullptr;
    for (const NodePtr& argument : call.getArguments())
        if (argument->getKind() == NodeKind::NamedArgument) return nullptr;
    std::string name = "range";
    if (NodePtr receiver = call.receiver()) {
        if (receiver->getKind() != NodeKind::Value ||
            static_cast<const ValueExpressionNode&>(*receiver).value() != "vesk")
            return nullptr;
        name = "vesk.range";
    } else if (findLocal(name, *node) ||
               (selfType_ && selfType_->declaration && !methodsNamed(selfType_, name).empty())) {
        return nullptr;
    }
    std::vector<FunctionDeclaration*> functions = lookupFunctions(name, node->context());
    return functions.size() == 1 && functions[0]->qualifiedName == "vesk.range" ? &call : nullptr;
}

const Type* Checker::elementType(Expression* iterable, const AbstractNode& node) {
    const Type* type = withoutNull(iterable->type);
    if (type->kind == TypeKind::Array) return type->element();
    ClassDeclaration* iterableClass = session_.classNamed("vesk.Iterable");
    const Type* super = iterableClass ? superTypeOf(type, iterableClass) : nullptr;
    if (!super || super->arguments.size() != 1)
        fail(node, "A value of type " + iterable->type->structured + " cannot be iterated");
    return super->arguments[0];
}

void Checker::checkForBody(const ForNode& node, LocalVariable* variable, std::vector<Statement*> first,
                           BlockStatement*& out) {
    BlockScope scope(*this);
    declareLocal(variable, node.variableToken());
    loops_.emplace_back();
    checkStatements(node.getStatements(), first);
    loops_.pop_back();
    out = blockOf(first, placeOf(node));
}

void Checker::checkFor(const ForNode& node, std::vector<Statement*>& out) {
    guardStack(node);
    Place place = placeOf(node);
    Place variablePlace = placeOf(node.variableToken() ? node.variableToken() : node.token());
    BlockStatement* body = nullptr;
    LocalVariable* variable = newVariable(node.variable(), builtin(TypeKind::Unknown), variablePlace);
    Expression *from = nullptr, *to = nullptr, *value = nullptr;
    // A mistaken head leaves a variable of unknown type, whose uses are silent.
    guarded([&] {
        if (const CallableExpressionNode* range = rangeCall(node.iterable())) {
            from = checkInto(range->getArguments()[0], builtin(TypeKind::Int));
            to = checkInto(range->getArguments()[1], builtin(TypeKind::Int));
            variable->type = builtin(TypeKind::Int);
        } else {
            value = withoutNullReceiver(checkValue(node.iterable()));
            variable->type = elementType(value, *node.iterable());
        }
    });
    if (variable->type->kind == TypeKind::Unknown) {
        checkForBody(node, variable, {}, body);
        return;
    }
    if (!value) {
        checkForBody(node, variable, {}, body);
        out.push_back(makeStatement<ForRange>(StatementKind::ForRange, place, variable, from, to, body));
        return;
    }
    if (value->type->kind == TypeKind::Array) {
        checkForBody(node, variable, {}, body);
        out.push_back(makeStatement<ForArray>(StatementKind::ForArray, place, variable, value, body));
        return;
    }
    ArgumentList none;
    auto required = [&](Expression* call, const char* name) {
        if (!call)
            fail(*node.iterable(),
                 "A value of type " + value->type->structured + " has no '" + name + "' to iterate with");
        return call;
    };
    LocalVariable* source = newVariable("", value->type, place);
    Expression* iterator =
        required(callChecked(readLocal(source, place), "iterator", none, *node.iterable()), "iterator");
    LocalVariable* position = newVariable("", iterator->type, place);
    Expression* hasNext =
        required(callChecked(readLocal(position, place), "hasNext", none, *node.iterable()), "hasNext");
    Expression* next = required(callChecked(readLocal(position, place), "next", none, *node.iterable()), "next");
    next = coerce(next, variable->type, *node.iterable());
    hasNext = coerce(hasNext, builtin(TypeKind::Bool), *node.iterable());
    const Type* listType = directList(value->type, variable->type, node.token());
    checkForBody(node, variable, {}, body);
    out.push_back(makeStatement<ForCollection>(StatementKind::ForCollection, place, variable, source, value, position,
                                               iterator, hasNext, next, listType, body));
}

// The ArrayList type that a collection of this type may well be, null when it cannot be one.
const Type* Checker::directList(const Type* collection, const Type* element, const TokenPtr& token) {
    if (!collection->declaration || collection->declaration->package != "vesk.collections" || !collection->isConcrete)
        return nullptr;
    ClassDeclaration* arrayList = session_.classNamed("vesk.collections.ArrayList");
    const Type* listType = arrayList ? types_.classType(arrayList, {element}) : nullptr;
    if (!listType || !isAssignable(collection, listType)) return nullptr;
    noteConstruction(listType, token);
    return listType;
}

// ------------------------------------------------------------------------------------------- locals and returns

void Checker::checkDeclaration(const DeclarationNode& node, std::vector<Statement*>& out) {
    Place place = placeOf(node);
    LocalVariable* variable = newVariable(node.getVariableName(), builtin(TypeKind::Unknown), place);
    Expression* value = nullptr;
    NodePtr initializer = node.getInitializer();
    try {
        bool isOpen = node.declaredType() == AUTO_TYPED_VAR;
        if (!isOpen) {
            variable->type = declaredType(node.declaredType(), node.context(), node.token());
            if (variable->type->isVoid()) fail(node, "A variable cannot have the type Void");
        }
        if (initializer) value = isOpen ? checkValue(initializer) : checkInto(initializer, variable->type);
        if (isOpen) {
            if (value->type->kind == TypeKind::Null)
                fail(*initializer, "The type of '" + node.getVariableName() + "' is not known from null: write it");
            variable->type = value->type;
        }
    } catch (...) {
        // The name is there all the same: its uses are no further mistakes.
        addVisible(variable, variable->type);
        throw;
    }
    try {
        declareLocal(variable, node.token());
    } catch (...) {
        addVisible(variable, variable->type);
        throw;
    }
    out.push_back(makeStatement<DeclareLocal>(StatementKind::DeclareLocal, place, variable, value));
}

void Checker::checkReturn(const ReturnNode& node, std::vector<Statement*>& out) {
    Place place = placeOf(node);
    NodePtr expression = node.getExpression();
    Expression* value = nullptr;
    if (expression) {
        if (declaredReturn_ && !declaredReturn_->isVoid()) {
            value = checkInto(expression, declaredReturn_);
        } else {
            value = check(expression);
            if (value->type->isVoid()) {
                out.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, place, value));
                value = nullptr;
                expression = nullptr;
            } else if (declaredReturn_) {
                fail(*expression, "'" + writtenName(*function_) + "' returns nothing, got " + value->type->structured);
            }
        }
    } else if (declaredReturn_ && !declaredReturn_->isVoid()) {
        fail(node, "expected " + declaredReturn_->structured + ", got a return without a value");
    }
    auto* statement = makeStatement<ReturnStatement>(StatementKind::Return, place, value);
    if (!declaredReturn_) pendingReturns_.push_back({statement, expression, node.token()});
    out.push_back(statement);
}

// ---------------------------------------------------------------------------------------------------- assignment

// A value that several statements use: read again when that is harmless, else kept in a local of its own.
Expression* Checker::keep(Expression* value, std::vector<Statement*>& out) {
    std::vector<std::pair<LocalVariable*, Expression*>> lets;
    Expression* kept = once(value, lets);
    for (auto [variable, initializer] : lets)
        out.push_back(makeStatement<DeclareLocal>(StatementKind::DeclareLocal, value->place, variable, initializer));
    return kept;
}

// The value that `target op= value` stores. `isDone`: the answer is a call that has changed the target itself.
Expression* Checker::assignedValue(Expression* current, const AssignmentNode& node, const Type* target, bool& isDone) {
    isDone = false;
    std::string op = node.op().substr(0, node.op().size() - 1);
    const Type* plain = withoutNull(current->type);
    Operand left{current, nullptr, std::nullopt};
    Operand right = operand(node.value(), target);
    if (!plain->isScalar() && plain->kind != TypeKind::String && !methodsNamed(plain, "operator" + op + "=").empty()) {
        if (Expression* call = callOperator(current, "operator" + op + "=", valueOf(right), node)) {
            isDone = call->type->isVoid();
            return isDone ? call : coerce(call, target, node);
        }
    }
    if (op == "+" && plain->kind == TypeKind::String) {
        std::vector<Expression*> parts{textOf(current), textOf(valueOf(right))};
        return convertAssignable(
            make<Concat>(ExpressionKind::Concat, builtin(TypeKind::String), placeOf(node), list(parts)), target);
    }
    Expression* value = combine(left, right, op, node, target);
    // `b += 1` stays in a small type when both operands have it.
    bool isSmall = plain->isInteger() && value->type->isInteger() && value->type != plain && right.value &&
                   right.value->type == plain;
    if (isSmall) value = convertNumber(value, plain);
    return coerce(value, target, node);
}

void Checker::assignField(const FoundField& field, Expression* object, bool isSelf, const AssignmentNode& node,
                          std::vector<Statement*>& out) {
    Place place = placeOf(node);
    requireAccess(*field.declaration, *node.target());
    bool isPlain = node.op() == "=";
    if (object && !isPlain) object = keep(object, out);
    Expression* value;
    if (isPlain) {
        value = checkInto(node.value(), field.type);
    } else {
        bool isDone;
        value = assignedValue(readField(field, object, isSelf, *node.target()), node, field.type, isDone);
        if (isDone) {
            out.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, place, value));
            return;
        }
    }
    if (field.declaration->isStatic) {
        trackFile(field.declaration->owner->file);
        out.push_back(makeStatement<AssignStatic>(StatementKind::AssignStatic, place, field.declaration, value));
    } else {
        out.push_back(makeStatement<AssignField>(StatementKind::AssignField, place, object, field.slot, value, isSelf));
    }
}

void Checker::checkAssignment(const AssignmentNode& node, std::vector<Statement*>& out) {
    // A compound assignment may need locals of its own: they stay inside.
    std::vector<Statement*> steps;
    const AbstractNode& target = *node.target();
    if (target.getKind() == NodeKind::Index) {
        assignIndex(node, steps);
    } else if (target.getKind() == NodeKind::Member) {
        assignMember(node, steps);
    } else if (target.getKind() == NodeKind::Value) {
        const Str& name = static_cast<const ValueExpressionNode&>(target).value();
        if (isSelfName(name) || name == "super") fail(node, "Cannot assign to '" + name + "'");
        if (isTypePutIn(name, target))
            fail(target, "Cannot assign to '" + target.token()->getText() + "': it is a type parameter");
        if (LocalVariable* local = findLocal(name, target)) {
            bool isDone = false;
            Expression* value = node.op() == "="
                                    ? checkInto(node.value(), local->type)
                                    : assignedValue(readLocal(local, placeOf(target)), node, local->type, isDone);
            if (isDone)
                steps.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, placeOf(node), value));
            else
                steps.push_back(makeStatement<AssignLocal>(StatementKind::AssignLocal, placeOf(node), local, value));
        } else {
            FoundField field;
            bool isObjectField = false;
            if (selfType_ && selfType_->declaration) {
                field = findField(selfType_, name);
                isObjectField = static_cast<bool>(field);
                for (const ClassDeclaration* cls = selfType_->declaration; cls && !field; cls = cls->outer)
                    field = findStaticField(cls, name);
            }
            if (!field) field = findChunkField(name, target);
            if (!field) {
                if (!lookupFunctions(name, target.context()).empty())
                    fail(target, "Cannot assign to '" + name + "': it is a function");
                if (lookupClass(name, target.context())) fail(target, "Cannot assign to '" + name + "': it is a class");
                failUnknownName(name, target, "name");
            }
            Expression* object = nullptr;
            if (isObjectField) {
                if (!function_ || !function_->hasSelf)
                    fail(target, "'" + name + "' is a field of an object: a static method has none");
                object = readLocal(selfVariable(target), placeOf(target));
            }
            assignField(field, object, isObjectField, node, steps);
        }
    } else {
        fail(node, "Cannot assign to this expression");
    }
    if (steps.size() == 1)
        out.push_back(steps[0]);
    else
        out.push_back(blockOf(steps, placeOf(node)));
}

void Checker::assignMember(const AssignmentNode& node, std::vector<Statement*>& out) {
    auto& target = static_cast<const MemberExpressionNode&>(*node.target());
    Receiver receiver = receiverOf(target.object());
    const Str& name = target.name();
    if (receiver.kind == Receiver::Kind::Package) failUnknownIn(receiver.package + "." + name, target, "name");
    if (receiver.kind == Receiver::Kind::Class) {
        FoundField field;
        if (receiver.type->declaration) field = findStaticField(receiver.type->declaration, name);
        if (!field) failUnknownMember(receiver.type, name, target);
        return assignField(field, nullptr, false, node, out);
    }
    const Type* type = receiver.kind == Receiver::Kind::Super ? selfType_ : withoutNull(receiver.value->type);
    FoundField field = findField(type, name);
    if (!field) {
        if (type->declaration && type->kind == TypeKind::Class && findStaticField(type->declaration, name))
            fail(target, "'" + name + "' is static: assign to " + type->declaration->name + "." + name);
        if (!methodsNamed(type, name).empty()) fail(target, "Cannot assign to '" + name + "': it is a method");
        failUnknownMember(receiver.value->type, name, target);
    }
    Expression* object = receiver.value;
    if (object->type != type && receiver.kind == Receiver::Kind::Value)
        object = conversion(ConversionKind::Reference, object, type);
    assignField(field, object, receiver.isSelf, node, out);
}

void Checker::assignIndex(const AssignmentNode& node, std::vector<Statement*>& out) {
    auto& target = static_cast<const IndexExpressionNode&>(*node.target());
    Place place = placeOf(node);
    bool isPlain = node.op() == "=";
    Expression* object = withoutNullReceiver(checkValue(target.object()));
    if (object->type->kind == TypeKind::Array) {
        const Type* element = object->type->element();
        Expression* index = checkInto(target.index(), builtin(TypeKind::Int));
        Expression* value;
        if (isPlain) {
            value = checkInto(node.value(), element);
        } else {
            object = keep(object, out);
            index = keep(index, out);
            bool isDone;
            Expression* current =
                make<ElementRead>(ExpressionKind::ElementRead, element, placeOf(target), object, index);
            value = assignedValue(current, node, element, isDone);
            if (isDone) {
                out.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, place, value));
                return;
            }
        }
        out.push_back(makeStatement<AssignElement>(StatementKind::AssignElement, place, object, index, value));
        return;
    }
    ArgumentList arguments{{.node = target.index(), .name = {}, .token = target.index()->token()}};
    if (isPlain) {
        arguments.push_back({.node = node.value(), .name = {}, .token = node.value()->token()});
    } else {
        object = keep(object, out);
        Expression* index = keep(checkValue(target.index()), out);
        ArgumentList reading{{.node = target.index(), .name = {}, .token = target.index()->token(), .value = index}};
        Expression* current = callChecked(object, "operator[]", reading, target);
        if (!current) fail(target, object->type->structured + " cannot be indexed with " + index->type->structured);
        bool isDone;
        Expression* value = assignedValue(current, node, current->type, isDone);
        if (isDone) {
            out.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, place, value));
            return;
        }
        arguments[0].value = index;
        arguments.push_back({.node = nullptr, .name = {}, .token = node.token(), .value = value});
    }
    if (methodsNamed(object->type, "operator[]=").empty())
        fail(target, "The elements of " + object->type->structured + " cannot be assigned");
    Expression* call = callChecked(object, "operator[]=", arguments, target);
    if (!call)
        fail(target, "The elements of " + object->type->structured + " cannot be assigned with the index " +
                         arguments[0].value->type->structured + " and the value " +
                         arguments[1].value->type->structured);
    out.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, place, call));
}

}  // namespace vesk::compiler
