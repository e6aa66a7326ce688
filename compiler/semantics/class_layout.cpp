// Concrete classes as code generation needs them: fields, vtables and interface tables.
// A vtable begins with the super class's slots; a method takes over the slot of the method it overrides, that is, of the
// one with its name and its parameter types after substitution. An interface's `vtable` lists the methods it declares
// itself; each class has one table per interface, parallel to that list, so that what an interface adds is held once
// however many interfaces extend it. Generic methods are bound when the program is compiled and take no part.
#include <algorithm>
#include <map>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

// Finds methods by name and parameters among slots, whose number may be large.
class SlotIndex {
public:
    explicit SlotIndex(const std::vector<FunctionInstance*>& slots) : slots_(slots) {
        for (std::size_t i = 0; i < slots.size(); i++) added();
    }

    // Position of the method with that name and these parameters, the number of slots when there is none.
    std::size_t find(const FunctionInstance& wanted) const {
        auto [from, to] = positions_.equal_range(std::string_view(wanted.node->name()));
        for (auto at = from; at != to; ++at)
            if (slots_[at->second]->parameterTypes == wanted.parameterTypes) return at->second;
        return slots_.size();
    }
    FunctionInstance* method(const FunctionInstance& wanted) const {
        std::size_t position = find(wanted);
        return position < slots_.size() ? slots_[position] : nullptr;
    }
    // A slot has been put at the end.
    void added() {
        std::size_t position = positions_.size();
        positions_.emplace(std::string_view(slots_[position]->node->name()), position);
    }

private:
    const std::vector<FunctionInstance*>& slots_;
    std::unordered_multimap<std::string_view, std::size_t> positions_;
};

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
            made_->vtable = made_->slots;
            return std::move(made_);
        }
        if (const Type* super = directSuperClass(type_)) {
            made_->super = &session_.layoutOf(super);
            made_->fields = made_->super->fields;
            made_->slots = made_->super->slots;
        }
        addFields();
        addMethods();
        for (FunctionInstance* method : made_->slots) made_->vtable.push_back(isAbstract(*method) ? nullptr : method);
        addInterfaceTables();
        made_->isAbstract = hasAbstractMethod();
        return std::move(made_);
    }

private:
    void addFields() {
        TypeEnvironment environment = environmentOf(type_);
        made_->firstOwnField = made_->fields.size();
        for (const auto& field : declaration_.fields) {
            if (field->isStatic) continue;
            const Type* type = resolveDeclaredType(field->node->type(), declaration_.node->context(),
                                                   field->node->token(), &environment);
            if (type->isVoid())
                throw compileError(field->node->token(),
                                   "Field '" + field->name + "' of " + type_->structured + " would have type Void");
            made_->fields.push_back({field->name, type, field.get(), static_cast<unsigned>(made_->fields.size())});
        }
    }

    void addMethods() {
        std::optional<SlotIndex> index;
        for (const auto& method : declaration_.methods) {
            if (!takesPartInDispatch(*method)) continue;
            if (!index) index.emplace(made_->slots);
            FunctionInstance* instance = session_.instanceOf(*method, type_);
            std::size_t slot = index->find(*instance);
            instance->slot = static_cast<int>(slot);
            if (slot == made_->slots.size()) {
                made_->slots.push_back(instance);
                index->added();
            } else {
                made_->slots[slot] = instance;
            }
        }
    }

    void addInterfaceMethods() {
        std::vector<FunctionInstance*>& methods = made_->slots;
        SlotIndex index(methods);
        for (const auto& method : declaration_.methods) {
            if (!takesPartInDispatch(*method)) continue;
            FunctionInstance* instance = session_.instanceOf(*method, type_);
            std::size_t slot = index.find(*instance);
            instance->slot = static_cast<int>(slot);
            if (slot < methods.size()) continue;  // declared twice: an error of its own
            methods.push_back(instance);
            index.added();
        }
    }

    const SlotIndex& indexOf(const Type* interface) {
        auto& index = indexes_[interface];
        if (!index) index = std::make_unique<SlotIndex>(session_.layoutOf(interface).slots);
        return *index;
    }

    // The default body for a method: of the nearest interface that declares one.
    FunctionInstance* defaultMethod(const FunctionInstance& wanted, const std::vector<const Type*>& interfaces) {
        auto [known, isNew] = defaults_.try_emplace({wanted.node->name(), wanted.parameterTypes}, nullptr);
        if (!isNew) return known->second;
        FunctionInstance*& found = known->second;
        for (const Type* interface : interfaces) {
            FunctionInstance* own = indexOf(interface).method(wanted);
            if (!own || own->owner != interface || isAbstract(*own)) continue;
            if (!found || refines(interface, found->owner)) found = own;
        }
        return found;
    }

    void addInterfaceTables() {
        std::vector<const Type*> interfaces;
        for (const Type* each : std::vector<const Type*>(lineageOf(type_)))
            if (each->isInterface()) interfaces.push_back(each);
        SlotIndex own(made_->slots);
        for (const Type* interface : interfaces) {
            InterfaceTable table{interface, {}};
            for (FunctionInstance* wanted : session_.layoutOf(interface).vtable) {
                FunctionInstance* method = own.method(*wanted);
                if (method && isAbstract(*method)) method = nullptr;
                if (!method) method = defaultMethod(*wanted, interfaces);
                table.methods.push_back(method);
            }
            made_->interfaces.push_back(std::move(table));
        }
    }

    static bool isAbstract(const FunctionInstance& method) {
        return !method.node->hasBody() && !method.node->isNative();
    }

    bool hasAbstractMethod() const {
        for (const FunctionInstance* method : made_->vtable)
            if (!method) return true;
        for (const InterfaceTable& table : made_->interfaces)
            if (std::find(table.methods.begin(), table.methods.end(), nullptr) != table.methods.end()) return true;
        return false;
    }

    CompileSession& session_;
    const Type* type_;
    ClassDeclaration& declaration_;
    std::unique_ptr<ClassLayout> made_;
    std::unordered_map<const Type*, std::unique_ptr<SlotIndex>> indexes_;  // of interfaces
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

const FieldSlot* ClassLayout::slotOf(const FieldDeclaration& field) const {
    for (const ClassLayout* at = this; at; at = at->super)
        if (declarationOf(at->type) == field.owner)
            return field.isStatic ? nullptr : &fields[at->firstOwnField + field.ordinal];
    return nullptr;
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

}  // namespace vesk::compiler
