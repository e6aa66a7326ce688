// Which values may be assigned to which types, and the super types that decide it.
#include <algorithm>
#include <unordered_set>

#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

constexpr unsigned bit(TypeKind kind) { return 1u << static_cast<unsigned>(kind); }

// The numeric types that a value of a numeric type widens to.
unsigned wideningTargets(TypeKind source) {
    switch (source) {
        case TypeKind::SByte:
            return bit(TypeKind::Short) | bit(TypeKind::Int) | bit(TypeKind::Long) | bit(TypeKind::Float) |
                   bit(TypeKind::Double);
        case TypeKind::Short:
            return bit(TypeKind::Int) | bit(TypeKind::Long) | bit(TypeKind::Float) | bit(TypeKind::Double);
        case TypeKind::Int: return bit(TypeKind::Long) | bit(TypeKind::Double);
        case TypeKind::Long: return bit(TypeKind::Double);
        case TypeKind::Byte:
            return bit(TypeKind::UShort) | bit(TypeKind::UInt) | bit(TypeKind::ULong) | bit(TypeKind::Short) |
                   bit(TypeKind::Int) | bit(TypeKind::Long) | bit(TypeKind::Float) | bit(TypeKind::Double);
        case TypeKind::UShort:
            return bit(TypeKind::UInt) | bit(TypeKind::ULong) | bit(TypeKind::Int) | bit(TypeKind::Long) |
                   bit(TypeKind::Float) | bit(TypeKind::Double);
        case TypeKind::UInt: return bit(TypeKind::ULong) | bit(TypeKind::Long) | bit(TypeKind::Double);
        case TypeKind::ULong: return bit(TypeKind::Double);
        case TypeKind::Float: return bit(TypeKind::Double);
        default: return 0;
    }
}

bool isAbstractAbove(TypeKind target, const Type* source) {
    switch (target) {
        case TypeKind::Number:
            return source->isNumeric() || source->kind == TypeKind::AbstractInt ||
                   source->kind == TypeKind::AbstractFloat;
        case TypeKind::AbstractInt: return source->isInteger();
        case TypeKind::AbstractFloat: return source->isFloating();
        default: return false;
    }
}

bool isRawGeneric(const Type* type) {
    return type->kind == TypeKind::Class && type->arguments.empty() && type->declaration->isGeneric();
}

// Links a class without letting its mistakes out: they are reported where the class is checked.
bool linkQuietly(ClassDeclaration& declaration) {
    if (declaration.linking == ClassDeclaration::Linking::Done) return true;
    try {
        CompileSession::current().linkSuperTypes(declaration);
        return true;
    } catch (const CompilerException&) {
        return false;
    }
}

// Direct super types as the class's declaration names them, with the type's arguments in them.
const Type* inTermsOf(const Type* type, const Type* super) {
    return CompileSession::current().types().substitute(super, environmentOf(type));
}

}  // namespace

ClassDeclaration* declarationOf(const Type* type) {
    if (type->kind == TypeKind::Class) return type->declaration;
    if (!type->isScalar() && type->kind != TypeKind::String && type->kind != TypeKind::Object) return nullptr;
    ensureLanguagePackage(CompileSession::current());
    return type->declaration;
}

TypeEnvironment environmentOf(const Type* type) {
    if (type->kind != TypeKind::Class || type->arguments.empty()) return {};
    return {&type->declaration->typeParameterIndex, &type->arguments};
}

const Type* directSuperClass(const Type* type) {
    CompileSession& session = CompileSession::current();
    ClassDeclaration* declaration = declarationOf(type);
    if (!declaration) return nullptr;
    std::lock_guard lock(session.modelMutex());
    if (!linkQuietly(*declaration) || !declaration->superType) return nullptr;
    return inTermsOf(type, declaration->superType);
}

std::vector<const Type*> directInterfaces(const Type* type) {
    CompileSession& session = CompileSession::current();
    ClassDeclaration* declaration = declarationOf(type);
    if (!declaration) return {};
    std::lock_guard lock(session.modelMutex());
    if (!linkQuietly(*declaration)) return {};
    std::vector<const Type*> interfaces;
    for (const Type* interface : declaration->interfaces) interfaces.push_back(inTermsOf(type, interface));
    return interfaces;
}

