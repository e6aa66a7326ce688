// What a scope can say about classes: super types, assignability, visibility, the identity of entities.
#include <algorithm>

#include "host/class_loader.h"
#include "host/diagnostics.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

ContextPtr shared(const Context* scope) { return std::const_pointer_cast<Context>(scope->weak_from_this().lock()); }

const Type* resolveQuietly(const Str& text, const Context* scope) {
    try {
        return resolveType(text, shared(scope));
    } catch (const CompilerException&) {
        return nullptr;
    }
}

// The class behind a type text in any spelling.
const Type* classTypeOf(const Str& text, const Context* scope) {
    const Type* type = resolveQuietly(text, scope);
    while (type && (type->kind == TypeKind::Nullable || type->kind == TypeKind::Array)) {
        if (type->kind == TypeKind::Array) return nullptr;
        type = type->element();
    }
    if (type && declarationOf(type)) return type;
    Str base = ClassLoader::canonicalBaseTypeName(text, shared(scope), nullptr);
    if (base.empty()) return nullptr;
    type = resolveQuietly(base, scope);
    return type && type->kind != TypeKind::Nullable && type->kind != TypeKind::Array && declarationOf(type) ? type
                                                                                                            : nullptr;
}

bool hasAnnotation(const std::vector<std::shared_ptr<AnnotationNode>>& annotations, std::string_view name) {
    return std::any_of(annotations.begin(), annotations.end(),
                       [&](const auto& each) { return each && each->getName() == name; });
}

// The class that an `@IdClass(X)` names, "" without one.
Str identityClassText(const ClassNode& node) {
    for (const auto& annotation : node.getAnnotations()) {
        if (!annotation || annotation->getName() != "IdClass" || annotation->getChildren().empty()) continue;
        const NodePtr& argument = annotation->getChildren()[0];
        if (auto* type = dynamic_cast<const TypeNode*>(argument.get())) return type->typeText();
        if (auto* text = dynamic_cast<const StringLiteralNode*>(argument.get())) return text->value();
        if (argument->getKind() == NodeKind::NamedArgument)
            return static_cast<const NamedArgumentNode&>(*argument).value()->getName();
        Str name = argument->getName();
        // `a.b.X` is a chain of members.
        for (const AbstractNode* at = argument.get(); at->getKind() == NodeKind::Member;
             at = at->getChildren()[0].get())
            name = at->getChildren()[0]->getName() + "." + name;
        if (name.compare(0, TYPE_EXPRESSION_PREFIX.size(), TYPE_EXPRESSION_PREFIX) == 0)
            name.erase(0, TYPE_EXPRESSION_PREFIX.size());
        return name;
    }
    return {};
}

bool isWithin(const ClassDeclaration* inner, const ClassDeclaration* outer) {
    for (; inner; inner = inner->outer)
        if (inner == outer) return true;
    return false;
}

}  // namespace

bool Context::isAssignable(const Str& target, const Str& source) const {
    if (target.empty() || source.empty()) return false;
    const Type* to = resolveQuietly(target, this);
    const Type* from = !to || target == source ? to : resolveQuietly(source, this);
    return from && vesk::compiler::isAssignable(to, from);
}

bool Context::implementsInterface(const Str& cls, const Str& interfaceName) const {
    const Type* type = classTypeOf(cls, this);
    const Type* wanted = classTypeOf(interfaceName, this);
    if (!type || !wanted || !wanted->isInterface()) return false;
    const Type* found = superTypeOf(type, wanted->declaration);
    // A raw name asks for any instantiation.
    return found && (found == wanted || wanted->arguments.empty());
}

Str Context::getClassSuper(const Str& cls) const {
    const Type* type = classTypeOf(cls, this);
    const Type* super = type ? directSuperClass(type) : nullptr;
    return super ? super->text : Str();
}

Str Context::getClassPackage(const Str& cls) const {
    const Type* type = classTypeOf(cls, this);
    return type ? declarationOf(type)->package : Str();
}

StrVec Context::getImplementedInterfaces(const Str& cls) const {
    StrVec names;
    if (const Type* type = classTypeOf(cls, this))
        for (const Type* interface : directInterfaces(type)) names.push_back(interface->text);
    return names;
}

int Context::resolveEntityIdentityType(const Str& entity, Str& identityOut) const {
    const Type* type = classTypeOf(entity, this);
    if (!type) return 0;
    std::vector<Str> identities, embedded;
    for (const Type* at = type; at; at = directSuperClass(at)) {
        const ClassDeclaration* declaration = declarationOf(at);
        if (!declaration) break;
        TypeEnvironment environment = environmentOf(at);
        if (Str named = identityClassText(*declaration->node); !named.empty()) {
            const Type* identity = resolveType(named, declaration->node->context(), &environment);
            identityOut = identity->text;
            return 1;
        }
        for (const auto& field : declaration->fields) {
            if (field->isStatic) continue;
            bool isEmbedded = hasAnnotation(field->node->getAnnotations(), "EmbeddedId");
            if (!isEmbedded && !hasAnnotation(field->node->getAnnotations(), "Id")) continue;
            const Type* identity = resolveType(field->node->type(), declaration->node->context(), &environment);
            (isEmbedded ? embedded : identities).push_back(identity->text);
        }
    }
    if (embedded.size() == 1) {
        identityOut = embedded[0];
        return 1;
    }
    if (embedded.size() > 1 || identities.size() > 1) return 2;
    if (identities.empty()) return 0;
    identityOut = identities[0];
    return 1;
}

bool Context::canAccessVisibility(const Str& owner, MemberVisibility visibility) const {
    if (visibility == MemberVisibility::Public) return true;
    const Type* type = classTypeOf(owner, this);
    if (!type) return false;
    const ClassDeclaration* declaration = declarationOf(type);
    ContextPtr scope = shared(this);
    ClassDeclaration* enclosing = enclosingClassOf(scope);
    if (visibility == MemberVisibility::Internal) {
        CompileSession& session = CompileSession::current();
        std::lock_guard lock(session.modelMutex());
        if (enclosing) return enclosing->package == declaration->package;
        for (const LookupEnvironment* at = &lookupEnvironment(session, this); at; at = at->parent)
            if (at->hasPackage) return at->package == declaration->package;
        return declaration->package.empty();
    }
    if (!enclosing) return false;
    // Classes that contain each other share their secrets.
    if (isWithin(enclosing, declaration) || isWithin(declaration, enclosing)) return true;
    if (visibility == MemberVisibility::Private) return false;
    CompileSession& session = CompileSession::current();
    for (const ClassDeclaration* at = enclosing; at; at = at->outer)
        if (superTypeOf(session.types().classType(const_cast<ClassDeclaration*>(at), {}), declaration)) return true;
    return false;
}

}  // namespace vesk::compiler
