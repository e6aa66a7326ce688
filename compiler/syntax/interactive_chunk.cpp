// Telling chunks from files by their names.
#include "syntax/interactive_chunk.h"

namespace vesk::compiler {

std::string_view interactiveChunkName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

bool isInteractiveChunk(std::string_view path) {
    constexpr std::string_view PREFIX = "repl_chunk_";
    const std::string_view name = interactiveChunkName(path);
    return name.size() > PREFIX.size() && name.starts_with(PREFIX) &&
           name.find_first_not_of("0123456789", PREFIX.size()) == std::string_view::npos;
}

}  // namespace vesk::compiler
