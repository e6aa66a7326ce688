// The names of interactive chunks: `repl_chunk_7`, behind any folder.
// A chunk is a file that may hold statements between its declarations. It is a package of its own, named like it, so
// that what it declares never meets what other chunks declare under the same name.
#pragma once

#include <string>
#include <string_view>

namespace vesk::compiler {

bool isInteractiveChunk(std::string_view path);
// "repl_chunk_7": the chunk's package and the name of the function that its statements form.
std::string_view interactiveChunkName(std::string_view path);

}  // namespace vesk::compiler
