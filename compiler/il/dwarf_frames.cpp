// Frames out of LLVM's reader of debug information.
#include "il/dwarf_frames.h"

#include <llvm/DebugInfo/DIContext.h>
#include <llvm/DebugInfo/DWARF/DWARFCompileUnit.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/DebugInfo/DWARF/DWARFDebugLine.h>
#include <llvm/Object/ObjectFile.h>

namespace vesk::compiler {
namespace {

// Where a program is interrupted, which may be between two calls: only calls have lines of their own, so it is the line of
// the call before, 0 when the function has come to none.
std::uint32_t lineBefore(llvm::DWARFContext& debug, llvm::object::SectionedAddress address, std::uint64_t begin) {
    llvm::DWARFCompileUnit* unit = debug.getCompileUnitForCodeAddress(address.Address);
    const llvm::DWARFDebugLine::LineTable* table = unit ? debug.getLineTableForUnit(unit) : nullptr;
    if (!table) return 0;
    std::uint32_t row = table->lookupAddress(address);
    if (row == table->UnknownRowIndex) return 0;
    for (; table->Rows[row].Address.Address >= begin; row--) {
        if (table->Rows[row].Line != 0) return table->Rows[row].Line;
        if (row == 0) break;
    }
    return 0;
}

}  // namespace

bool addFramesAt(llvm::DWARFContext& debug, llvm::object::SectionedAddress address,
                 std::vector<runtime::TraceFrame>& frames) {
    const llvm::DILineInfoSpecifier wanted(llvm::DILineInfoSpecifier::FileLineInfoKind::AbsoluteFilePath,
                                           llvm::DINameKind::ShortName);
    const llvm::DIInliningInfo info = debug.getInliningInfoForAddress(address, wanted);
    bool any = false;
    for (std::uint32_t i = 0; i < info.getNumberOfFrames(); i++) {
        const llvm::DILineInfo& line = info.getFrame(i);
        if (line.FunctionName == llvm::DILineInfo::BadString || line.FunctionName == HIDDEN_FRAME) continue;
        const bool isKnown = line.FileName != llvm::DILineInfo::BadString;
        std::uint32_t number = line.Line;
        if (number == 0 && info.getNumberOfFrames() == 1 && line.StartAddress)
            number = lineBefore(debug, address, *line.StartAddress);
        frames.push_back(
            {line.FunctionName, isKnown ? line.FileName : line.StartFileName, int(number ? number : line.StartLine)});
        any = true;
    }
    return any;
}

}  // namespace vesk::compiler
