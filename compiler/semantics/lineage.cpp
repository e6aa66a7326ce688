// The super types of classes: what is above a class, and who declares a member.
#include "semantics/lineage.h"

#include <algorithm>
#include <unordered_set>

#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

using Linking = ClassDeclaration::Linking;
using SuperTypeMap = PersistentMaps<const Type*>::Map;
using MemberMap = PersistentMaps<const Declarations*>::Map;

constexpr unsigned KIND_BITS = 3;
std::uint32_t memberKey(std::uint32_t name, MemberKind kind) {
    return name << KIND_BITS | static_cast<std::uint32_t>(kind);
}

std::vector<const Type*> directSupers(const ClassDeclaration& declaration) {
    std::vector<const Type*> supers;
    if (declaration.superType) supers.push_back(declaration.superType);
    supers.insert(supers.end(), declaration.interfaces.begin(), declaration.interfaces.end());
    return supers;
}

// Whether a super type hands on the class's type parameters under the names that its own class gives them.
bool handsOnParameters(const Type& super) {
    for (std::size_t i = 0; i < super.arguments.size(); i++) {
        const Type& argument = *super.arguments[i];
        if (argument.kind != TypeKind::Parameter || argument.text != super.declaration->typeParameters[i]) return false;
    }
    return true;
}

class AncestryBuilder {
public:
    AncestryBuilder(CompileSession& session, ClassDeclaration& declaration)
        : session_(session), tables_(session.state().lineage), declaration_(declaration) {}

    // All super types have their ancestry.
    const Ancestry* build() {
        if (!declaration_.lineageNumber) declaration_.lineageNumber = ++tables_.numberedClasses;
        for (const Type* super : directSupers(declaration_)) inherit(*super);
        made_.inheritedMembers = made_.members;
        addOwnMembers();
        return &tables_.ancestries.emplace_back(made_);
    }

private:
    void inherit(const Type& super) {
        const Ancestry& above = *super.declaration->knownAncestry;
        made_.hasInterfaces |= super.isInterface() || above.hasInterfaces;
        made_.isContradictory |= above.isContradictory;
        auto same = [&](const Type* a, const Type* b) {
            made_.isContradictory |= a != b;
            return a == b ? a : nullptr;
        };
        SuperTypeMap types = above.superTypes;
        if (!handsOnParameters(super))
            types = tables_.superTypes.changed(types, [&](const Type* type) {
                if (!type || type->isConcrete) return type;
                return session_.types().substitute(type, environmentOf(&super));
            });
        types = tables_.superTypes.with(types, super.declaration->lineageNumber, &super);
        made_.superTypes = tables_.superTypes.joined(made_.superTypes, types, same);
        made_.members = tables_.members.joined(
            made_.members, above.members, [&](const Declarations* a, const Declarations* b) { return both(a, b); });
    }

    const Declarations* both(const Declarations* a, const Declarations* b) {
        if (a == b) return a;
        Declarations joined = *a;
        const std::unordered_set<const ClassDeclaration*> known(a->begin(), a->end());
        for (ClassDeclaration* each : *b)
            if (!known.contains(each)) joined.push_back(each);
        if (joined.size() == a->size()) return a;
        return &tables_.declarations.emplace_back(std::move(joined));
    }

    void addOwnMembers() {
        for (const auto& [name, methods] : declaration_.methodsByName) {
            add(MemberKind::Method, name);
            for (MemberKind kind : {MemberKind::InterfaceMethod, MemberKind::Constructor, MemberKind::GenericMethod})
                if (declares(declaration_, kind, name)) add(kind, name);
        }
        if (declares(declaration_, MemberKind::GenericMethod, {})) add(MemberKind::GenericMethod, {});
        for (const auto& [name, fields] : declaration_.fieldsByName)
            for (MemberKind kind : {MemberKind::Field, MemberKind::StaticField})
                if (declares(declaration_, kind, name)) add(kind, name);
        if (declares(declaration_, MemberKind::FieldInitializer, {})) add(MemberKind::FieldInitializer, {});
    }

