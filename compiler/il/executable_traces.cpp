// Reading a linked executable's debug information into its table of traces.
// Frames change only where a line of the program begins or an inlined call begins or ends. At each of these places the
// debug information is asked as a panic of the JIT would ask it.
#include <llvm/DebugInfo/DWARF/DWARFCompileUnit.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/Object/ELFObjectFile.h>
#include <llvm/Object/ObjectFile.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "il/dwarf_frames.h"
#include "il/executable_parts.h"
#include "il/trace_table_writer.h"
#include "runtime/trace_table.h"

namespace vesk::compiler {
namespace {

using runtime::TraceFrame;

struct CodeBounds {
    std::uint64_t begin = 0, end = 0;
    bool contains(std::uint64_t address) const { return address >= begin && address < end; }
};

CodeBounds codeBoundsOf(const llvm::object::ObjectFile& file) {
    CodeBounds bounds;
    for (const llvm::object::SymbolRef& symbol : file.symbols()) {
        auto name = symbol.getName();
        auto address = symbol.getAddress();
        if (name && address && *name == CODE_BEGIN) bounds.begin = *address;
        if (name && address && *name == CODE_END) bounds.end = *address;
        llvm::consumeError(name.takeError());
        llvm::consumeError(address.takeError());
    }
    return bounds;
}

// Where frames may change, in order.
std::vector<std::uint64_t> placesOfChange(llvm::DWARFContext& debug, const CodeBounds& code) {
    std::vector<std::uint64_t> places;
    const auto add = [&](std::uint64_t address) {
        if (code.contains(address)) places.push_back(address);
    };
    for (const std::unique_ptr<llvm::DWARFUnit>& unit : debug.compile_units()) {
        if (const auto* lines = debug.getLineTableForUnit(unit.get())) {
            for (const auto& row : lines->Rows) add(row.Address.Address);
        }
        for (const llvm::DWARFDebugInfoEntry& entry : unit->dies()) {
            const llvm::DWARFDie die(unit.get(), &entry);
            if (!die.isSubroutineDIE()) continue;
            auto ranges = die.getAddressRanges();
            if (ranges) {
                for (const llvm::DWARFAddressRange& range : *ranges) {
                    add(range.LowPC);
                    add(range.HighPC);
                }
            }
            llvm::consumeError(ranges.takeError());
        }
    }
    std::sort(places.begin(), places.end());
    places.erase(std::unique(places.begin(), places.end()), places.end());
    return places;
}

}  // namespace

std::string traceTableOf(const std::string& executable) {
    auto opened = llvm::object::ObjectFile::createObjectFile(executable);
    if (!opened) throw std::runtime_error(llvm::toString(opened.takeError()));
    const llvm::object::ObjectFile& file = *opened->getBinary();
    const CodeBounds code = codeBoundsOf(file);
    if (code.begin == 0 || code.end <= code.begin || code.end - code.begin >= runtime::NO_FRAME) return {};

    const auto ignore = [](llvm::Error error) { llvm::consumeError(std::move(error)); };
    const auto debug = llvm::DWARFContext::create(file, llvm::DWARFContext::ProcessDebugRelocations::Ignore, nullptr,
                                                  "", ignore, ignore);
    const std::vector<std::uint64_t> places = placesOfChange(*debug, code);
    if (places.empty()) return {};
    TraceTableWriter table;
    std::vector<TraceFrame> frames;
    for (const std::uint64_t place : places) {
        frames.clear();
        addFramesAt(*debug, {place, llvm::object::SectionedAddress::UndefSection}, frames);
        table.addRange(std::uint32_t(place - code.begin), frames);
    }
    return table.finish();
}

}  // namespace vesk::compiler
