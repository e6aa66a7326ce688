// Expressions: the dispatch over node kinds, and the kinds that have no file of their own.
#include "generics/generic_specializer.h"
#include "semantics/checker.h"
#include "semantics/near_match.h"

namespace vesk::compiler {

Expression* Checker::check(const NodePtr& node, const Type* expected) {
    guardStack(*node);
    return checkUnguarded(node, expected);
}

Expression* Checker::checkUnguarded(const NodePtr& node, const Type* expected) {
    switch (node->getKind()) {
        case NodeKind::Value: return checkName(static_cast<const ValueExpressionNode&>(*node), expected);
        case NodeKind::Literal: return checkLiteral(*node, expected);
        case NodeKind::StringLiteral: return text(static_cast<const StringLiteralNode&>(*node).value(), placeOf(*node));
        case NodeKind::Member: return checkMember(static_cast<const MemberExpressionNode&>(*node), expected);
        case NodeKind::Index: return checkIndex(static_cast<const IndexExpressionNode&>(*node));
        case NodeKind::Callable: return checkCall(static_cast<const CallableExpressionNode&>(*node), expected);
        case NodeKind::CallValue: return checkCallValue(static_cast<const CallValueNode&>(*node));
        case NodeKind::Operator: return checkOperator(node, expected);
        case NodeKind::Conditional: return checkConditional(*node, expected);
        case NodeKind::ListLiteral: return checkListLiteral(*node, expected);
        case NodeKind::MapLiteral: return checkMapLiteral(*node, expected);
        case NodeKind::Lambda: return checkLambda(static_cast<const LambdaNode&>(*node), expected);
        case NodeKind::NamedArgument: fail(*node, "A named argument stands only in a call");
        case NodeKind::Type: fail(*node, "A type is not a value");
        default: fail(*node, "This is not an expression");
    }
}

Expression* Checker::checkValue(const NodePtr& node, const Type* expected) {
    return knownValue(check(node, expected), *node);
}

Expression* Checker::checkOperand(const NodePtr& node, const Type* hint) {
    if (node->getKind() != NodeKind::Conditional) return checkValue(node, hint);
    guardStack(*node);
    return knownValue(checkConditional(*node, hint, ExpectedAs::Hint), *node);
}

Expression* Checker::knownValue(Expression* value, const AbstractNode& node) const {
    if (value->type->kind == TypeKind::Unknown) throw Poisoned{};
    if (value->type->isVoid()) fail(node, "expected a value, got a call that returns nothing");
    return value;
}

Expression* Checker::checkInto(const NodePtr& node, const Type* target) {
    Expression* value = check(node, target);
    if (mode_ == CheckMode::Inference && !value->type->isConcrete) return value;
    return coerce(value, target, *node);
}

// ------------------------------------------------------------------------------------------------- literals

Expression* Checker::integerConstant(const IntegerLiteral& literal, const Type* type, Place place) {
    if (type->isFloating()) {
        double magnitude = type->kind == TypeKind::Float ? static_cast<double>(static_cast<float>(literal.magnitude))
                                                         : static_cast<double>(literal.magnitude);
        return make<FloatingConstant>(ExpressionKind::FloatingConstant, type, place,
                                      literal.isNegative ? -magnitude : magnitude);
    }
    std::uint64_t bits = literal.isNegative ? std::uint64_t{0} - literal.magnitude : literal.magnitude;
    return make<IntegerConstant>(ExpressionKind::IntegerConstant, type, place, bits);
}

namespace {

// A literal as it is written, without the sign.
const Str& literalSource(const AbstractNode& node) {
    return static_cast<const LiteralNode&>(node.getKind() == NodeKind::Operator ? *node.getChildren()[0] : node).text();
}

}  // namespace

// A number, `true`, `false` or `null`, or a number with a sign in front of it.
Expression* Checker::checkLiteral(const AbstractNode& node, const Type* expected) {
    Place place = placeOf(node);
    if (std::optional<IntegerLiteral> literal = integerLiteralOf(&node)) {
        const Type* wanted = expected ? withoutNull(expected) : nullptr;
        if (wanted && wanted->isNumeric() && literalTakes(*literal, wanted->kind))
            return integerConstant(*literal, wanted, place);
        TypeKind own = literal->suffix == TypeKind::Unknown ? TypeKind::Int : literal->suffix;
        if (!literalFits(*literal, own))
            fail(node, literal->isTooLarge ? "The integer literal " + literalSource(node) + " is too large"
                                           : literalText(*literal) + " does not fit " + builtin(own)->structured);
        return integerConstant(*literal, builtin(own), place);
    }
    bool isNegative =
        node.getKind() == NodeKind::Operator && static_cast<const OperatorExpressionNode&>(node).op() == "-";
    const AbstractNode& inner = node.getKind() == NodeKind::Operator ? *node.getChildren()[0] : node;
    auto& literal = static_cast<const LiteralNode&>(inner);
    switch (literal.literalKind()) {
        case LiteralKind::Bool: return boolean(literal.text() == "true", place);
        case LiteralKind::Null: return nullValue(place);
        case LiteralKind::Floating: {
            std::optional<FloatingLiteral> number = parseFloatingLiteral(literal.text());
            if (!number) fail(node, "'" + literal.text() + "' is not a number");
            return make<FloatingConstant>(ExpressionKind::FloatingConstant,
                                          builtin(number->isFloat ? TypeKind::Float : TypeKind::Double), place,
                                          isNegative ? -number->value : number->value);
        }
        default: fail(node, "'" + literal.text() + "' is not a number");
    }
}

Expression* Checker::newCollection(const Type* type, const AbstractNode& node) {
    static const NodeVec NO_ARGUMENTS;
    CallSite site{.node = node, .token = node.token(), .argumentNodes = NO_ARGUMENTS, .name = {}, .typeArguments = {}};
    return construct(type, site);
}

// A list with these elements, added one after the other.
Expression* Checker::collectInto(const Type* listType, const std::vector<Expression*>& elements,
                                 const AbstractNode& node) {
    if (listType->declaration && listType->declaration->qualifiedName == "vesk.collections.ArrayList") {
        noteConstruction(listType, node.token());
        trackFile(listType->declaration->file);
        return make<ListOf>(ExpressionKind::ListOf, listType, placeOf(node), list(elements));
    }
    Expression* created = newCollection(listType, node);
    if (elements.empty()) return created;
    LocalVariable* list = newVariable("", created->type, created->place);
    std::vector<std::pair<LocalVariable*, Expression*>> steps{{list, created}};
    for (Expression* element : elements) {
        ArgumentList arguments{{.node = nullptr, .name = {}, .token = node.token(), .value = element}};
        Expression* add = callChecked(readLocal(list, element->place), "add", arguments, node);
        if (!add) fail(node, listType->structured + " has no method 'add' for " + element->type->structured);
        steps.emplace_back(nullptr, add);
    }
    return wrapInLets(steps, readLocal(list, created->place));
}

namespace {

// The class of the collections package, an error where that package cannot be loaded.
ClassDeclaration* collectionClass(CompileSession& session, const std::string& name, const AbstractNode& node) {
    ClassDeclaration* declaration = session.classNamed("vesk.collections." + name);
    if (!declaration)
        throw CheckMistake(node.token(), "This needs " + name + " of package vesk.collections, which cannot be loaded");
    return declaration;
}

// The element types that an expected collection asks for, empty when it asks for none.
std::vector<const Type*> wantedElements(const Type* expected, ClassDeclaration* collection, TypeTable& types) {
    if (!expected) return {};
    expected = withoutNull(expected);
    if (expected->kind != TypeKind::Class || expected->arguments.empty()) return {};
    // The collection of these very arguments must be what is expected: List<Long> wants ArrayList<Long>.
    if (expected->arguments.size() != collection->typeParameters.size() && expected->arguments.size() != 1) return {};
    if (expected->arguments.size() != collection->typeParameters.size()) return {};
    return isAssignable(expected, types.classType(collection, expected->arguments)) ? expected->arguments
                                                                                    : std::vector<const Type*>{};
}

}  // namespace

Expression* Checker::checkListLiteral(const AbstractNode& node, const Type* expected) {
    Place place = placeOf(node);
    const NodeVec& items = node.getChildren();
    const Type* wanted = expected ? withoutNull(expected) : nullptr;
    // An array of a type parameter wants an array; the elements tell of what.
    bool isArray = wanted && wanted->kind == TypeKind::Array;
    ClassDeclaration* arrayList = isArray ? nullptr : collectionClass(session_, "ArrayList", node);
    std::vector<const Type*> wantedTypes = isArray ? wanted->arguments : wantedElements(expected, arrayList, types_);
    const Type* element = wantedTypes.empty() || !wantedTypes[0]->isConcrete ? nullptr : wantedTypes[0];
    std::vector<Expression*> elements;
    if (element) {
        for (const NodePtr& item : items) elements.push_back(checkInto(item, element));
    } else {
        for (const NodePtr& item : items) {
            elements.push_back(checkValue(item, wantedTypes.empty() ? nullptr : wantedTypes[0]));
            const Type* both = element ? unify(element, elements.back()->type) : elements.back()->type;
            if (!both)
                fail(*item, "The elements of a list have one type: expected " + element->structured + ", got " +
                                elements.back()->type->structured);
            element = both;
        }
        if (!element) {
            const char* example = isArray ? "Int[](0)" : "ArrayList<Int>()";
            fail(node, std::string("The type of an empty list is not known here: write it, as in ") + example);
        }
        if (element->kind == TypeKind::Null) element = types_.nullable(builtin(TypeKind::Object));
        for (std::size_t i = 0; i < items.size(); i++) elements[i] = coerce(elements[i], element, *items[i]);
    }
    if (isArray) return make<ArrayOf>(ExpressionKind::ArrayOf, types_.array(element), place, list(elements));
    const Type* listType = types_.classType(arrayList, {element});
    if (!listType->isConcrete) return typedOnly(listType, place);
    return collectInto(listType, elements, node);
}

Expression* Checker::checkMapLiteral(const AbstractNode& node, const Type* expected) {
    ClassDeclaration* hashMap = collectionClass(session_, "HashMap", node);
    const NodeVec& items = node.getChildren();
    std::vector<const Type*> types = wantedElements(expected, hashMap, types_);
    std::vector<Expression*> values;
    if (types.empty()) {
        types.assign(2, nullptr);
        for (std::size_t i = 0; i < items.size(); i++) {
            values.push_back(checkValue(items[i]));
            const Type*& type = types[i % 2];
            const Type* both = type ? unify(type, values.back()->type) : values.back()->type;
            if (!both)
                fail(*items[i], std::string(i % 2 ? "The values" : "The keys") + " of a map have one type: expected " +
                                    type->structured + ", got " + values.back()->type->structured);
            type = both;
        }
        if (!types[0]) fail(node, "The type of an empty map is not known here: write it, as in HashMap<String, Int>()");
        for (const Type*& type : types)
            if (type->kind == TypeKind::Null) type = types_.nullable(builtin(TypeKind::Object));
        for (std::size_t i = 0; i < items.size(); i++) values[i] = coerce(values[i], types[i % 2], *items[i]);
    } else {
        for (std::size_t i = 0; i < items.size(); i++) values.push_back(checkInto(items[i], types[i % 2]));
    }
    const Type* mapType = types_.classType(hashMap, types);
    if (!mapType->isConcrete) return typedOnly(mapType, placeOf(node));
    Expression* created = newCollection(mapType, node);
    if (values.empty()) return created;
    LocalVariable* map = newVariable("", created->type, created->place);
    std::vector<std::pair<LocalVariable*, Expression*>> steps{{map, created}};
    for (std::size_t i = 0; i + 1 < values.size(); i += 2) {
        ArgumentList arguments{{.node = nullptr, .name = {}, .token = node.token(), .value = values[i]},
                               {.node = nullptr, .name = {}, .token = node.token(), .value = values[i + 1]}};
        Expression* put = callChecked(readLocal(map, values[i]->place), "put", arguments, node);
        if (!put) fail(node, mapType->structured + " has no method 'put' for these types");
        steps.emplace_back(nullptr, put);
    }
    return wrapInLets(steps, readLocal(map, created->place));
}

// ---------------------------------------------------------------------------------------------------- names

Expression* Checker::checkName(const ValueExpressionNode& node, const Type* expected) {
    const Str& name = node.value();
    if (name.starts_with(TYPE_EXPRESSION_PREFIX)) fail(node, "A type is not a value");
    if (isSelfName(name)) {
        LocalVariable* self = selfVariable(node);
        return readLocal(self, placeOf(node));
    }
    if (name == "super") fail(node, "'super' stands only before a member");
    if (isTypePutIn(name, node)) fail(node, "'" + node.token()->getText() + "' is a type parameter, not a value");
    if (LocalVariable* local = findLocal(name, node)) return readLocal(local, placeOf(node));
    if (Expression* field = bareField(name, node)) return field;
    std::vector<FunctionDeclaration*> functions = functionsForUse(name, node);
    if (!functions.empty()) return functionValue(functions, node, expected);
    if (lookupClass(name, node.context())) fail(node, "'" + name + "' is a class, not a value");
    failUnknownName(name, node, "name");
}

Expression* Checker::functionValue(const std::vector<FunctionDeclaration*>& functions, const AbstractNode& node,
                                   const Type* expected) {
    const Type* wanted = expected ? withoutNull(expected) : nullptr;
    FunctionInstance* chosen = nullptr;
    for (FunctionDeclaration* function : functions) {
        if (function->generic) fail(node, "'" + function->name + "' is generic: only a call tells its types");
        FunctionInstance* instance = session_.instanceOf(*function);
        if (functions.size() == 1)
            chosen = instance;
        else if (wanted && wanted->kind == TypeKind::Function && wanted->arguments == instance->parameterTypes)
            chosen = instance;
    }
    if (!chosen)
        fail(node,
             "'" + functions[0]->name + "' is overloaded: the expected function type does not tell which one is meant");
    trackFile(chosen->file);
    const Type* type = types_.function(chosen->parameterTypes, returnTypeOf(*chosen));
    return make<FunctionValue>(ExpressionKind::FunctionValue, type, placeOf(node), chosen);
}

// Free functions of a name; two imported packages that both have it are a mistake.
std::vector<FunctionDeclaration*> Checker::functionsForUse(const std::string& name, const AbstractNode& node) {
    std::vector<FunctionDeclaration*> functions = lookupFunctions(name, node.context());
    bool isImported = !functions.empty() && functions[0]->file->package != "vesk" &&
                      (!function_ || functions[0]->file != function_->file);
    if (isImported)
        if (std::string ambiguity = ambiguityOf(name, node.context()); !ambiguity.empty()) fail(node, ambiguity);
    return functions;
}

void Checker::failUnknownIn(const std::string& qualified, const AbstractNode& node, const char* what) const {
    if (mayBeRefused(qualified, node.context())) throw Poisoned{};
    fail(node, "Unknown " + std::string(what) + " '" + qualified + "'");
}

void Checker::failUnknownName(const std::string& name, const AbstractNode& node, const char* what) {
    std::string ambiguity = ambiguityOf(name, node.context());
    if (!ambiguity.empty()) fail(node, ambiguity);
    bool isAhead = mode_ == CheckMode::Body && lookupVariable(name, node.context().get());
    if (isAhead) fail(node, "'" + name + "' is used before its declaration");
    const RefusedNames* refused = function_ && function_->node ? function_->node->refusedNames().get() : nullptr;
    if (mayBeRefused(name, node.context()) || (refused && refused->contains(name))) throw Poisoned{};
    if (!session_.mayBeShown(node.token())) fail(node, "Unknown " + std::string(what) + " '" + name + "'");
    const auto visibleNames = [&] {
        std::vector<std::string> names;
        // A default takes only the parameters that it names, and could name all those in front of it.
        if (function_ && function_->defaultOf) {
            const auto& all = function_->defaultOf->parameterNames;
            const auto earlier = std::min(all.size(), static_cast<std::size_t>(function_->defaultIndex));
            names.assign(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(earlier));
        }
        for (const VisibleLocal& local : visible_)
            if (!local.variable->name.empty()) names.emplace_back(local.variable->name);
        if (selfType_ && selfType_->declaration)
            for (const ClassDeclaration* cls = selfType_->declaration; cls; cls = cls->outer) {
                for (auto& field : cls->fields) names.push_back(field->name);
                for (auto& method : cls->methods) names.push_back(method->name);
            }
        std::vector<std::string> packages{"vesk"};
        if (function_ && function_->file) {
            for (const FunctionDeclaration* function : function_->file->functions) names.push_back(function->name);
            for (const ClassDeclaration* cls : function_->file->classes) names.push_back(cls->name);
            packages.insert(packages.end(), function_->file->imports.begin(), function_->file->imports.end());
            if (!function_->file->package.empty()) packages.push_back(function_->file->package);
        }
        for (const std::string& package : packages)
            for (const FileDeclaration* file : session_.filesOfPackage(package)) {
                for (const FunctionDeclaration* function : file->functions) names.push_back(function->name);
                for (const ClassDeclaration* cls : file->classes) names.push_back(cls->name);
            }
        return names;
    };
    const std::string purpose = mode_ == CheckMode::Body ? "body" : "inference";  // which knows fewer locals
    fail(node, "Unknown " + std::string(what) + " '" + name + "'" +
                   nearMatchHintAt(session_, node.token(), name, purpose, visibleNames));
}

// -------------------------------------------------------------------------------------------- other kinds

Expression* Checker::checkConditional(const AbstractNode& node, const Type* expected, ExpectedAs as) {
    const NodeVec& parts = node.getChildren();
    Expression* condition = checkInto(parts[0], builtin(TypeKind::Bool));
    if (expected && expected->kind == TypeKind::Void) expected = nullptr;
    auto branch = [&](const NodePtr& part) {
        return as == ExpectedAs::Hint ? checkOperand(part, expected) : check(part, expected);
    };
    Expression* first = branch(parts[1]);
    Expression* second = branch(parts[2]);
    const Type* type = nullptr;
    if (first->type->isVoid() && second->type->isVoid()) type = first->type;
    bool fitsExpected =
        expected && accepts(parts[1].get(), first, expected) && accepts(parts[2].get(), second, expected);
    // A number is wanted as it is, unless it is computed with first; whatever else is wanted, the branches first meet in a
    // type of their own.
    if (!type && fitsExpected && as == ExpectedAs::Result && withoutNull(expected)->isScalar()) type = expected;
    // A literal takes the type of the other branch.
    if (!type && integerLiteralOf(parts[1].get()) && accepts(parts[1].get(), first, second->type)) type = second->type;
    if (!type && integerLiteralOf(parts[2].get()) && accepts(parts[2].get(), second, first->type)) type = first->type;
    if (!type && !(fitsExpected && expected->kind == TypeKind::Function)) type = unify(first->type, second->type);
    if (!type && fitsExpected) type = expected;
    if (!type)
        fail(node, "The branches have the types " + first->type->structured + " and " + second->type->structured);
    return make<Conditional>(ExpressionKind::Conditional, type, placeOf(node), condition,
                             coerce(first, type, *parts[1]), coerce(second, type, *parts[2]));
}

Expression* Checker::checkIndex(const IndexExpressionNode& node) {
    Expression* object = withoutNullReceiver(checkValue(node.object()));
    if (object->type->kind == TypeKind::Array) {
        Expression* index = checkInto(node.index(), builtin(TypeKind::Int));
        return make<ElementRead>(ExpressionKind::ElementRead, object->type->element(), placeOf(node), object, index);
    }
    ArgumentList arguments{{.node = node.index(), .name = {}, .token = node.index()->token()}};
    if (methodsNamed(object->type, "operator[]").empty()) fail(node, object->type->structured + " cannot be indexed");
    if (Expression* call = callChecked(object, "operator[]", arguments, node)) return call;
    fail(node, object->type->structured + " cannot be indexed with " + arguments[0].value->type->structured);
}

}  // namespace vesk::compiler
