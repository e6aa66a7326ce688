// One walk over each type's names.
#include "generics/typetext/parameter_shape.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace vesk::compiler {

namespace {

bool isNamePart(char c) { return c == '_' || c == '.' || std::isalnum(static_cast<unsigned char>(c)); }

}  // namespace

Str parameterShape(const StrVec& paramTypes, const StrVec& typeParamNames) {
    StrVec met;  // in order of their first occurrence
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
            if (std::find(typeParamNames.begin(), typeParamNames.end(), name) == typeParamNames.end()) {
                shape += name;
                continue;
            }
            const auto known = std::find(met.begin(), met.end(), name);
            shape += '#' + std::to_string(known - met.begin());
            if (known == met.end()) met.emplace_back(name);
        }
        shape += ';';
    }
    return shape;
}

}  // namespace vesk::compiler
