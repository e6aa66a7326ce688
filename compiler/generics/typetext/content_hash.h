// The hash that tells changed and damaged texts and objects.
#pragma once

#include <cstdint>
#include <string_view>

namespace vesk::compiler {

// Not meant against people who look for equal ones. Another seed gives another hash of the same bytes.
std::uint64_t contentHash(std::string_view bytes, std::uint64_t seed = 0);

}  // namespace vesk::compiler