    void add(MemberKind kind, std::string_view name) {
        if (!own_) own_ = &tables_.declarations.emplace_back(Declarations{&declaration_});
        const auto number = static_cast<std::uint32_t>(tables_.names.size());
        const std::uint32_t id = tables_.names.try_emplace(name, number).first->second;
        made_.members = tables_.members.with(made_.members, memberKey(id, kind), own_);
    }

    CompileSession& session_;
    LineageTables& tables_;
    ClassDeclaration& declaration_;
    Ancestry made_;
    const Declarations* own_ = nullptr;
};

// Builds what is missing, from the highest super types down: long chains cost no stack. Null when some class above is not
// linked.
const Ancestry* buildAncestry(CompileSession& session, ClassDeclaration& declaration) {
    struct Step {
        ClassDeclaration* declaration;
        std::vector<const Type*> supers;
        std::size_t next = 0;
    };
    std::vector<Step> path;
    auto enter = [&](ClassDeclaration& each) { path.push_back({&each, directSupers(each)}); };
    enter(declaration);
    while (!path.empty()) {
        Step& step = path.back();
        if (step.next == step.supers.size()) {
            makeKnownAt(step.declaration->knownAncestry, AncestryBuilder(session, *step.declaration).build());
            path.pop_back();
            continue;
        }
        ClassDeclaration* super = declarationOf(step.supers[step.next++]);
        if (!super || super->linking != Linking::Done) return nullptr;
        if (!super->knownAncestry) enter(*super);
    }
    return declaration.knownAncestry;
}

const Ancestry* ancestryOf(ClassDeclaration& declaration) {
    if (const Ancestry* known = knownAt(declaration.knownAncestry)) return known;
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    if (declaration.linking != Linking::Done) {
        try {
            session.linkSuperTypes(declaration);
        } catch (const CompilerException&) {
            return nullptr;
        }
    }
    return buildAncestry(session, declaration);
}

// Of a member that no class declares: none.
const Declarations& declarersIn(MemberMap members, MemberKind kind, std::string_view name) {
    static const Declarations NONE;
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    const LineageTables& tables = session.state().lineage;
    const auto id = tables.names.find(name);
    if (id == tables.names.end()) return NONE;
    const auto* found = PersistentMaps<const Declarations*>::find(members, memberKey(id->second, kind));
    return found ? **found : NONE;
}

std::vector<const Type*> typesOf(const Type* type, const Declarations& declarations) {
    std::vector<const Type*> types;
    for (const ClassDeclaration* each : declarations)
        types.push_back(each == type->declaration ? type : superTypeOf(type, each));
    return types;
}

std::vector<const Type*> filteredLineage(const Type* type, MemberKind kind, std::string_view name) {
    std::vector<const Type*> found;
    for (const Type* each : lineageOf(type)) {
        const ClassDeclaration* declaration = declarationOf(each);
        if (declaration && declares(*declaration, kind, name)) found.push_back(each);
    }
    return found;
}

// Puts some types of a lineage into its order.
void sortByLineage(const Type* type, std::vector<const Type*>& found) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    auto& positions = session.state().lineage.positions[type];
    if (positions.empty())
        for (const Type* each : lineageOf(type)) positions.try_emplace(each, positions.size());
    std::sort(found.begin(), found.end(),
              [&](const Type* a, const Type* b) { return positions.at(a) < positions.at(b); });
}

}  // namespace

const Ancestry* ancestryOf(const Type* type) {
    ClassDeclaration* declaration = declarationOf(type);
    const Ancestry* found = declaration ? ancestryOf(*declaration) : nullptr;
    return found && !found->isContradictory ? found : nullptr;
}

