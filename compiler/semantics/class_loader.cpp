// ClassLoader's questions about types and classes, answered from the session's declarations.
#include "host/class_loader.h"

#include "host/diagnostics.h"
#include "host/runtime.h"
#include "host/source_manager.h"
#include "semantics/session_tables.h"
#include "semantics/type_flattening.h"

namespace vesk::compiler {

namespace {

// Resolution for questions that never throw.
const Type* resolveQuietly(const Str& text, const ContextPtr& context) {
    try {
        return resolveType(text, context);
    } catch (const CompilerException&) {
        return nullptr;
    }
}

// The class behind a type's suffixes.
const Type* baseOf(const Type* type) {
    while (type && (type->kind == TypeKind::Nullable || type->kind == TypeKind::Array)) type = type->element();
    return type;
}

std::string_view headOfText(std::string_view text) {
    text = text.substr(0, text.find('<'));
    std::size_t end = text.find_last_not_of(" \t\r\n[]?");
    text = end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
    std::size_t start = text.find_first_not_of(" \t\r\n(");
    return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

// The unflattened type of a text that this compiler made, by this process or another; null for all others.
const Type* flattenedType(const Str& text) {
    std::size_t marker = text.find(FLATTENED_MARKER);
    if (marker == Str::npos || marker == 0 || text.find_first_of("<>()[]?, ") != Str::npos) return nullptr;
    CompileSession& session = CompileSession::current();
    if (const Type* known = session.types().unflatten(text)) return known;
    const Type* type = resolveQuietly(text, session.rootContext());
    return type && type->kind == TypeKind::Class && !type->arguments.empty() && type->text == text ? type : nullptr;
}

// Whether the type and everything in it comes from the standard library.
bool isFromLibrary(const Type* type) {
    switch (type->kind) {
        case TypeKind::Unknown:
        case TypeKind::Parameter: return false;
        case TypeKind::Class:
            if (!type->declaration->file->isStandardLibrary) return false;
            break;
        default: break;
    }
    for (const Type* part : type->arguments)
        if (!isFromLibrary(part)) return false;
    return !type->result || isFromLibrary(type->result);
}

}  // namespace

Str ClassLoader::canonicalBaseTypeName(const Str& type, const ContextPtr& context, const TokenPtr&) {
    const Type* base = baseOf(resolveQuietly(type, context));
    if (!base) {
        // `C<>` without defaults: the class is known all the same.
        ClassDeclaration* declaration = lookupClass(headOfText(type), context);
        return declaration ? declaration->qualifiedName : Str(headOfText(type));
    }
    switch (base->kind) {
        case TypeKind::Class: return base->declaration->qualifiedName;
        case TypeKind::Function: return {};
        case TypeKind::Unknown: {
            std::string_view head = headOfText(base->text);
            if (ClassDeclaration* declaration = head.empty() ? nullptr : lookupClass(head, context))
                return declaration->qualifiedName;
            return Str(head);
        }
        default: return base->text;
    }
}

Str ClassLoader::sourceFileForClass(const Str& name, const ContextPtr& context, const TokenPtr&) {
    const Type* base = baseOf(resolveQuietly(name, context));
    ClassDeclaration* declaration = base ? declarationOf(base) : nullptr;
    if (!declaration) declaration = lookupClass(headOfText(name), context);
    return declaration ? declaration->file->path : Str();
}

void ClassLoader::ensureClassLoaded(const Str& name, const ContextPtr& context, const TokenPtr& token) {
    auto fail = [&](const std::string& what) {
        throw CompilerException(token, what, CompilerErrorKind::DeclarationLoad, {}, {});
    };
    const Type* type = withoutNull(resolveQuietly(name, context));
    if (!type) {
        ClassDeclaration* declaration = lookupClass(headOfText(name), context);
        if (!declaration) fail("Cannot load class '" + name + "'");
        CompileSession::current().linkSuperTypes(*declaration);
        return;
    }
    if (type->kind == TypeKind::Unknown) {
        // A known class with the wrong arguments is loaded; what is wrong with it is said elsewhere.
        ClassDeclaration* declaration = type->text.empty() ? nullptr : lookupClass(headOfText(type->text), context);
        if (!declaration) fail("Cannot load class '" + (type->text.empty() ? name : type->structured) + "'");
        CompileSession::current().linkSuperTypes(*declaration);
        return;
    }
    if (type->kind == TypeKind::Class) CompileSession::current().linkSuperTypes(*type->declaration);
}

Str ClassLoader::genericOutputRootForType(const Str& owner, const StrVec& typeArgs, const Str&,
                                          const ContextPtr& context, const TokenPtr&) {
    const Type* type = resolveQuietly(owner, context);
    bool isShared = type && isFromLibrary(type);
    for (const Str& argument : typeArgs) {
        const Type* resolved = isShared ? resolveQuietly(argument, context) : nullptr;
        isShared = resolved && isFromLibrary(resolved);
    }
    return isShared ? Runtime::getGenericsPath() : Runtime::getAppGenericsPath();
}

bool ClassLoader::resolveGenericTypeBindings(const Str& type, const ContextPtr& context, const TokenPtr&, StrVec& names,
                                             StrVec& args) {
    const Type* resolved = withoutNull(resolveQuietly(type, context));
    if (!resolved || resolved->kind != TypeKind::Class || !resolved->declaration->isGeneric()) return false;
    names = resolved->declaration->typeParameters;
    args.clear();
    for (const Type* argument : resolved->arguments) args.push_back(argument->text);
    return true;
}

bool ClassLoader::resolveConcreteGenericArgs(const Str& type, StrVec& args) {
    const Type* known = flattenedType(type);
    if (!known) return false;
    args.clear();
    for (const Type* argument : known->arguments) args.push_back(argument->text);
    return true;
}

bool ClassLoader::resolveConcreteGenericBase(const Str& type, Str& base) {
    const Type* known = flattenedType(type);
    if (!known) return false;
    base = known->declaration->qualifiedName;
    return true;
}

Str classloader::shownGenericType(const Str& type) {
    const Type* known = flattenedType(type);
    return known ? known->structured : Str();
}

Str classloader::enclosingClass(const ContextPtr& scope) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    for (const LookupEnvironment* at = &lookupEnvironment(session, scope.get()); at; at = at->parent)
        if (!at->selfType.empty()) return at->selfType;
    return {};
}

Str classloader::normalizeBuiltinGenericArg(const Str& type) {
    std::size_t start = type.find_first_not_of(" \t\r\n");
    if (start == Str::npos) return type;
    std::string_view name = std::string_view(type).substr(start, type.find_last_not_of(" \t\r\n") - start + 1);
    constexpr std::string_view PREFIX = "vesk.";
    if (name.substr(0, PREFIX.size()) == PREFIX) name.remove_prefix(PREFIX.size());
    const Type* builtin = CompileSession::current().types().builtinNamed(name);
    return builtin ? builtin->text : type;
}

}  // namespace vesk::compiler
