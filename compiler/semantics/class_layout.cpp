// Concrete classes as code generation needs them: fields, vtables and interface tables.
// A vtable begins with the super class's slots; a method takes over the slot of the method it overrides, that is, of the
// one with its name and its parameter types after substitution. Vtables are persistent maps: a class pays for what it
// declares, however many methods it inherits. Each class has one table per interface, parallel to what that interface
// itself declares, so that what an interface adds is held once however many interfaces extend it; a class has tables of the
// interfaces that its super class does not have or answers differently. Generic methods are bound when the program is
// compiled and take no part.
#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

bool lacksBody(const FunctionInstance& method) { return !method.node->hasBody() && !method.node->isNative(); }

bool haveSameSignature(const FunctionInstance& a, const FunctionInstance& b) {
    return a.parameterTypes == b.parameterTypes && a.node->name() == b.node->name();
}

std::uint32_t signatureHash(const FunctionInstance& method) {
    std::size_t hash = std::hash<std::string_view>()(method.node->name());
    for (const Type* type : method.parameterTypes)
        hash = (hash ^ reinterpret_cast<std::uintptr_t>(type) >> 4) * 0x9E3779B97F4A7C15ull;
    return static_cast<std::uint32_t>(hash >> 32 ^ hash);
}

class LayoutBuilder {
public:
    LayoutBuilder(CompileSession& session, const Type* type)
        : session_(session), type_(type), declaration_(*declarationOf(type)), made_(std::make_unique<ClassLayout>()) {}

    std::unique_ptr<ClassLayout> build() {
        made_->type = type_;
        made_->symbol = "vesk_c_" + type_->text;
        made_->isInterface = declaration_.isInterface;
        made_->isOnDemand = type_->kind == TypeKind::Class && !type_->arguments.empty();
        session_.linkSuperTypes(declaration_);
        if (declaration_.isInterface) {
            addInterfaceMethods();
            return std::move(made_);
        }
        if (const Type* super = directSuperClass(type_)) {
            const ClassLayout& above = session_.layoutOf(super);
            made_->super = &above;
            made_->inheritedFields = above.inheritedFields + above.fields.size();
            made_->slots = above.slots;
            made_->slotsBySignature = above.slotsBySignature;
            made_->slotCount = above.slotCount;
            made_->openSlots = above.openSlots;
            made_->competedFor = above.competedFor;
        }
        addFields();
        addMethods();
        addInterfaceTables();
        made_->hasOpenInterface = hasOpenInterface();
        made_->isAbstract = made_->openSlots || made_->hasOpenInterface;
        return std::move(made_);
    }

private:
    void addFields() {
        TypeEnvironment environment = environmentOf(type_);
        for (const auto& field : declaration_.fields) {
            if (field->isStatic) continue;
            const Type* type = resolveDeclaredType(field->node->type(), declaration_.node->context(),
                                                   field->node->token(), &environment);
            if (type->isVoid())
                throw compileError(field->node->token(),
                                   "Field '" + field->name + "' of " + type_->structured + " would have type Void");
            const std::size_t index = made_->inheritedFields + made_->fields.size();
            made_->fields.push_back({field->name, type, field.get(), static_cast<unsigned>(index), type_});
        }
    }

    FunctionInstance* methodIn(std::uint32_t slot) const {
        return *PersistentMaps<FunctionInstance*>::find(made_->slots, slot);
    }

    // The slot of the method with that name and these parameters, and the key under which it is or would be found.
    std::pair<std::optional<std::uint32_t>, std::uint32_t> slotFor(const FunctionInstance& wanted) const {
        for (std::uint32_t key = signatureHash(wanted);; key++) {
            const std::uint32_t* slot = PersistentMaps<std::uint32_t>::find(made_->slotsBySignature, key);
            if (!slot) return {std::nullopt, key};
            if (haveSameSignature(*methodIn(*slot), wanted)) return {*slot, key};
        }
    }

    void addMethods() {
        CompileSession::State& state = session_.state();
        for (const auto& method : declaration_.methods) {
            if (!takesPartInDispatch(*method)) continue;
            FunctionInstance* instance = session_.instanceOf(*method, type_);
            auto [slot, key] = slotFor(*instance);
            if (slot) {
                made_->openSlots -= lacksBody(*methodIn(*slot));
            } else {
                slot = made_->slotCount++;
                made_->slotsBySignature = state.signatureMaps.with(made_->slotsBySignature, key, *slot);
            }
            made_->openSlots += lacksBody(*instance);
            made_->slots = state.slotMaps.with(made_->slots, *slot, instance);
            instance->slot = static_cast<int>(*slot);
            made_->declared.push_back(instance);
        }
    }