const std::vector<const Type*>& lineageOf(const Type* type) {
    CompileSession& session = CompileSession::current();
    CompileSession::State& state = session.state();
    std::lock_guard lock(state.modelMutex);
    if (auto known = state.lineages.find(type); known != state.lineages.end()) return *known->second;
    // A class that names no interface adds itself to what its super class has: long chains stay cheap.
    const ClassDeclaration* own = declarationOf(type);
    if (own && own->linking == ClassDeclaration::Linking::Done && directInterfaces(type).empty()) {
        if (const Type* super = directSuperClass(type)) {
            if (auto known = state.lineages.find(super); known != state.lineages.end()) {
                auto extended = std::make_unique<std::vector<const Type*>>();
                extended->reserve(known->second->size() + 1);
                extended->push_back(type);
                extended->insert(extended->end(), known->second->begin(), known->second->end());
                return *state.lineages.emplace(type, std::move(extended)).first->second;
            }
        }
    }
    std::vector<const Type*> classes, interfaces;
    std::unordered_set<const Type*> seen;
    for (const Type* at = type; at && seen.insert(at).second; at = directSuperClass(at)) classes.push_back(at);
    // Class by class, and from each breadth first: what a nearer class has comes before what a farther one adds.
    for (const Type* at : classes) {
        std::size_t next = interfaces.size();
        auto add = [&](const Type* interface) {
            if (seen.insert(interface).second) interfaces.push_back(interface);
        };
        for (const Type* interface : directInterfaces(at)) add(interface);
        for (; next < interfaces.size(); next++) {
            const Type* named = interfaces[next];
            for (const Type* interface : directInterfaces(named)) add(interface);
        }
    }
    auto made = std::make_unique<std::vector<const Type*>>(std::move(classes));
    made->insert(made->end(), interfaces.begin(), interfaces.end());
    // A failed or unfinished class may still change; only what is settled is remembered.
    bool isSettled = std::all_of(made->begin(), made->end(), [](const Type* each) {
        const ClassDeclaration* declaration = declarationOf(each);
        return !declaration || declaration->linking == ClassDeclaration::Linking::Done;
    });
    if (!isSettled) return *state.unsettledLineages.emplace_back(std::move(made));
    return *state.lineages.emplace(type, std::move(made)).first->second;
}

bool refines(const Type* interface, const Type* earlier) {
    return interface != earlier && interface->isInterface() && earlier->isInterface() &&
           superTypeOf(interface, earlier->declaration);
}

const Type* superTypeOf(const Type* type, const ClassDeclaration* base) {
    type = withoutNull(type);
    if (!type || !base) return nullptr;
    if (type->declaration == base && type->kind == TypeKind::Class) return type;
    // What is no higher than another cannot be below it; most questions end here.
    const ClassDeclaration* own = declarationOf(type);
    using Linking = ClassDeclaration::Linking;
    bool areLinked = own && own->linking == Linking::Done && base->linking == Linking::Done;
    if (areLinked && own->height <= base->height) return nullptr;
    if (const Ancestry* ancestry = ancestryOf(type)) {
        CompileSession& session = CompileSession::current();
        std::lock_guard lock(session.modelMutex());
        // A class without a number has nobody below it.
        const Type* const* found = PersistentMaps<const Type*>::find(ancestry->superTypes, base->lineageNumber);
        return found ? inTermsOf(type, *found) : nullptr;
    }
    for (const Type* each : lineageOf(type))
        if (each->declaration == base) return each;
    return nullptr;
}

bool isAssignable(const Type* target, const Type* source) {
    if (!target || !source) return false;
    if (target == source) return true;
    if (source->kind == TypeKind::Void || target->kind == TypeKind::Void) return false;
    if (target->kind == TypeKind::Nullable) {
        if (source->kind == TypeKind::Null) return true;
        const Type* inner = withoutNull(source);
        // A value that may be null is unboxed, tested or passed on, never converted to another number.
        if (source->kind == TypeKind::Nullable && inner->isScalar() && target->element()->isScalar())
            return inner == target->element();
        return isAssignable(target->element(), inner);
    }
    if (source->kind == TypeKind::Null) return false;
    if (source->kind == TypeKind::Nullable) {
        const Type* inner = source->element();
        if (inner->isScalar() && target->isScalar()) return inner == target;
        return isAssignable(target, inner);
    }
    if (target->kind == TypeKind::Object) return !source->text.empty();
    if (target->isNumeric()) return (wideningTargets(source->kind) & bit(target->kind)) != 0;
    if (target->kind == TypeKind::Number || target->kind == TypeKind::AbstractInt ||
        target->kind == TypeKind::AbstractFloat)
        return isAbstractAbove(target->kind, source);
    if (target->kind != TypeKind::Class) return false;
    if (source->kind != TypeKind::Class && !source->isScalar() && source->kind != TypeKind::String) return false;
    if (source->kind == TypeKind::Class && source->declaration != target->declaration &&
        !target->declaration->isInterface && source->declaration->isInterface)
        return false;
    const Type* found = superTypeOf(source, target->declaration);
    if (!found) return false;
    return found == target || isRawGeneric(target);
}

}  // namespace vesk::compiler
