// LLVM's line editor, which is in this folder because only this folder knows LLVM.
#include "il/line_editor.h"

#include <llvm/LineEditor/LineEditor.h>

namespace vesk::compiler {

struct TerminalLines::State {
    llvm::LineEditor editor;
};

TerminalLines::TerminalLines(const std::string& programName)
    : state_(new State{llvm::LineEditor(programName, llvm::LineEditor::getDefaultHistoryPath(programName))}) {}

TerminalLines::~TerminalLines() = default;

std::optional<std::string> TerminalLines::read(const std::string& prompt) {
    state_->editor.setPrompt(prompt);
    return state_->editor.readLine();
}

}  // namespace vesk::compiler