    void addInterfaceMethods() {
        std::vector<FunctionInstance*>& methods = made_->declared;
        std::unordered_multimap<std::string_view, FunctionInstance*> known;
        for (const auto& method : declaration_.methods) {
            if (!takesPartInDispatch(*method)) continue;
            FunctionInstance* instance = session_.instanceOf(*method, type_);
            auto [from, to] = known.equal_range(instance->node->name());
            const auto same = std::find_if(
                from, to, [&](const auto& each) { return each.second->parameterTypes == instance->parameterTypes; });
            if (same != to) {  // declared twice: an error of its own
                instance->slot = same->second->slot;
                continue;
            }
            instance->slot = static_cast<int>(methods.size());
            methods.push_back(instance);
            known.emplace(instance->node->name(), instance);
        }
    }

    // What an interface itself declares with that name and these parameters.
    FunctionInstance* declaredBy(const Type* interface, const FunctionInstance& wanted) {
        for (MethodDeclaration* method : declarationOf(interface)->methodsNamed(wanted.node->name())) {
            if (!takesPartInDispatch(*method)) continue;
            FunctionInstance* instance = session_.instanceOf(*method, interface);
            if (instance->parameterTypes == wanted.parameterTypes) return instance;
        }
        return nullptr;
    }

    // The default body for a method: of the nearest interface that declares one. An interface that declares the method
    // again without a body takes the defaults of those it extends away.
    FunctionInstance* defaultMethod(const FunctionInstance& wanted) {
        auto [known, isNew] = defaults_.try_emplace({wanted.node->name(), wanted.parameterTypes}, nullptr);
        if (!isNew) return known->second;
        std::vector<FunctionInstance*> defaults, open;
        for (const Type* interface : allDeclaring(type_, MemberKind::InterfaceMethod, wanted.node->name())) {
            FunctionInstance* own = declaredBy(interface, wanted);
            if (own) (lacksBody(*own) ? open : defaults).push_back(own);
        }
        const auto isTakenAway = [&](const FunctionInstance* own) {
            return std::any_of(open.begin(), open.end(), [&](auto* each) { return refines(each->owner, own->owner); });
        };
        FunctionInstance*& found = known->second;
        for (FunctionInstance* own : defaults)
            if ((!found || refines(own->owner, found->owner)) && !isTakenAway(own)) found = own;
        for (const FunctionInstance* own : defaults)
            if (found && own != found && !refines(found->owner, own->owner)) noteCompetition(wanted.node->name());
        return found;
    }

    // Whether an interface, or one that it extends, has a method with a body.
    bool leadsToDefault(const Type* interface) const {
        std::unordered_map<const Type*, bool>& known = session_.state().interfacesWithDefaults;
        if (const auto found = known.find(interface); found != known.end()) return found->second;
        std::unordered_map<const Type*, bool> answers;  // kept when all are there: an interface may be mistaken
        struct Visit {
            const Type* interface;
            bool isLast;
        };
        std::vector<Visit> open{{interface, false}};
        while (!open.empty()) {
            const auto [each, isLast] = open.back();
            open.pop_back();
            if (isLast) {
                const auto& above = directInterfaces(each);
                answers[each] = std::ranges::any_of(session_.layoutOf(each).declared,
                                                    [](const auto* method) { return !lacksBody(*method); }) ||
                                std::ranges::any_of(above, [&](const Type* super) { return answers.at(super); });
            } else if (const auto found = known.find(each); found != known.end()) {
                answers.insert(*found);
            } else if (answers.emplace(each, false).second) {
                open.push_back({each, true});
                for (const Type* super : directInterfaces(each)) open.push_back({super, false});
            }
        }
        known.insert(answers.begin(), answers.end());
        return answers.at(interface);
    }

    // The interfaces that the header leads to and the super class has not, nearest first.
    std::vector<const Type*> newInterfaces() const {
        std::vector<const Type*> found;
        std::unordered_set<const Type*> seen;
        const auto add = [&](const std::vector<const Type*>& interfaces) {
            for (const Type* each : interfaces)
                if (seen.insert(each).second && !superHas(each)) found.push_back(each);
        };
        add(directInterfaces(type_));
        for (std::size_t i = 0; i < found.size(); i++) add(directInterfaces(found[i]));
        return found;
    }

    bool superHas(const Type* interface) const {
        return made_->super && superTypeOf(made_->super->type, interface->declaration) == interface;
    }

    // The interfaces whose tables are not those of the super class: new ones, and those with a method of a name that
    // another answer may belong to now. That is what the class declares, what new interfaces give a default to or take one
    // away from, and what several defaults compete for: an interface that the super class has already is nearer when the
    // header leads to it again.
    std::vector<const Type*> interfacesToAnswer() const {
        std::vector<const Type*> answered = newInterfaces();
        if (!made_->super) return answered;
        std::set<std::string_view> names;
        for (const FunctionInstance* method : made_->declared) names.insert(method->node->name());
        for (const Type* interface : answered) {
            const bool mayTakeAway = leadsToDefault(interface);
            for (const FunctionInstance* method : session_.layoutOf(interface).declared)
                if (mayTakeAway || !lacksBody(*method)) names.insert(method->node->name());
        }
        if (made_->competedFor && !declaration_.interfaces.empty())
            names.insert(made_->competedFor->begin(), made_->competedFor->end());
        std::unordered_set<const Type*> seen(answered.begin(), answered.end());
        for (std::string_view name : names)
            for (const Type* interface : allDeclaring(type_, MemberKind::InterfaceMethod, name))
                if (seen.insert(interface).second) answered.push_back(interface);
        return answered;
    }

