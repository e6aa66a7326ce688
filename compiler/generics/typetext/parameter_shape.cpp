// One walk over each type's names.
#include "generics/typetext/parameter_shape.h"

#include <cctype>
#include <string_view>
#include <unordered_map>

#include "generics/typetext/type_parameter_index.h"

namespace vesk::compiler {

namespace {

bool isNamePart(char c) { return c == '_' || c == '.' || std::isalnum(static_cast<unsigned char>(c)); }

}  // namespace

Str parameterShape(const StrVec& paramTypes, const StrVec& typeParamNames) {
    const TypeParameterIndex typeParams(typeParamNames);
    std::unordered_map<std::size_t, std::size_t> met;  // place of a type parameter -> place of its first occurrence
    Str shape;
    for (const Str& type : paramTypes) {
        for (std::size_t start = 0; start < type.size();) {
            std::size_t end = start;
            while (end < type.size() && isNamePart(type[end])) end++;
            if (end == start) {
                shape += type[start++];
                continue;
            }
            const std::string_view name = std::string_view(type).substr(start, end - start);
            start = end;
            const std::size_t position = typeParams.positionOf(name);
            if (position == TypeParameterIndex::NONE) {
                shape += name;
                continue;
            }
            shape += '#' + std::to_string(met.try_emplace(position, met.size()).first->second);
        }
        shape += ';';
    }
    return shape;
}

}  // namespace vesk::compiler
