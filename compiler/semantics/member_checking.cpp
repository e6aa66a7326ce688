// Names and what stands behind a dot: locals of scopes, fields, static members, receivers, visibility.
#include <algorithm>
#include <unordered_map>

#include "generics/generic_specializer.h"
#include "host/class_loader.h"
#include "semantics/checker.h"
#include "semantics/context_state.h"

namespace vesk::compiler {

// ------------------------------------------------------------------------------- locals known to scopes only

// Inference outside a body: the variable as its scope declares it. Only names in front of their use are seen.
LocalVariable* Checker::scopeLocal(const std::string& name, const AbstractNode& node) {
    const Context* scope = node.context() ? node.context().get() : inferenceScope_.get();
    Place use = placeOf(node);
    bool triedGiven = scope == inferenceScope_.get();
    while (true) {
        FoundVariable found = lookupVariable(name, scope);
        if (!found) {
            if (triedGiven) return nullptr;
            triedGiven = true;
            scope = inferenceScope_.get();
            continue;
        }
        const ScopeVariable& declared = found.scope->stateIfAny()->variables[found.index];
        bool isVisible = declared.line == 0 || declared.line < use.line ||
                         (declared.line == use.line && declared.column < use.column);
        if (!isVisible) {
            scope = found.scope->parent().get();
            continue;
        }
        std::uint64_t key = (reinterpret_cast<std::uintptr_t>(found.scope) << 12) ^ found.index;
        LocalVariable*& variable = scopeLocals_[key];
        if (!variable) {
            const Type* type = scopeVariableType(found.scope, found.index);
            variable = newVariable(name, type, {declared.line, declared.column});
        }
        if (!variable->type || variable->type->kind == TypeKind::Unknown) throw Poisoned{};
        return variable;
    }
}

const Type* Checker::scopeVariableType(const Context* scope, std::size_t index) {
    const ScopeVariable declared = scope->stateIfAny()->variables[index];
    ContextPtr shared = std::const_pointer_cast<Context>(scope->shared_from_this());
    if (declared.type != AUTO_TYPED_VAR)
        return declared.type.empty() ? nullptr : resolveType(declared.type, shared, &environment_);
    if (!declared.declaration) return nullptr;
    // A variable that is needed for its own initializer has no type.
    auto [entry, isNew] = inferredLocals_.try_emplace(declared.declaration, nullptr);
    if (!isNew) return entry->second;
    const Type* type = nullptr;
    if (declared.declaration->getKind() == NodeKind::For) {
        auto& loop = static_cast<const ForNode&>(*declared.declaration);
        type = rangeCall(loop.iterable()) ? builtin(TypeKind::Int)
                                          : elementType(checkValue(loop.iterable()), *loop.iterable());
    } else if (declared.declaration->getKind() == NodeKind::Declaration) {
        NodePtr initializer = static_cast<const DeclarationNode&>(*declared.declaration).getInitializer();
        if (initializer) type = checkValue(initializer)->type;
    }
    return inferredLocals_[declared.declaration] = type;
}

LocalVariable* Checker::selfVariable(const AbstractNode& node) {
    if (LocalVariable* self = findLocal("self", node)) return self;
    if (mode_ == CheckMode::Inference && selfType_) return self_ = newVariable("self", selfType_, {});
    if (selfType_) fail(node, "There is no 'self' in a static method");
    fail(node, "There is no 'self' outside of a class");
}

// ------------------------------------------------------------------------------------------------ receivers

std::optional<Receiver> Checker::classReceiver(const std::string& name, const AbstractNode& node) {
    std::size_t clause = name.find('<');
    ClassDeclaration *declaration = nullptr, *ambiguous = nullptr;
    const Type* builtinType = types_.builtinNamed(name);
    const std::string_view bare = std::string_view(name).substr(0, clause);
    if (builtinType)
        declaration = builtinType->declaration;
    else
        declaration = lookupClass(bare, node.context(), &ambiguous);
    if (!declaration) return std::nullopt;
    if (ambiguous && bare.find('.') == std::string_view::npos) fail(node, ambiguityOf(bare, node.context()));
    trackFile(declaration->file);
    Receiver receiver;
    receiver.kind = Receiver::Kind::Class;
    if (builtinType)
        receiver.type = builtinType;
    else if (clause != std::string::npos)
        receiver.type = declaredType(name, node.context(), node.token());
    else
        receiver.type = types_.classType(declaration, {});
    return receiver;
}

// Where the two differ, the specializer has put a type in the place of a type parameter: the token keeps what people wrote.
bool isTypePutIn(const std::string& name, const AbstractNode& node) {
    const TokenPtr& token = node.token();
    return token && token->getType() == TokenType::Identifier && token->getText() != name &&
           token->getText().find('<') == std::string::npos;
}

// The type bound to a type parameter of this name, null where there is none. Of a `T?` the members are those of T.
const Type* Checker::boundType(const std::string& name, const AbstractNode& node) {
    const ContextPtr& scope = node.context() ? node.context() : inferenceScope_;
    const bool isParameter =
        isTypePutIn(name, node) ||
        (mode_ == CheckMode::Inference ? isTypeParameterAt(name, scope) : environment_.argumentFor(name) != nullptr);
    if (!isParameter) return nullptr;
    const Type* type = withoutNull(declaredType(name, scope, node.token()));
    if (type->declaration) trackFile(type->declaration->file);
    return type;
}

Receiver Checker::namedReceiver(const std::string& name, const AbstractNode& node) {
    Receiver receiver;
    Place place = placeOf(node);
    if (isSelfName(name)) {
        LocalVariable* self = selfVariable(node);
        receiver.value = readLocal(self, place);
        receiver.isSelf = true;
        return receiver;
    }
    if (name == "super") {
        LocalVariable* self = selfVariable(node);
        receiver.kind = Receiver::Kind::Super;
        receiver.value = readLocal(self, place);
        receiver.isSelf = true;
        receiver.type = directSuperClass(selfType_);
        return receiver;
    }
    if (name.starts_with(TYPE_EXPRESSION_PREFIX)) {
        const std::string type = name.substr(TYPE_EXPRESSION_PREFIX.size());
        // Of a generic class the static members may be meant.
        if (type.find('<') == std::string::npos)
            if (std::optional<Receiver> found = classReceiver(type, node)) return *found;
        receiver.kind = Receiver::Kind::Class;
        receiver.type = declaredType(type, node.context(), node.token());
        return receiver;
    }
    if (name.find('<') == std::string::npos) {
        if (!isTypePutIn(name, node)) {
            if (LocalVariable* local = findLocal(name, node)) {
                receiver.value = readLocal(local, place);
                return receiver;
            }
        }
        if (const Type* bound = boundType(name, node)) {
            if (mode_ == CheckMode::Inference && !bound->isConcrete) throw Poisoned{};
            receiver.kind = Receiver::Kind::Class;
            receiver.type = bound;
            return receiver;
        }
        if (Expression* field = bareField(name, node)) {
            receiver.value = field;
            return receiver;
        }
    }
    if (std::optional<Receiver> found = classReceiver(name, node)) return *found;
    if (isPackagePrefix(name)) {
        receiver.kind = Receiver::Kind::Package;
        receiver.package = name;
        return receiver;
    }
    std::vector<FunctionDeclaration*> functions = lookupFunctions(name, node.context());
    if (!functions.empty()) {
        receiver.value = functionValue(functions, node, nullptr);
        return receiver;
    }
    failUnknownName(name, node, "name");
}

// Chains of members are as long as they like: each link is looked at once, from the inside out, without recursion.
Receiver Checker::receiverOf(const NodePtr& node) {
    std::vector<const MemberExpressionNode*> links;  // the outermost first
    const NodePtr* innermost = &node;
    while ((*innermost)->getKind() == NodeKind::Member) {
        links.push_back(static_cast<const MemberExpressionNode*>(innermost->get()));
        innermost = &links.back()->object();
    }
    Receiver receiver;
    if ((*innermost)->getKind() == NodeKind::Value)
        receiver = namedReceiver(static_cast<const ValueExpressionNode&>(**innermost).value(), **innermost);
    else
        receiver.value = checkValue(*innermost);
    for (auto link = links.rbegin(); link != links.rend(); ++link) receiver = memberReceiver(receiver, **link);
    return receiver;
}

// What one more link of a chain stands for: a package, a class or the value of a field.
Receiver Checker::memberReceiver(const Receiver& owner, const MemberExpressionNode& link) {
    if (owner.kind == Receiver::Kind::Package) {
        std::string qualified = owner.package + "." + link.name();
        if (std::optional<Receiver> found = classReceiver(qualified, link)) return *found;
        if (!isPackagePrefix(qualified)) failUnknownIn(qualified, link, "name");
        Receiver package = owner;
        package.package = std::move(qualified);
        return package;
    }
    if (owner.kind == Receiver::Kind::Class && owner.type->declaration &&
        !findStaticField(owner.type->declaration, link.name())) {
        std::string qualified = owner.type->declaration->qualifiedName + "." + link.name();
        if (std::optional<Receiver> found = classReceiver(qualified, link)) return *found;
    }
    Receiver value;
    value.value = memberOf(owner, link, nullptr);
    if (value.value->type->isVoid()) fail(link, "expected a value, got a call that returns nothing");
    return value;
}

Expression* Checker::withoutNullReceiver(Expression* value) {
    const Type* type = value->type;
    if (type->kind != TypeKind::Nullable) return value;
    const Type* plain = type->element();
    return conversion(plain->isScalar() ? ConversionKind::Unbox : ConversionKind::NotNull, value, plain);
}

// --------------------------------------------------------------------------------------------------- fields

FoundField Checker::findField(const Type* type, std::string_view name) {
    if (type->kind != TypeKind::Class || !type->declaration || type->isInterface()) return {};
    const Type* owner = classDeclaring(type, MemberKind::Field, name);
    if (!owner) return {};
    const std::vector<FieldDeclaration*>& named = owner->declaration->fieldsNamed(name);
    const auto isOfObjects = [](const FieldDeclaration* field) { return !field->isStatic; };
    if (type->isConcrete) {
        const FieldDeclaration& field = **std::find_if(named.rbegin(), named.rend(), isOfObjects);
        const FieldSlot& slot = session_.layoutOf(owner).slotOf(field);
        return {&slot, &field, slot.type};
    }
    const FieldDeclaration& field = **std::find_if(named.begin(), named.end(), isOfObjects);
    TypeEnvironment environment = environmentOf(owner);
    return {nullptr, &field, resolveType(field.node->type(), field.node->getContext(), &environment)};
}

FoundField Checker::findStaticField(const ClassDeclaration* declaration, std::string_view name) {
    const Type* type = types_.classType(const_cast<ClassDeclaration*>(declaration), {});
    for (const Type* owner : allDeclaring(type, MemberKind::StaticField, name)) {
        for (const FieldDeclaration* field : owner->declaration->fieldsNamed(name))
            if (field->isStatic) return {nullptr, field, resolveType(field->node->type(), field->node->getContext())};
    }
    return {};
}

Expression* Checker::bareField(const std::string& name, const AbstractNode& node) {
    if (!selfType_ || !selfType_->declaration) return chunkVariable(name, node);
    if (FoundField field = findField(selfType_, name)) {
        requireAccess(*field.declaration, node);
        bool hasSelf = mode_ == CheckMode::Inference || (function_ && function_->hasSelf);
        if (!hasSelf) fail(node, "'" + name + "' is a field of an object: a static method has none");
        return readField(field, readLocal(selfVariable(node), placeOf(node)), true, node);
    }
    for (const ClassDeclaration* cls = selfType_->declaration; cls; cls = cls->outer)
        if (FoundField field = findStaticField(cls, name)) return readField(field, nullptr, false, node);
    return chunkVariable(name, node);
}

Expression* Checker::readField(const FoundField& field, Expression* object, bool isSelf, const AbstractNode& node) {
    if (field.type->kind == TypeKind::Unknown) throw Poisoned{};
    if (field.declaration->isStatic) {
        trackFile(field.declaration->owner->file);
        return make<StaticRead>(ExpressionKind::StaticRead, field.type, placeOf(node), field.declaration);
    }
    if (!field.slot) return typedOnly(field.type, placeOf(node));
    return make<FieldRead>(ExpressionKind::FieldRead, field.type, placeOf(node), object, field.slot, isSelf);
}

bool Checker::canAccess(const ClassDeclaration* owner, MemberVisibility visibility) const {
    if (visibility == MemberVisibility::Public) return true;
    const ClassDeclaration* inside = selfType_ ? selfType_->declaration : nullptr;
    if (visibility == MemberVisibility::Internal) {
        const FileDeclaration* file = inside ? inside->file : function_ ? function_->file : nullptr;
        return file && owner->file && file->package == owner->file->package;
    }
    for (const ClassDeclaration* cls = inside; cls; cls = cls->outer) {
        if (cls == owner) return true;
        if (visibility == MemberVisibility::Protected && isSubclass(cls, owner)) return true;
    }
    // An outer class sees what its nested classes hide.
    for (const ClassDeclaration* cls = owner; cls; cls = cls->outer)
        if (cls == inside) return true;
    return false;
}

namespace {

const char* visibilityWord(MemberVisibility visibility) {
    switch (visibility) {
        case MemberVisibility::Private: return "private";
        case MemberVisibility::Protected: return "protected";
        case MemberVisibility::Internal: return "internal";
        default: return "public";
    }
}

}  // namespace

void Checker::requireAccess(const FieldDeclaration& field, const AbstractNode& node) const {
    if (!canAccess(field.owner, field.node->visibility()))
        fail(node, std::string("Cannot access ") + visibilityWord(field.node->visibility()) + " field '" + field.name +
                       "' of " + field.owner->name);
}

Expression* Checker::checkMember(const MemberExpressionNode& node, const Type* expected) {
    return memberOf(receiverOf(node.object()), node, expected);
}

Expression* Checker::memberOf(const Receiver& receiver, const MemberExpressionNode& node, const Type* expected) {
    const Str& name = node.name();
    switch (receiver.kind) {
        case Receiver::Kind::Package: {
            std::string qualified = receiver.package + "." + name;
            std::vector<FunctionDeclaration*> functions = lookupFunctions(qualified, node.context());
            if (!functions.empty()) return functionValue(functions, node, expected);
            if (lookupClass(qualified, node.context())) fail(node, "'" + qualified + "' is a class, not a value");
            failUnknownIn(qualified, node, "name");
        }
        case Receiver::Kind::Class: {
            if (receiver.type->declaration) {
                if (FoundField field = findStaticField(receiver.type->declaration, name)) {
                    requireAccess(*field.declaration, node);
                    return readField(field, nullptr, false, node);
                }
                if (!receiver.type->declaration->fieldsNamed(name).empty())
                    fail(node, "'" + name + "' is a field of an object: " + receiver.type->structured + " is a class");
            }
            if (!methodsNamed(receiver.type, name).empty())
                fail(node, "'" + name + "' is a method: call it with its arguments");
            failUnknownMember(receiver.type, name, node);
        }
        case Receiver::Kind::Super: {
            if (FoundField field = findField(selfType_, name)) {
                requireAccess(*field.declaration, node);
                return readField(field, receiver.value, true, node);
            }
            failUnknownMember(receiver.type ? receiver.type : selfType_, name, node);
        }
        case Receiver::Kind::Value: break;
    }
    const Type* type = withoutNull(receiver.value->type);
    if (FoundField field = findField(type, name)) {
        requireAccess(*field.declaration, node);
        // The read itself finds a null receiver.
        Expression* object =
            type == receiver.value->type ? receiver.value : conversion(ConversionKind::Reference, receiver.value, type);
        return readField(field, object, receiver.isSelf, node);
    }
    if (type->declaration && type->kind == TypeKind::Class && findStaticField(type->declaration, name))
        fail(node, "'" + name + "' is static: read it as " + type->declaration->name + "." + name);
    if (!methodsNamed(type, name).empty() || (type->kind == TypeKind::Array && name == "length"))
        fail(node, "'" + name + "' is a method: call it with its arguments");
    failUnknownMember(receiver.value->type, name, node);
}

void Checker::failUnknownMember(const Type* type, const std::string& name, const AbstractNode& node) {
    if (mayHaveRefusedMember(type, name)) throw Poisoned{};
    if (!session_.mayBeShown(node.token())) fail(node, type->structured + " has no member '" + name + "'");
    std::vector<std::string> names;
    for (const Type* owner : lineageOf(withoutNull(type))) {
        if (!owner->declaration) continue;
        for (auto& field : owner->declaration->fields) names.push_back(field->name);
        for (auto& method : owner->declaration->methods)
            if (!method->isConstructor) names.push_back(method->name);
    }
    if (withoutNull(type)->kind == TypeKind::Array) names.push_back("length");
    if (const ClassDeclaration* object = builtin(TypeKind::Object)->declaration)
        for (auto& method : object->methods) names.push_back(method->name);
    fail(node, type->structured + " has no member '" + name + "'" + nearMatchHint(name, names));
}

void Checker::trackFile(const FileDeclaration* file) {
    if (!file || file == lastTracked_ || (function_ && function_->file == file)) return;
    lastTracked_ = file;
    ClassLoader::trackSourceDependency(file->path);
}

}  // namespace vesk::compiler
