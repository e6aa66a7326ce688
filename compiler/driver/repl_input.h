// From lines of input to chunks: how long a chunk goes on.
//   a line by itself                         a chunk
//   an open bracket, comment or clause       goes on, over any number of lines
//   an annotation                            goes on to its declaration
//   a line that ends in ':'                  begins a block, which an empty line ends, or a line that is not indented
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace vesk::compiler {

// Where lines come from: null at the end. `isFirst` tells a prompt whether a chunk begins.
using LineSource = std::function<std::optional<std::string>(bool isFirst)>;

class ChunkReader {
public:
    // At a terminal an empty line always ends a block; elsewhere the block goes on when the next line is indented.
    ChunkReader(LineSource source, bool isTerminal) : source_(std::move(source)), isTerminal_(isTerminal) {}

    // The lines of the next chunk or command, null at the end of the input. Never empty lines only.
    std::optional<std::string> next();

private:
    std::optional<std::string> nextLine(bool isFirst);

    LineSource source_;
    bool isTerminal_;
    std::optional<std::string> kept_;  // read, but not part of the last chunk
};

}  // namespace vesk::compiler
