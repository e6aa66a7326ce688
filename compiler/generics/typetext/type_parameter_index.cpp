// Looking type parameters up: along the list while it is short, in the table from then on.
#include "generics/typetext/type_parameter_index.h"

#include <algorithm>

namespace vesk::compiler {

namespace {

constexpr std::size_t MOST_COMPARED = 8;

}  // namespace

TypeParameterIndex::TypeParameterIndex(const StrVec& names) {
    names_.reserve(names.size());
    for (const Str& name : names) add(name);
}

TypeParameterIndex::TypeParameterIndex(const std::vector<GenericTypeParam>& params) {
    names_.reserve(params.size());
    for (const GenericTypeParam& param : params) add(param.name);
}

TypeParameterIndex::TypeParameterIndex(const std::vector<GenericTypeParamInfo>& params) {
    names_.reserve(params.size());
    for (const GenericTypeParamInfo& param : params) add(param.name);
}

void TypeParameterIndex::add(std::string_view name) {
    names_.push_back(name);
    if (names_.size() <= MOST_COMPARED) return;
    const std::size_t first = positions_.empty() ? 0 : names_.size() - 1;
    for (std::size_t i = first; i < names_.size(); i++) positions_.try_emplace(names_[i], i);
}

std::size_t TypeParameterIndex::positionOf(std::string_view name) const {
    if (!positions_.empty()) {
        const auto found = positions_.find(name);
        return found == positions_.end() ? NONE : found->second;
    }
    const auto found = std::find(names_.begin(), names_.end(), name);
    return found == names_.end() ? NONE : static_cast<std::size_t>(found - names_.begin());
}

}  // namespace vesk::compiler
