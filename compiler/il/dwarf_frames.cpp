// Frames out of LLVM's reader of debug information.
#include "il/dwarf_frames.h"

#include <llvm/DebugInfo/DIContext.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/Object/ObjectFile.h>

namespace vesk::compiler {

bool addFramesAt(llvm::DWARFContext& debug, llvm::object::SectionedAddress address,
                 std::vector<runtime::TraceFrame>& frames) {
    const llvm::DILineInfoSpecifier wanted(llvm::DILineInfoSpecifier::FileLineInfoKind::AbsoluteFilePath,
                                           llvm::DINameKind::ShortName);
    const llvm::DIInliningInfo info = debug.getInliningInfoForAddress(address, wanted);
    bool any = false;
    for (std::uint32_t i = 0; i < info.getNumberOfFrames(); i++) {
        const llvm::DILineInfo& line = info.getFrame(i);
        if (line.FunctionName == llvm::DILineInfo::BadString || line.FunctionName == HIDDEN_FRAME) continue;
        frames.push_back({line.FunctionName, line.FileName, int(line.Line ? line.Line : line.StartLine)});
        any = true;
    }
    return any;
}

}  // namespace vesk::compiler
