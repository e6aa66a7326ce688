// Collected nearest first, told farthest first.
#include "generics/method_lineage.h"

#include <algorithm>

#include "generics/method_signature.h"
#include "generics/typetext/parameter_shape.h"
#include "host/context.h"

namespace vesk::compiler {

namespace {

using Place = GenericMethodOwner::Place;

class Collector {
public:
    Collector(const ContextPtr& context, const Str& owner, const Str& method)
        : context_(context), method_(method), owners_(context->getGenericMethodOwners(owner, method)) {}

    std::vector<GenericMethodInfo> collect() {
        levels_.resize(owners_.size());
        for (std::size_t i = 0; i < owners_.size(); i++) addLevel(i);
        std::vector<GenericMethodInfo> told;
        for (const Place place : {Place::SuperClass, Place::Interface, Place::Self}) {
            for (std::size_t i = owners_.size(); i-- > 0;) {
                if (owners_[i].place != place) continue;
                for (Offered& offered : levels_[i])
                    if (!offered.isHidden) told.push_back(std::move(offered.info));
            }
        }
        return told;
    }

private:
    struct Offered {
        GenericMethodInfo info;
        Str shape;
        bool isHidden = false;
        bool isHolder = true;
    };

    void addLevel(std::size_t level) {
        std::vector<Offered>& offers = levels_[level];
        for (GenericMethodInfo& info : context_->getGenericMethods(owners_[level].name, method_)) {
            Str shape = shapeOf(info);
            // What is private to a class is not inherited from it: it hides nothing that others may use.
            if (owners_[level].place != Place::Self && info.visibility == MemberVisibility::Private) {
                offers.push_back({std::move(info), std::move(shape), false, false});
                continue;
            }
            const auto holder = holders_.find(shape);
            if (holder != holders_.end() && !hides(level, holder->second)) continue;
            offers.push_back({std::move(info), std::move(shape)});
        }
        // Those of one class do not hide one another.
        for (const Offered& offered : offers) {
            if (!offered.isHolder) continue;
            const auto [holder, isFirst] = holders_.try_emplace(offered.shape, level);
            if (isFirst || holder->second == level) continue;
            for (Offered& hidden : levels_[holder->second]) hidden.isHidden |= hidden.shape == offered.shape;
            holder->second = level;
        }
    }

    // With one class there is nothing to compare.
    Str shapeOf(const GenericMethodInfo& info) const {
        return owners_.size() < 2 ? Str() : parameterShape(info.paramTypes, genericMethodTypeParamNameList(info));
    }

    // Whether a class hides what one in front of it offers.
    bool hides(std::size_t level, std::size_t earlier) const {
        return owners_[level].place == Place::Interface && owners_[earlier].place == Place::Interface &&
               context_->implementsInterface(owners_[level].name, owners_[earlier].name);
    }

    const ContextPtr& context_;
    const Str& method_;
    const std::vector<GenericMethodOwner> owners_;  // nearest first
    std::vector<std::vector<Offered>> levels_;      // parallel to owners_
    std::unordered_map<Str, std::size_t> holders_;  // shape -> the class that offers it
};

}  // namespace

std::vector<GenericMethodInfo> genericMethodOverloads(const ContextPtr& context, const Str& owner, const Str& method) {
    return Collector(context, owner, method).collect();
}

StrVec genericMethodNames(const ContextPtr& context, const Str& owner) {
    StrVec names;
    for (const GenericMethodOwner& each : context->getGenericMethodOwners(owner, "")) {
        for (const GenericMethodInfo& info : context->getAllGenericMethods(each.name)) {
            if (std::find(names.begin(), names.end(), info.name) == names.end()) names.push_back(info.name);
        }
    }
    return names;
}

}  // namespace vesk::compiler