bool inherits(const Type* type, MemberKind kind, std::string_view name) {
    const Ancestry* ancestry = ancestryOf(type);
    if (ancestry) return !declarersIn(ancestry->inheritedMembers, kind, name).empty();
    const std::vector<const Type*> found = filteredLineage(type, kind, name);
    return std::any_of(found.begin(), found.end(), [&](const Type* each) { return each != type; });
}

std::vector<const Type*> nearestDeclaring(const Type* type, MemberKind kind, std::string_view name) {
    return typesOf(type, declarersIn(ancestryOf(type)->members, kind, name));
}

std::vector<const Type*> nearestDeclaringAbove(const Type* type, MemberKind kind, std::string_view name) {
    return typesOf(type, declarersIn(ancestryOf(type)->inheritedMembers, kind, name));
}

const Type* classDeclaring(const Type* type, MemberKind kind, std::string_view name) {
    const std::vector<const Type*> found =
        ancestryOf(type) ? nearestDeclaring(type, kind, name) : filteredLineage(type, kind, name);
    const auto at = std::find_if(found.begin(), found.end(), [](const Type* each) { return !each->isInterface(); });
    return at == found.end() ? nullptr : *at;
}

std::vector<const Type*> allDeclaring(const Type* type, MemberKind kind, std::string_view name) {
    if (!ancestryOf(type)) return filteredLineage(type, kind, name);
    std::vector<const Type*> found = nearestDeclaring(type, kind, name);
    std::unordered_set<const Type*> seen(found.begin(), found.end());
    bool isInOrder = found.size() < 2;
    for (std::size_t i = 0; i < found.size(); i++) {
        const std::vector<const Type*> above = nearestDeclaringAbove(found[i], kind, name);
        isInOrder &= above.size() < 2;
        for (const Type* each : above)
            if (seen.insert(each).second) found.push_back(each);
    }
    if (!isInOrder) sortByLineage(type, found);
    return found;
}

VisibleMethods knownVisibleMethods(const Type* type, std::string_view name) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    const auto& table = session.state().lineage.visibleMethods;
    const auto ofType = table.find(type);
    if (ofType == table.end()) return nullptr;
    const auto found = ofType->second.find(name);
    return found == ofType->second.end() ? nullptr : found->second;
}

void keepVisibleMethods(const Type* type, std::string_view name, VisibleMethods methods) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    LineageTables& tables = session.state().lineage;
    const auto kept = tables.names.find(name);
    if (kept != tables.names.end()) tables.visibleMethods[type].insert_or_assign(kept->first, std::move(methods));
}

bool declares(const ClassDeclaration& declaration, MemberKind kind, std::string_view name) {
    const auto hasMethod = [&](auto is) {
        const auto& methods = declaration.methodsNamed(name);
        return std::any_of(methods.begin(), methods.end(), is);
    };
    const auto hasField = [&](bool isStatic) {
        const auto& fields = declaration.fieldsNamed(name);
        return std::any_of(fields.begin(), fields.end(),
                           [&](const FieldDeclaration* field) { return field->isStatic == isStatic; });
    };
    switch (kind) {
        case MemberKind::Method: return !declaration.methodsNamed(name).empty();
        case MemberKind::InterfaceMethod: return declaration.isInterface && !declaration.methodsNamed(name).empty();
        case MemberKind::Constructor:
            return hasMethod([](const MethodDeclaration* method) { return method->isConstructor; });
        case MemberKind::GenericMethod:
            if (name.empty())
                return std::any_of(declaration.methods.begin(), declaration.methods.end(),
                                   [](const auto& method) { return method->isGeneric(); });
            return hasMethod([](const MethodDeclaration* method) { return method->isGeneric(); });
        case MemberKind::Field: return hasField(false);
        case MemberKind::StaticField: return hasField(true);
        case MemberKind::FieldInitializer:
            return std::any_of(declaration.fields.begin(), declaration.fields.end(),
                               [](const auto& field) { return !field->isStatic && field->node->getInitializer(); });
    }
    return false;
}

}  // namespace vesk::compiler
