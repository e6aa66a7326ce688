// Concrete functions of declarations: one record per declaration and owner type, with its symbol and its types.
// Symbols: vesk_f_<qualified name>, vesk_m_<owner>.<name>, with "__P_" and the parameter types behind it when there are
// any, so that overloads differ and a symbol does not depend on what else is declared; vesk_i_ (field initializers),
// vesk_u_ (unit initializers), vesk_s_ (static fields), vesk_c_ (class records). Natives have the run-time's names.
#include <algorithm>

#include "generics/typetext/symbol_mangling.h"
#include "semantics/session_tables.h"
#include "semantics/type_flattening.h"

namespace vesk::compiler {

namespace {

constexpr std::size_t MAX_PARAMETER_PART = 160;

std::string parameterPart(const std::vector<const Type*>& types) {
    if (types.empty()) return {};
    std::string part;
    for (const Type* type : types) {
        if (!part.empty()) part += "_c";
        part += encodeTypeForName(*type);
    }
    if (part.size() > MAX_PARAMETER_PART) part = "_h" + fnv1a64Hex(part);
    return "__P_" + part;
}

void fillFromNode(FunctionInstance& made, const std::shared_ptr<CallableDeclarationNode>& node,
                  ResolvedSignature signature) {
    made.node = node;
    made.parameterTypes = std::move(signature.parameterTypes);
    made.returnType = signature.returnType;
    const TokenPtr& token = node->token();
    if (token) {
        made.line = token->getLine();
        made.sourcePath = token->getFilename();
    }
    for (std::size_t i = 0; i < node->getParams().size(); i++) {
        const FunctionParam& parameter = node->getParams()[i];
        made.parameterNames.push_back(parameter.name);
        if (parameter.isVariadic) {
            made.isVariadic = true;
            made.variadicIndex = static_cast<int>(i);
        }
        if (parameter.isNamedVariadic) {
            made.isNamedVariadic = true;
            made.namedVariadicIndex = static_cast<int>(i);
        }
    }
}

// Position among the native overloads of one name, from 1.
template <class Range, class IsOne>
std::size_t nativeOrdinal(const Range& range, IsOne isOne) {
    std::size_t ordinal = 0;
    for (const auto& each : range) {
        if (!each->node->isNative()) continue;
        ordinal++;
        if (isOne(*each)) return ordinal;
    }
    return ordinal + 1;
}

std::string nativeFunctionSymbol(CompileSession& session, const FunctionDeclaration& function) {
    std::string symbol = function.file->package;
    std::replace(symbol.begin(), symbol.end(), '.', '_');
    symbol += (symbol.empty() ? "" : "_") + mangleMethodName(function.name);
    std::size_t ordinal = nativeOrdinal(session.functionsNamed(function.file->package, function.name),
                                        [&](const FunctionDeclaration& each) { return &each == &function; });
    return ordinal > 1 ? symbol + "__dup" + std::to_string(ordinal) : symbol;
}

std::string nativeMethodSymbol(CompileSession& session, const MethodDeclaration& method, const Type* owner) {
    std::vector<const MethodDeclaration*> sameName;
    for (const auto& each : method.owner->methods)
        if (each->name == method.name) sameName.push_back(each.get());
    std::size_t ordinal = nativeOrdinal(sameName, [&](const MethodDeclaration& each) { return &each == &method; });
    return nativeMethodTargetSymbol(session.rootContext(), owner->text, method.name, ordinal, nullptr);
}

bool isOnDemandOwner(const Type* owner) { return owner->kind == TypeKind::Class && !owner->arguments.empty(); }

bool hasStaticInitializer(const ClassDeclaration& declaration) {
    for (const auto& field : declaration.fields)
        if (field->isStatic && field->node->getInitializer()) return true;
    return std::any_of(declaration.nested.begin(), declaration.nested.end(),
                       [](const ClassDeclaration* nested) { return hasStaticInitializer(*nested); });
}

// The earlier parameters that a default's text may mean, in order.
std::set<std::size_t> earlierParametersIn(CompileSession::State& state, const FunctionInstance& function,
                                          std::size_t parameter) {
    const auto [known, isNew] = state.parameterPositions.try_emplace(&function);
    auto& positions = known->second;
    const std::size_t count = std::min(function.parameterNames.size(), function.parameterTypes.size());
    for (std::size_t i = 0; isNew && i < count; i++) positions.try_emplace(function.parameterNames[i], i);
    std::set<std::size_t> mentioned;
    if (!function.node || parameter >= function.node->getParams().size()) return mentioned;
    for (const TokenPtr& token : function.node->getParams()[parameter].defaultValueTokens) {
        // A clause belongs to its name's token.
        const std::string_view text = token->getText();
        const auto found = positions.find(text.substr(0, text.find('<')));
        if (found != positions.end() && found->second < parameter) mentioned.insert(found->second);
    }
    return mentioned;
}

}  // namespace

std::string shortDisplay(const Type* type) {
    if (type->kind != TypeKind::Class) return type->structured;
    std::size_t packageLength = type->declaration->package.empty() ? 0 : type->declaration->package.size() + 1;
    return type->structured.substr(std::min(packageLength, type->structured.size()));
}

// Members of instantiations are made by the thousand, and few of them are ever shown.
std::string FunctionInstance::shownName() const {
    if (!displayName.empty() || !owner) return displayName;
    return node ? shortDisplay(owner) + "." + node->name() : shortDisplay(owner);
}

const TokenPtr& placeOfResult(const CallableDeclarationNode& node) {
    if (node.returnTypeToken()) return node.returnTypeToken();
    return node.nameToken() ? node.nameToken() : node.token();
}

ResolvedSignature resolveSignature(const CallableDeclarationNode& node, const TypeEnvironment* environment) {
    ResolvedSignature signature;
    const ContextPtr& scope = node.context();
    for (const FunctionParam& parameter : node.getParams()) {
        TokenPtr token = parameter.token ? parameter.token : node.nameToken() ? node.nameToken() : node.token();
        const Type* type = resolveDeclaredType(declaredParameterType(parameter), scope, token, environment);
        if (type->isVoid()) throw compileError(token, "A parameter cannot have type Void");
        signature.parameterTypes.push_back(type);
    }
    if (!node.returnType().empty())
        signature.returnType = resolveDeclaredType(node.returnType(), scope, placeOfResult(node), environment);
    else if (!node.hasBody())
        signature.returnType = CompileSession::current().types().builtin(TypeKind::Void);
    return signature;
}

FunctionInstance* CompileSession::instanceOf(FunctionDeclaration& function) {
    std::lock_guard lock(state_->modelMutex);
    if (auto known = state_->functionInstances.find(&function); known != state_->functionInstances.end())
        return known->second;
    ScopedCompileSession scope(*this);
    ResolvedSignature signature = resolveSignature(*function.node, nullptr);
    FunctionInstance& made = state_->instances.emplace_back();
    made.kind = InstanceKind::Function;
    made.linkage = function.isNative() ? InstanceLinkage::Native : InstanceLinkage::Unit;
    made.symbol = function.isNative() ? nativeFunctionSymbol(*this, function)
                                      : "vesk_f_" + function.qualifiedName + parameterPart(signature.parameterTypes);
    made.displayName = function.name;
    made.file = function.file;
    fillFromNode(made, function.node, std::move(signature));
    made.sourcePath = function.file->path;
    state_->functionInstances.emplace(&function, &made);
    return &made;
}

FunctionInstance* CompileSession::instanceOf(MethodDeclaration& method, const Type* owner) {
    std::lock_guard lock(state_->modelMutex);
    // Static members belong to the class, whatever instantiation names it.
    if (method.isStatic) owner = state_->types.classType(method.owner, {});
    auto key = std::make_pair(static_cast<const MethodDeclaration*>(&method), owner);
    if (auto known = state_->methodInstances.find(key); known != state_->methodInstances.end()) return known->second;
    ScopedCompileSession scope(*this);
    TypeEnvironment environment = environmentOf(owner);
    ResolvedSignature signature = resolveSignature(*method.node, &environment);
    if (method.isConstructor) signature.returnType = state_->types.builtin(TypeKind::Void);
    FunctionInstance& made = state_->instances.emplace_back();
    made.kind = method.isConstructor ? InstanceKind::Constructor : InstanceKind::Method;
    made.linkage = method.isNative          ? InstanceLinkage::Native
                   : isOnDemandOwner(owner) ? InstanceLinkage::OnDemand
                                            : InstanceLinkage::Unit;
    made.owner = owner;
    made.hasSelf = !method.isStatic;
    made.symbol = method.isNative ? nativeMethodSymbol(*this, method, owner)
                                  : "vesk_m_" + owner->text + "." + mangleMethodName(method.name) +
                                        parameterPart(signature.parameterTypes);
    made.symbol.shrink_to_fit();
    made.file = method.owner->file;
    fillFromNode(made, method.node, std::move(signature));
    made.sourcePath = method.owner->file->path;
    state_->methodInstances.emplace(key, &made);
    // The layout gives dispatched methods their slots.
    bool isRaw = owner->kind == TypeKind::Class && owner->arguments.empty() && method.owner->isGeneric();
    if (takesPartInDispatch(method) && !isRaw && !state_->layouts.count(owner) &&
        !state_->layoutsUnderWay.count(owner)) {
        try {
            layoutOf(owner);
        } catch (const CompilerException& error) {
            report(error);
        }
    }
    return &made;
}

FunctionInstance* CompileSession::defaultValueOf(FunctionInstance& function, std::size_t parameter) {
    std::lock_guard lock(state_->modelMutex);
    auto key = std::make_pair(static_cast<const FunctionInstance*>(&function), parameter);
    if (auto known = state_->defaultValues.find(key); known != state_->defaultValues.end()) return known->second;
    FunctionInstance& made = state_->instances.emplace_back();
    made.kind = InstanceKind::DefaultValue;
    // Natives have no module of their own that could hold the default.
    made.linkage = function.linkage == InstanceLinkage::Native ? InstanceLinkage::OnDemand : function.linkage;
    made.symbol = (function.linkage == InstanceLinkage::Native ? "vesk_d_" + function.symbol : function.symbol) +
                  ".default" + std::to_string(parameter);
    made.displayName = function.displayName;
    made.node = function.node;
    made.owner = function.owner;
    made.hasSelf = function.hasSelf && function.kind != InstanceKind::Constructor;
    for (const std::size_t position : earlierParametersIn(*state_, function, parameter)) {
        made.parameterTypes.push_back(function.parameterTypes[position]);
        made.parameterNames.push_back(function.parameterNames[position]);
    }
    made.returnType = parameter < function.parameterTypes.size() ? function.parameterTypes[parameter] : nullptr;
    made.file = function.file;
    made.sourcePath = function.sourcePath;
    made.line = function.line;
    made.defaultIndex = static_cast<int>(parameter);
    made.defaultOf = &function;
    made.requester = function.requester;
    made.requestToken = function.requestToken;
    made.requestDepth = function.requestDepth;
    // What its default asks for, the function asks for.
    made.requestedDeclaration = function.requestedDeclaration;
    made.requestedWith = function.requestedWith;
    made.isGrowing = function.isGrowing;
    state_->defaultValues.emplace(key, &made);
    return &made;
}

FunctionInstance* CompileSession::fieldInitializerOf(const Type* owner) {
    if (FunctionInstance* const* known = knownAt(owner->knownFieldInitializer)) return *known;
    std::lock_guard lock(state_->modelMutex);
    if (auto known = state_->fieldInitializers.find(owner); known != state_->fieldInitializers.end())
        return known->second;
    ScopedCompileSession scope(*this);
    FunctionInstance* instance = nullptr;
    if (classDeclaring(owner, MemberKind::FieldInitializer, {})) {
        FunctionInstance& made = state_->instances.emplace_back();
        const ClassDeclaration& declaration = *declarationOf(owner);
        made.kind = InstanceKind::FieldInitializer;
        made.linkage = isOnDemandOwner(owner) ? InstanceLinkage::OnDemand : InstanceLinkage::Unit;
        made.symbol = "vesk_i_" + owner->text;
        made.owner = owner;
        made.hasSelf = true;
        made.returnType = state_->types.builtin(TypeKind::Void);
        made.file = declaration.file;
        made.sourcePath = declaration.file->path;
        made.line = declaration.node->token() ? declaration.node->token()->getLine() : 0;
        instance = &made;
    }
    FunctionInstance* const* kept = &state_->fieldInitializers.emplace(owner, instance).first->second;
    makeKnownAt(owner->knownFieldInitializer, kept);
    return instance;
}

FunctionInstance* CompileSession::unitInitializerOf(FileDeclaration& file) {
    std::lock_guard lock(state_->modelMutex);
    if (auto known = state_->unitInitializers.find(&file); known != state_->unitInitializers.end())
        return known->second;
    FunctionInstance* instance = nullptr;
    if (std::any_of(file.classes.begin(), file.classes.end(),
                    [](const ClassDeclaration* each) { return hasStaticInitializer(*each); })) {
        FunctionInstance& made = state_->instances.emplace_back();
        made.kind = InstanceKind::UnitInitializer;
        made.symbol = "vesk_u_" + fnv1a64Hex(file.path);
        made.displayName = "static fields";
        made.returnType = state_->types.builtin(TypeKind::Void);
        made.file = &file;
        made.sourcePath = file.path;
        made.line = 1;
        instance = &made;
    }
    state_->unitInitializers.emplace(&file, instance);
    return instance;
}

}  // namespace vesk::compiler
