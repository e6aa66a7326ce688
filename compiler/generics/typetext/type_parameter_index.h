// The names of a declaration's type parameters, each found by its name: a walk over n types that names n parameters makes
// n look-ups, not n comparisons for each. A handful of names, the usual case, is compared one by one.
#pragma once

#include <limits>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/model_records.h"

namespace vesk::compiler {

class TypeParameterIndex {
public:
    static constexpr std::size_t NONE = std::numeric_limits<std::size_t>::max();

    TypeParameterIndex() = default;
    // The names stay with the caller and outlive the index, unchanged.
    explicit TypeParameterIndex(const StrVec& names);
    explicit TypeParameterIndex(const std::vector<GenericTypeParam>& params);
    explicit TypeParameterIndex(const std::vector<GenericTypeParamInfo>& params);

    // The first place with this name, NONE where there is none.
    std::size_t positionOf(std::string_view name) const;
    bool contains(std::string_view name) const { return positionOf(name) != NONE; }
    bool empty() const { return names_.empty(); }
    std::size_t size() const { return names_.size(); }

private:
    void add(std::string_view name);

    std::vector<std::string_view> names_;
    std::unordered_map<std::string_view, std::size_t> positions_;  // of all names, once they are many
};

}  // namespace vesk::compiler
