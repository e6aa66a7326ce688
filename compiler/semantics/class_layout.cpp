// Concrete classes as code generation needs them: fields, vtables and interface tables.
// A vtable begins with the super class's slots; a method takes over the slot of the method it overrides, that is, of the
// one with its name and its parameter types after substitution. An interface's `vtable` lists its methods, super
// interfaces' first; each class has one table per interface, parallel to that list. Generic methods are bound when the
// program is compiled and take no part.
#include <algorithm>

#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

bool isSameMethod(const FunctionInstance& a, const MethodDeclaration& method, const FunctionInstance& b) {
    return a.node->name() == method.name && a.parameterTypes == b.parameterTypes;
}

// The class's most special method with that name and these parameters.
FunctionInstance* methodInVtable(const ClassLayout& layout, const FunctionInstance& wanted) {
    for (FunctionInstance* method : layout.slots)
        if (method->node->name() == wanted.node->name() && method->parameterTypes == wanted.parameterTypes)
            return method;
    return nullptr;
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
        for (const auto& field : declaration_.fields) {
            if (field->isStatic) continue;
            const Type* type = resolveDeclaredType(field->node->type(), declaration_.node->context(),
                                                   field->node->token(), &environment);
            made_->fields.push_back({field->name, type, field.get(), static_cast<unsigned>(made_->fields.size())});
        }
    }

    void addMethods() {
        for (const auto& method : declaration_.methods) {
            if (!takesPartInDispatch(*method)) continue;
            FunctionInstance* instance = session_.instanceOf(*method, type_);
            auto slot = std::find_if(made_->slots.begin(), made_->slots.end(), [&](const FunctionInstance* other) {
                return isSameMethod(*other, *method, *instance);
            });
            instance->slot = static_cast<int>(slot - made_->slots.begin());
            if (slot == made_->slots.end())
                made_->slots.push_back(instance);
            else
                *slot = instance;
        }
    }

    void addInterfaceMethods() {
        std::vector<FunctionInstance*>& methods = made_->slots;
        auto add = [&](FunctionInstance* instance) -> std::size_t {
            for (std::size_t i = 0; i < methods.size(); i++) {
                if (methods[i]->node->name() != instance->node->name() ||
                    methods[i]->parameterTypes != instance->parameterTypes)
                    continue;
                methods[i] = instance;  // redeclared: the nearer one counts
                return i;
            }
            methods.push_back(instance);
            return methods.size() - 1;
        };
        for (const Type* super : directInterfaces(type_)) {
            const ClassLayout& inherited = session_.layoutOf(super);
            for (FunctionInstance* instance : inherited.vtable) add(instance);
            made_->interfaces.push_back({super, {}});
            for (const InterfaceTable& table : inherited.interfaces) made_->interfaces.push_back({table.interface, {}});
        }
        for (const auto& method : declaration_.methods) {
            if (!takesPartInDispatch(*method)) continue;
            FunctionInstance* instance = session_.instanceOf(*method, type_);
            instance->slot = static_cast<int>(add(instance));
        }
    }

    // The nearest default body for a method among the interfaces in order of nearness.
    FunctionInstance* defaultMethod(const FunctionInstance& wanted, const std::vector<const Type*>& interfaces) {
        FunctionInstance* found = nullptr;
        for (const Type* interface : interfaces) {
            FunctionInstance* own = methodInVtable(session_.layoutOf(interface), wanted);
            if (!own || isAbstract(*own)) continue;
            // A sub interface's default hides the one of its super interface, wherever it stands in the list.
            if (!found || superTypeOf(own->owner, found->owner->declaration)) found = own;
        }
        return found;
    }

    void addInterfaceTables() {
        std::vector<const Type*> interfaces;
        for (const Type* each : std::vector<const Type*>(lineageOf(type_)))
            if (each->isInterface()) interfaces.push_back(each);
        for (const Type* interface : interfaces) {
            InterfaceTable table{interface, {}};
            for (FunctionInstance* wanted : session_.layoutOf(interface).vtable) {
                FunctionInstance* method = methodInVtable(*made_, *wanted);
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
};

const ClassLayout* buildLayout(CompileSession& session, const Type* type) {
    CompileSession::State& state = session.state();
    if (!state.layoutsUnderWay.insert(type).second)
        throw compileError(nullptr, "The layout of " + type->structured + " depends on itself");
    try {
        auto made = LayoutBuilder(session, type).build();
        state.layoutsUnderWay.erase(type);
        return state.layouts.emplace(type, std::move(made)).first->second.get();
    } catch (...) {
        state.layoutsUnderWay.erase(type);
        throw;
    }
}

}  // namespace

const ClassLayout& CompileSession::layoutOf(const Type* type) {
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
