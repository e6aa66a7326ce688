// From lines of input to chunks: how long a chunk goes on.
//   a line by itself                         a chunk
//   an open bracket, comment or clause       goes on, over any number of lines
//   an annotation                            goes on to its declaration
//   a line that ends in ':'                  begins a block, which an empty line ends, or a line that is not indented
// At a terminal an empty line always ends a block; elsewhere, and inside of what is pasted, the block goes on when the next
// line is indented.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace vesk::compiler {

// Where lines come from: null at the end. `isFirst` tells a prompt whether a chunk begins. Throws LinesDropped when the
// lines of the chunk so far are not meant any more.
using LineSource = std::function<std::optional<std::string>(bool isFirst)>;
struct LinesDropped {};

class ChunkReader {
public:
    using Question = std::function<bool()>;
    ChunkReader(LineSource source, bool isTerminal)
        : ChunkReader(std::move(source), [isTerminal] { return isTerminal; }) {}
    // Asked after each line: whether the next one is typed at a terminal.
    ChunkReader(LineSource source, Question isTyped) : source_(std::move(source)), isTyped_(std::move(isTyped)) {}

    // The lines of the next chunk or command, null at the end of the input. Never empty lines only. Passes LinesDropped on;
    // the next call begins anew.
    std::optional<std::string> next();

private:
    std::optional<std::string> nextLine(bool isFirst);

    LineSource source_;
    Question isTyped_;
    std::optional<std::string> kept_;  // read, but not part of the last chunk
};

}  // namespace vesk::compiler
