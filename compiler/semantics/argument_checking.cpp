// Arguments of calls: which parameter each one meets, which overload accepts them, and how they are evaluated.
#include <algorithm>
#include <atomic>

#include "host/inference_services.h"
#include "semantics/body_checking.h"
#include "semantics/checker.h"
#include "semantics/overload_ranking.h"
#include "semantics/request_chain.h"

namespace vesk::compiler {

ArgumentList Checker::argumentsOf(const NodeVec& nodes) {
    ArgumentList arguments;
    arguments.reserve(nodes.size());
    bool sawName = false;
    for (const NodePtr& node : nodes) {
        if (node->getKind() == NodeKind::NamedArgument) {
            auto& named = static_cast<const NamedArgumentNode&>(*node);
            // The node's own name outlives the checking of the call.
            arguments.push_back(
                {.node = named.value(), .name = body_.arena.copy(named.getName()), .token = node->token()});
            sawName = true;
        } else {
            if (sawName) fail(*node, "A positional argument cannot follow a named one");
            arguments.push_back({.node = node, .name = {}, .token = node->token()});
        }
    }
    return arguments;
}

void Checker::checkArguments(ArgumentList& arguments) {
    for (Argument& argument : arguments)
        if (!argument.value) argument.value = checkValue(argument.node);
}

bool Checker::bind(const ArgumentList& arguments, const FunctionInstance& function, BoundArguments& bound) const {
    std::size_t count = function.parameterTypes.size();
    bool isPlain =
        !function.isVariadic && !function.isNamedVariadic &&
        std::all_of(arguments.begin(), arguments.end(), [](const Argument& argument) { return argument.name.empty(); });
    bound = {};
    if (isPlain) {
        if (arguments.size() > count) return false;
        bound.parameterToArgument.assign(count, -1);
        bound.argumentToParameter.resize(arguments.size());
        for (std::size_t i = 0; i < arguments.size(); i++)
            bound.parameterToArgument[i] = bound.argumentToParameter[i] = static_cast<int>(i);
    } else {
        std::vector<CallArgInfo> infos;
        for (const Argument& argument : arguments) infos.push_back({argument.node, Str(argument.name)});
        CallArgumentBinding binding;
        if (!bindCallArgInfos(infos, function.parameterNames, count, function.isVariadic, function.variadicIndex,
                              function.isNamedVariadic, function.namedVariadicIndex, binding))
            return false;
        bound.parameterToArgument = std::move(binding.paramToArg);
        bound.argumentToParameter = std::move(binding.argToParam);
        bound.variadic = std::move(binding.variadicArgs);
        bound.namedVariadic = std::move(binding.namedVariadicArgs);
        bound.parameterToArgument.resize(count, -1);
        bound.argumentToParameter.resize(arguments.size(), -1);
        for (int argument : bound.variadic)
            bound.argumentToParameter[static_cast<std::size_t>(argument)] = function.variadicIndex;
        for (int argument : bound.namedVariadic)
            bound.argumentToParameter[static_cast<std::size_t>(argument)] = function.namedVariadicIndex;
        if (function.isVariadic) bound.parameterToArgument[static_cast<std::size_t>(function.variadicIndex)] = -1;
        if (function.isNamedVariadic)
            bound.parameterToArgument[static_cast<std::size_t>(function.namedVariadicIndex)] = -1;
    }
    for (std::size_t i = 0; i < count; i++) {
        if (bound.parameterToArgument[i] >= 0) continue;
        bool isCollected = (function.isVariadic && static_cast<int>(i) == function.variadicIndex) ||
                           (function.isNamedVariadic && static_cast<int>(i) == function.namedVariadicIndex);
        if (isCollected) continue;
        if (!function.node || i >= function.node->getParams().size() || !function.node->getParams()[i].hasDefault)
            return false;
    }
    return true;
}

// The type an argument is wanted as: its parameter's, or the element's where a variadic parameter collects it.
const Type* Checker::wantedBy(const FunctionInstance& function, const BoundArguments& bound,
                              std::size_t argument) const {
    int parameter = bound.argumentToParameter[argument];
    const Type* type = function.parameterTypes[static_cast<std::size_t>(parameter)];
    bool isCollected = (function.isVariadic && parameter == function.variadicIndex) ||
                       (function.isNamedVariadic && parameter == function.namedVariadicIndex);
    if (!isCollected) return type;
    return type->arguments.empty() ? builtin(TypeKind::Object) : type->arguments.back();
}

namespace {

bool isPlainLiteral(const AbstractNode& node, int depth) {
    if (depth > 64) return false;
    switch (node.getKind()) {
        case NodeKind::Literal:
        case NodeKind::StringLiteral:
        case NodeKind::Value: return true;
        case NodeKind::Operator:
        case NodeKind::ListLiteral:
        case NodeKind::MapLiteral:
            return std::all_of(node.getChildren().begin(), node.getChildren().end(),
                               [&](const NodePtr& child) { return isPlainLiteral(*child, depth + 1); });
        default: return false;
    }
}

}  // namespace

// A list or map of plain values may be checked again as what its parameter wants.
bool Checker::isArrayLiteralFor(const AbstractNode* node, const Type* target) const {
    if (!node || (node->getKind() != NodeKind::ListLiteral && node->getKind() != NodeKind::MapLiteral)) return false;
    const Type* plain = withoutNull(target);
    return (plain->kind == TypeKind::Array || plain->kind == TypeKind::Class) && isPlainLiteral(*node, 0);
}

namespace {

// Whether a list literal of that element type may become an array or a list of the other; numbers in it may be literals.
bool elementsFit(const Type* target, const Type* list) {
    if (list->arguments.size() != 1 || target->arguments.size() != 1) return false;
    if (target->kind != TypeKind::Array && target->kind != TypeKind::Class) return false;
    const Type* wanted = target->arguments[0];
    const Type* element = list->arguments[0];
    return isAssignable(wanted, element) || (element->kind == TypeKind::Int && wanted->isNumeric()) ||
           elementsFit(withoutNull(wanted), element);
}

bool isEmptyCollectionLiteral(const AbstractNode* node) {
    return node && node->getChildren().empty() &&
           (node->getKind() == NodeKind::ListLiteral || node->getKind() == NodeKind::MapLiteral);
}

}  // namespace

bool Checker::acceptsArguments(const FunctionInstance& function, const ArgumentList& arguments,
                               const BoundArguments& bound) const {
    for (std::size_t i = 0; i < arguments.size(); i++) {
        const Type* wanted = wantedBy(function, bound, i);
        if (accepts(arguments[i].node.get(), arguments[i].value, wanted)) continue;
        if (!isArrayLiteralFor(arguments[i].node.get(), wanted) ||
            !elementsFit(withoutNull(wanted), arguments[i].value->type))
            return false;
    }
    return true;
}

void Checker::coerceArguments(const FunctionInstance& function, ArgumentList& arguments, const BoundArguments& bound,
                              const AbstractNode& call) {
    // A header that names what is not there has its own message. Variadic parameters that collect nothing count, too.
    const auto& types = function.parameterTypes;
    if (!std::all_of(types.begin(), types.end(), [](const Type* type) { return type->isConcrete; })) {
        session_.checkLoadedDeclarations();
        if (session_.hasErrors()) throw Poisoned{};
    }
    for (std::size_t i = 0; i < arguments.size(); i++) {
        Argument& argument = arguments[i];
        const Type* wanted = wantedBy(function, bound, i);
        if (!argument.value)
            argument.value = check(argument.node, wanted);
        else if (!isAssignable(wanted, argument.value->type) && isArrayLiteralFor(argument.node.get(), wanted))
            argument.value = check(argument.node, wanted);
        argument.value = coerce(argument.value, wanted, argument.node ? *argument.node : call);
    }
}

namespace {

constexpr std::size_t MOST_CANDIDATES = 10;  // shown below an error, so that the error is found

}  // namespace

// An empty list or map tells nothing about its type: it takes the one that all overloads want which want a collection.
void Checker::checkEmptyLiterals(const std::vector<FunctionInstance*>& fitting,
                                 const std::vector<BoundArguments>& bindings, ArgumentList& arguments) {
    for (std::size_t i = 0; i < arguments.size(); i++) {
        if (arguments[i].value || !isEmptyCollectionLiteral(arguments[i].node.get())) continue;
        const Type* only = nullptr;
        bool isAmbiguous = false;
        for (std::size_t j = 0; j < fitting.size(); j++) {
            const Type* wanted = wantedBy(*fitting[j], bindings[j], i);
            const Type* plain = withoutNull(wanted);
            if (plain->arguments.size() != (arguments[i].node->getKind() == NodeKind::ListLiteral ? 1u : 2u)) continue;
            if (plain->kind != TypeKind::Array && plain->kind != TypeKind::Class) continue;
            isAmbiguous |= only && only != wanted;
            only = wanted;
        }
        if (only && !isAmbiguous) arguments[i].value = check(arguments[i].node, only);
    }
}

FunctionInstance* Checker::chooseOverload(const std::vector<FunctionInstance*>& overloads, ArgumentList& arguments,
                                          BoundArguments& bound, const CallSite& site, bool mayFail) {
    std::vector<FunctionInstance*> fitting;
    std::vector<BoundArguments> bindings;
    for (FunctionInstance* overload : overloads) {
        BoundArguments candidate;
        if (!bind(arguments, *overload, candidate)) continue;
        fitting.push_back(overload);
        bindings.push_back(std::move(candidate));
    }
    if (fitting.empty()) {
        if (mayFail) return nullptr;
        if (overloads.size() == 1) failArity(*overloads[0], arguments, site);
    }
    if (fitting.size() == 1 && !mayFail) {
        bound = std::move(bindings[0]);
        coerceArguments(*fitting[0], arguments, bound, site.node);
        return fitting[0];
    }
    checkEmptyLiterals(fitting, bindings, arguments);
    checkArguments(arguments);
    std::vector<RankedOverload> ranked;
    std::vector<std::size_t> positions;
    for (std::size_t i = 0; i < fitting.size(); i++) {
        if (!acceptsArguments(*fitting[i], arguments, bindings[i])) continue;
        RankedOverload entry{fitting[i], {}};
        for (int argument : bindings[i].parameterToArgument)
            entry.argumentTypes.push_back(argument < 0 ? nullptr
                                                       : arguments[static_cast<std::size_t>(argument)].value->type);
        ranked.push_back(std::move(entry));
        positions.push_back(i);
    }
    if (ranked.empty() && mayFail) return nullptr;
    std::string argumentTypes;
    auto withCandidates = [&](std::string message, const std::vector<FunctionInstance*>& candidates) {
        CheckMistake mistake(site.token, std::move(message));
        for (std::size_t i = 0; i < std::min(candidates.size(), MOST_CANDIDATES); i++)
            mistake.addNote({"candidate: " + signatureText(*candidates[i]),
                             candidates[i]->node ? candidates[i]->node->nameToken() : nullptr});
        if (candidates.size() > MOST_CANDIDATES)
            mistake.addNote({"and " + std::to_string(candidates.size() - MOST_CANDIDATES) + " more", nullptr});
        return mistake;
    };
    for (const Argument& argument : arguments)
        argumentTypes += (argumentTypes.empty() ? "" : ", ") +
                         (argument.name.empty() ? "" : std::string(argument.name) + " = ") +
                         argument.value->type->structured;
    if (ranked.empty() && mayHaveRefusedOverload(*overloads[0])) throw Poisoned{};
    if (ranked.empty())
        throw withCandidates("No overload of '" + site.name + "' accepts (" + argumentTypes + ")", overloads);
    std::optional<std::size_t> best = bestOverload(ranked, arguments.size());
    if (!best) {
        std::vector<FunctionInstance*> candidates;
        for (std::size_t position : positions) candidates.push_back(fitting[position]);
        throw withCandidates("Ambiguous call of '" + site.name + "' with (" + argumentTypes + ")", candidates);
    }
    bound = std::move(bindings[positions[*best]]);
    coerceArguments(*fitting[positions[*best]], arguments, bound, site.node);
    return fitting[positions[*best]];
}

std::string signatureText(const FunctionInstance& function) {
    std::string text = function.shownName() + "(";
    for (std::size_t i = 0; i < function.parameterTypes.size(); i++) {
        if (i) text += ", ";
        bool isList = function.isVariadic && static_cast<int>(i) == function.variadicIndex;
        bool isMap = function.isNamedVariadic && static_cast<int>(i) == function.namedVariadicIndex;
        const Type* type = function.parameterTypes[i];
        if ((isList || isMap) && !type->arguments.empty()) type = type->arguments.back();
        text += isList ? "*" : isMap ? "**" : "";
        text += (i < function.parameterNames.size() ? function.parameterNames[i] : "arg" + std::to_string(i)) + ": " +
                type->structured;
        if (function.node && i < function.node->getParams().size() && function.node->getParams()[i].hasDefault)
            text += " = ...";
    }
    text += ")";
    bool isConstructor = function.kind == InstanceKind::Constructor;
    const Type* returnType =
        std::atomic_ref(const_cast<const Type*&>(function.returnType)).load(std::memory_order_acquire);
    if (returnType && !isConstructor) text += " -> " + returnType->structured;
    return text;
}

bool Checker::mayHaveRefusedOverload(const FunctionInstance& function) {
    if (!function.node) return false;
    const Str name = writtenName(function);
    if (function.owner) return mayHaveRefusedMember(function.owner, name);
    if (!function.file) return false;
    const std::string& package = function.file->package;
    return mayBeRefused(package.empty() ? name : package + "." + name, function.file->context);
}

void Checker::failArity(const FunctionInstance& function, const ArgumentList& arguments, const CallSite& site) const {
    if (mayHaveRefusedOverload(function)) throw Poisoned{};
    bool isConstructor = function.kind == InstanceKind::Constructor;
    std::string name = isConstructor ? "constructor of " + function.owner->structured
                                     : (function.owner ? "method " : "function ") + function.shownName();
    std::string message = name + " expects " + std::to_string(function.parameterTypes.size()) +
                          (function.parameterTypes.size() == 1 && function.owner ? " argument" : " arguments") +
                          " (got " + std::to_string(arguments.size()) + ")";
    std::unordered_set<std::string_view> seen;
    for (std::size_t i = 0; i < arguments.size(); i++) {
        const Argument& argument = arguments[i];
        if (argument.name.empty()) continue;
        auto named = std::find(function.parameterNames.begin(), function.parameterNames.end(), argument.name);
        auto position = named - function.parameterNames.begin();
        bool isTwice = named != function.parameterNames.end() && position < static_cast<std::ptrdiff_t>(i) &&
                       (arguments[static_cast<std::size_t>(position)].name.empty());
        isTwice |= !seen.insert(argument.name).second;
        if (named == function.parameterNames.end() && !function.isNamedVariadic) {
            message = name + " has no parameter '" + std::string(argument.name) + "'" +
                      nearMatchHint(argument.name, function.parameterNames);
            break;
        }
        if (isTwice) {
            message = "The parameter '" + std::string(argument.name) + "' of " + name + " is given twice";
            break;
        }
    }
    CheckMistake mistake(site.token, message);
    mistake.addNote({"declared as " + signatureText(function), function.node ? function.node->nameToken() : nullptr});
    throw mistake;
}

// -------------------------------------------------------------------------------------------- evaluating

// The constant that a default of one literal is, null for every other default.
Expression* Checker::literalDefault(const FunctionInstance& target, std::size_t parameter, Place place) {
    const TokenVec& tokens = target.node->getParams()[parameter].defaultValueTokens;
    const Type* type = target.parameterTypes[parameter];
    const Type* plain = withoutNull(type);
    if (tokens.size() == 1 && tokens[0]->getType() == TokenType::Keyword) {
        const Str& word = tokens[0]->getText();
        if ((word == "true" || word == "false") && type->kind == TypeKind::Bool) return boolean(word == "true", place);
        if (word == "null" && type->kind == TypeKind::Nullable) return convertAssignable(nullValue(place), type);
        return nullptr;
    }
    if (tokens.size() == 1 && tokens[0]->getType() == TokenType::String && type->kind == TypeKind::String) {
        std::string_view quoted = tokens[0]->getText();
        if (quoted.find('\\') == std::string_view::npos) return text(quoted.substr(1, quoted.size() - 2), place);
        return nullptr;
    }
    bool isNegative = tokens.size() == 2 && tokens[0]->getText() == "-";
    if (tokens.size() != 1 && !isNegative) return nullptr;
    if (tokens.back()->getType() == TokenType::Integer && plain->isNumeric()) {
        std::optional<IntegerLiteral> literal = parseIntegerLiteral(tokens.back()->getText());
        if (!literal) return nullptr;
        literal->isNegative = isNegative && literal->magnitude != 0;
        if (!literalTakes(*literal, plain->kind)) return nullptr;
        return convertAssignable(integerConstant(*literal, plain, place), type);
    }
    if (tokens.back()->getType() == TokenType::Floating && plain->kind == TypeKind::Double) {
        std::optional<FloatingLiteral> literal = parseFloatingLiteral(tokens.back()->getText());
        if (!literal || literal->isFloat) return nullptr;
        Expression* number = make<FloatingConstant>(ExpressionKind::FloatingConstant, plain, place,
                                                    isNegative ? -literal->value : literal->value);
        return convertAssignable(number, type);
    }
    return nullptr;
}

Expression* Checker::arrange(const Target& target, ArgumentList& arguments, const BoundArguments& bound,
                             const CallSite& site) {
    FunctionInstance& function = *target.function;
    Place place = placeOf(site.token);
    std::size_t count = function.parameterTypes.size();
    std::vector<Expression*> values(count, nullptr);
    bool isInOrder = true, hasDefaults = false;
    for (std::size_t i = 0; i + 1 < arguments.size(); i++)
        isInOrder &= bound.argumentToParameter[i] <= bound.argumentToParameter[i + 1];
    for (std::size_t i = 0; i < count; i++) {
        if (bound.parameterToArgument[i] >= 0) continue;
        bool isCollected = (function.isVariadic && static_cast<int>(i) == function.variadicIndex) ||
                           (function.isNamedVariadic && static_cast<int>(i) == function.namedVariadicIndex);
        if (isCollected) continue;
        values[i] = literalDefault(function, i, place);
        hasDefaults |= !values[i];
    }

    // Every argument is evaluated once, as written, before a default sees it.
    std::vector<std::pair<LocalVariable*, Expression*>> lets;
    Expression* receiver = target.receiver;
    if (!isInOrder || hasDefaults) {
        if (receiver) receiver = once(receiver, lets);
        for (Argument& argument : arguments) argument.value = once(argument.value, lets);
    }
    for (std::size_t i = 0; i < arguments.size(); i++) {
        auto parameter = static_cast<std::size_t>(bound.argumentToParameter[i]);
        if (bound.parameterToArgument[parameter] == static_cast<int>(i)) values[parameter] = arguments[i].value;
    }
    auto settle = [&](Expression* value) { return !isInOrder || hasDefaults ? once(value, lets) : value; };
    if (function.isVariadic) {
        std::vector<Expression*> elements;
        for (int argument : bound.variadic) elements.push_back(arguments[static_cast<std::size_t>(argument)].value);
        auto position = static_cast<std::size_t>(function.variadicIndex);
        values[position] = settle(collectInto(function.parameterTypes[position], elements, site.node));
    }
    if (function.isNamedVariadic) {
        auto position = static_cast<std::size_t>(function.namedVariadicIndex);
        const Type* mapType = function.parameterTypes[position];
        ClassDeclaration* hashMap = session_.classNamed("vesk.collections.HashMap");
        if (!hashMap) fail(site.token, "This needs HashMap of package vesk.collections, which cannot be loaded");
        Expression* created = newCollection(types_.classType(hashMap, mapType->arguments), site.node);
        LocalVariable* map = newVariable("", created->type, place);
        std::vector<std::pair<LocalVariable*, Expression*>> steps{{map, created}};
        for (int index : bound.namedVariadic) {
            Argument& argument = arguments[static_cast<std::size_t>(index)];
            ArgumentList entry{{.node = nullptr, .name = {}, .token = site.token, .value = text(argument.name, place)},
                               {.node = nullptr, .name = {}, .token = site.token, .value = argument.value}};
            Expression* put = callChecked(readLocal(map, place), "put", entry, site.node);
            if (!put) fail(site.token, created->type->structured + " has no method 'put' for these types");
            steps.emplace_back(nullptr, put);
        }
        values[position] = settle(convertAssignable(wrapInLets(steps, readLocal(map, place)), mapType));
    }
    std::unordered_map<std::string_view, std::size_t> positions;
    for (std::size_t i = 0; hasDefaults && i < std::min(count, function.parameterNames.size()); i++)
        positions.try_emplace(function.parameterNames[i], i);
    for (std::size_t i = 0; i < count; i++) {
        if (values[i]) continue;
        FunctionInstance* defaultValue = session_.defaultValueOf(function, i);
        if (!defaultValue) fail(site.token, "The default of '" + function.parameterNames[i] + "' cannot be used here");
        noteRequest(*defaultValue, site.token);
        std::vector<Expression*> earlier;
        if (defaultValue->hasSelf)
            earlier.push_back(receiver ? receiver
                                       : conversion(ConversionKind::Reference, nullValue(place), function.owner));
        for (const std::string& name : defaultValue->parameterNames) earlier.push_back(values[positions.at(name)]);
        Expression* value = make<Call>(ExpressionKind::Call, function.parameterTypes[i], place, defaultValue,
                                       list(earlier), Dispatch::Direct, true);
        values[i] = once(value, lets);
    }

    noteRequest(function, site.token);
    trackFile(function.file);
    Expression* result;
    if (target.newObject) {
        FunctionInstance* initializer = session_.fieldInitializerOf(target.newObject);
        if (initializer) noteRequest(*initializer, site.token);
        result =
            make<NewObject>(ExpressionKind::NewObject, target.newObject, place, initializer, &function, list(values));
    } else {
        if (receiver) values.insert(values.begin(), receiver);
        result = make<Call>(ExpressionKind::Call, returnTypeOf(function), place, &function, list(values),
                            target.dispatch, target.receiverIsSelf);
    }
    return wrapInLets(lets, result);
}

// Remembers the first call that asked for a member of an instantiation: an error inside it shows the way there.
void Checker::noteRequest(FunctionInstance& target, const TokenPtr& token) {
    if (mode_ == CheckMode::Body) requested_.push_back(&target);
    bool isInstantiated =
        target.linkage == InstanceLinkage::OnDemand && target.owner && !target.owner->arguments.empty();
    if (!isInstantiated || mode_ == CheckMode::Inference) return;
    std::lock_guard lock(session_.modelMutex());
    if (target.requestToken) return;
    for (const FunctionInstance* requester = function_; requester; requester = requester->requester)
        if (requester == &target) return;
    target.requestToken = token;
    if (!target.requester && function_ != &target) target.requester = function_;
    if (target.requester) target.requestDepth = target.requester->requestDepth + 1;
    identifyMember(target);
    admitRequest(session_, target);
}

// The methods of a new object may all be called, through its table, without a call that names them. Those of the library
// are right for whatever their class takes: they need not be known before code is made.
void Checker::noteConstruction(const Type* type, const TokenPtr& token) {
    if (!type->declaration || type->declaration->file->isStandardLibrary) return;
    const ClassLayout& layout = session_.layoutOf(type);
    if (!layout.isOnDemand || !requestedLayouts_.insert(&layout).second) return;
    for (FunctionInstance* method : layout.declared)
        if (layout.methodAt(static_cast<std::size_t>(method->slot)) == method) noteRequest(*method, token);
}

}  // namespace vesk::compiler