    // Several interfaces, none of which refines the others, have a default for the name.
    void noteCompetition(std::string_view name) {
        if (made_->competedFor && made_->competedFor->contains(name)) return;
        auto names = made_->competedFor ? *made_->competedFor : std::set<std::string_view>{};
        names.insert(name);
        made_->competedFor = std::make_shared<const std::set<std::string_view>>(std::move(names));
    }

    InterfaceTable tableOf(const Type* interface) {
        InterfaceTable table{interface, {}};
        for (FunctionInstance* wanted : session_.layoutOf(interface).declared) {
            const std::optional<std::uint32_t> slot = slotFor(*wanted).first;
            FunctionInstance* method = slot ? methodIn(*slot) : nullptr;
            if (method && lacksBody(*method)) method = nullptr;
            if (!method) method = defaultMethod(*wanted);
            table.methods.push_back(method);
        }
        return table;
    }

    void addInterfaceTables() {
        auto tables = std::make_shared<std::vector<InterfaceTable>>();
        for (const Type* interface : interfacesToAnswer()) tables->push_back(tableOf(interface));
        if (!tables->empty()) made_->interfaceTables = std::move(tables);
    }

    // Of each interface the nearest table counts.
    bool hasOpenInterface() const {
        std::unordered_set<const Type*> answered;
        for (const ClassLayout* layout = made_.get(); layout; layout = layout->super) {
            if (layout != made_.get() && !layout->hasOpenInterface) return false;
            for (const InterfaceTable& table : layout->interfaces()) {
                const bool isNearest = answered.insert(table.interface).second;
                if (isNearest && std::find(table.methods.begin(), table.methods.end(), nullptr) != table.methods.end())
                    return true;
            }
        }
        return false;
    }

    CompileSession& session_;
    const Type* type_;
    ClassDeclaration& declaration_;
    std::unique_ptr<ClassLayout> made_;
    std::map<std::pair<std::string_view, std::vector<const Type*>>, FunctionInstance*>
        defaults_;  // by name and parameters
};

const ClassLayout* buildLayout(CompileSession& session, const Type* type) {
    CompileSession::State& state = session.state();
    if (!state.layoutsUnderWay.insert(type).second)
        throw compileError(nullptr, "The layout of " + type->structured + " depends on itself");
    try {
        auto made = LayoutBuilder(session, type).build();
        state.layoutsUnderWay.erase(type);
        const ClassLayout* layout = state.layouts.emplace(type, std::move(made)).first->second.get();
        makeKnownAt(type->knownLayout, layout);
        return layout;
    } catch (...) {
        state.layoutsUnderWay.erase(type);
        throw;
    }
}

}  // namespace

FunctionInstance* ClassLayout::methodAt(std::size_t slot) const {
    if (slot >= slotCount) return nullptr;
    FunctionInstance* method = *PersistentMaps<FunctionInstance*>::find(slots, static_cast<std::uint32_t>(slot));
    return lacksBody(*method) ? nullptr : method;
}

const std::vector<InterfaceTable>& ClassLayout::interfaces() const {
    static const std::vector<InterfaceTable> NONE;
    return interfaceTables ? *interfaceTables : NONE;
}

const ClassLayout& CompileSession::layoutOf(const Type* type) {
    if (const ClassLayout* known = knownAt(type->knownLayout)) return *known;
    std::lock_guard lock(state_->modelMutex);
    if (auto known = state_->layouts.find(type); known != state_->layouts.end()) return *known->second;
    if (type->kind == TypeKind::Class && type->arguments.empty() && type->declaration->isGeneric())
        throw compileError(nullptr, "Type " + type->structured + " needs type arguments");
    if (!declarationOf(type)) throw compileError(nullptr, "Type " + type->structured + " is not a class");
    ScopedCompileSession scope(*this);
    // Super classes first, from the root down: long chains cost no stack.
    std::vector<const Type*> chain;
    for (const Type* super = directSuperClass(type); super && !state_->layouts.count(super);
         super = directSuperClass(super))
        chain.push_back(super);
    for (auto super = chain.rbegin(); super != chain.rend(); ++super) {
        if (!state_->layouts.count(*super)) buildLayout(*this, *super);
    }
    return *buildLayout(*this, type);
}

bool CompileSession::isInstantiable(const Type* type) {
    std::lock_guard lock(state_->modelMutex);
    if (state_->instantiable.contains(type->declaration)) return true;
    if (layoutOf(type).isAbstract) return false;
    if (type->declaration->file->isStandardLibrary) state_->instantiable.insert(type->declaration);
    return true;
}

}  // namespace vesk::compiler
