// The hash that tells changed and damaged texts and objects.
#pragma once

#include <cstdint>
#include <string_view>

namespace vesk::compiler {

// Not meant against people who look for equal ones.
std::uint64_t contentHash(std::string_view bytes);

}  // namespace vesk::compiler
