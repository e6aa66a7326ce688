// Which methods a name means for a type: those of its lineage that no nearer one hides.
// What a type inherits is what the nearest type that declares the name has, less what it hides itself. So the answer is made
// from the answer of that one and kept, and a chain of overriding classes is gone through once.
#include "semantics/checker.h"

namespace vesk::compiler {

namespace {

struct ParametersHash {
    std::size_t operator()(const std::vector<const Type*>* types) const {
        std::size_t hash = types->size();
        for (const Type* type : *types) hash = hash * 0x9E3779B97F4A7C15ull + reinterpret_cast<std::uintptr_t>(type);
        return hash;
    }
};
struct ParametersEqual {
    bool operator()(const std::vector<const Type*>* a, const std::vector<const Type*>* b) const { return *a == *b; }
};

}  // namespace

// Collects methods of one name, the nearest ones first.
class Checker::VisibleMethodCollector {
public:
    VisibleMethodCollector(Checker& checker, bool isRaw) : checker_(checker), isRaw_(isRaw) {}

    void addFrom(const Type* owner, std::string_view name) {
        if (!owner->declaration) return;
        for (MethodDeclaration* method : owner->declaration->methodsNamed(name)) {
            MethodCandidate candidate{method, owner, nullptr};
            if (method->isStatic)
                candidate.owner =
                    owner->kind == TypeKind::Class ? checker_.types_.classType(owner->declaration, {}) : owner;
            if (!method->isGeneric() && (method->isStatic || (candidate.owner->isConcrete && !isRaw_)))
                candidate.instance = checker_.session_.instanceOf(*method, candidate.owner);
            add({candidate, owner});
        }
    }

    void add(const VisibleMethod& method) {
        std::size_t same = hiding(method);
        const bool isBesidePrivate = same < found_.size() && isPrivate(found_[same]) && !isPrivate(method);
        if (isBesidePrivate) same = found_.size();
        if (same < found_.size() && !refines(method.declaredBy, found_[same].declaredBy)) return;
        if (same == found_.size())
            found_.push_back(method);
        else
            found_[same] = method;
        if (method.candidate.instance && isBesidePrivate)
            byParameters_.insert_or_assign(&method.candidate.instance->parameterTypes, same);
        else if (method.candidate.instance)
            byParameters_.try_emplace(&method.candidate.instance->parameterTypes, same);
        else
            open_.push_back(same);
    }

    VisibleMethods take() { return std::make_shared<const std::vector<VisibleMethod>>(std::move(found_)); }

private:
    // What is private to a class is not inherited from it: it hides nothing that others may use.
    static bool isPrivate(const VisibleMethod& method) {
        return method.candidate.method->node->visibility() == MemberVisibility::Private;
    }

    // The one found that has the method's parameters, the number of those found when there is none.
    std::size_t hiding(const VisibleMethod& method) {
        const MethodCandidate& candidate = method.candidate;
        if (!candidate.instance) {
            for (std::size_t same = 0; same < found_.size(); same++)
                if (found_[same].declaredBy != method.declaredBy &&
                    checker_.haveSameParameters(found_[same].candidate, candidate))
                    return same;
            return found_.size();
        }
        if (auto known = byParameters_.find(&candidate.instance->parameterTypes); known != byParameters_.end())
            return known->second;
        for (std::size_t same : open_)
            if (checker_.haveSameParameters(found_[same].candidate, candidate)) return same;
        return found_.size();
    }

    Checker& checker_;
    const bool isRaw_;
    std::vector<VisibleMethod> found_;
    // Positions in `found_`: of methods with concrete parameters by these, of all others in order.
    std::unordered_map<const std::vector<const Type*>*, std::size_t, ParametersHash, ParametersEqual> byParameters_;
    std::vector<std::size_t> open_;
};

// Whether two methods of one name are the same to their callers: a farther one is hidden by a nearer one.
bool Checker::haveSameParameters(const MethodCandidate& a, const MethodCandidate& b) {
    if (a.method->isGeneric() != b.method->isGeneric()) return false;
    if (a.instance && b.instance) return a.instance->parameterTypes == b.instance->parameterTypes;
    return declaredSignatureOf(a).shape == declaredSignatureOf(b).shape;
}

// Goes from declaring type to declaring type as long as there is only one way up, then back down over them.
VisibleMethods Checker::visibleMethods(const Type* type, std::string_view name) {
    VisibleMethods found;
    std::vector<const Type*> passed;
    auto keep = [&](const Type* at, VisibleMethodCollector& collector) {
        found = collector.take();
        keepVisibleMethods(at, name, found);
    };
    for (const Type* at = type; !found;) {
        const std::vector<const Type*> nearest = nearestDeclaring(at, MemberKind::Method, name);
        if (nearest.empty()) return std::make_shared<const std::vector<VisibleMethod>>();
        if (nearest.size() == 1) at = nearest[0];
        found = knownVisibleMethods(at, name);
        if (found) break;
        if (nearest.size() == 1) {
            const std::vector<const Type*> above = nearestDeclaringAbove(at, MemberKind::Method, name);
            if (above.size() < 2) {
                passed.push_back(at);
                if (above.empty()) break;
                at = above[0];
                continue;
            }
        }
        VisibleMethodCollector collector(*this, false);
        for (const Type* owner : allDeclaring(at, MemberKind::Method, name)) collector.addFrom(owner, name);
        keep(at, collector);
    }
    for (; !passed.empty(); passed.pop_back()) {
        VisibleMethodCollector collector(*this, false);
        collector.addFrom(passed.back(), name);
        if (found)
            for (const VisibleMethod& inherited : *found) collector.add(inherited);
        keep(passed.back(), collector);
    }
    return found;
}

std::vector<MethodCandidate> Checker::methodsNamed(const Type* type, std::string_view name) {
    const bool isRaw =
        type->kind == TypeKind::Class && type->declaration && type->declaration->isGeneric() && type->arguments.empty();
    VisibleMethods found;
    VisibleMethodCollector collector(*this, isRaw);
    if (ancestryOf(type) && !isRaw) {
        found = visibleMethods(type, name);
    } else {
        for (const Type* owner : allDeclaring(type, MemberKind::Method, name)) collector.addFrom(owner, name);
        found = collector.take();
    }
    // Everything else that has methods has those of Object.
    const Type* object = builtin(TypeKind::Object);
    const bool hasNone = type->isVoid() || type->kind == TypeKind::Null || type->kind == TypeKind::Parameter;
    const bool hasThoseOfObject = type == object || (object->declaration && superTypeOf(type, object->declaration));
    if (!hasNone && !hasThoseOfObject && object->declaration &&
        declares(*object->declaration, MemberKind::Method, name)) {
        VisibleMethodCollector withObject(*this, isRaw);
        for (const VisibleMethod& each : *found) withObject.add(each);
        withObject.addFrom(object, name);
        found = withObject.take();
    }
    std::vector<MethodCandidate> methods;
    methods.reserve(found->size());
    for (const VisibleMethod& each : *found) methods.push_back(each.candidate);
    return methods;
}

}  // namespace vesk::compiler
