// Writes the table of traces that runtime/trace_table.h reads.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "runtime/trace_table.h"

namespace vesk::compiler {

// Equal texts and frames are written once.
class TraceTableWriter {
public:
    // Code from `begin` to the next range's has these frames, innermost first. Ranges are added in order.
    void addRange(std::uint32_t begin, const std::vector<runtime::TraceFrame>& frames);
    std::string finish() const;

private:
    std::uint32_t indexOf(const runtime::TraceFrame& frame, std::uint32_t caller);
    std::uint32_t textAt(const std::string& text);

    std::string ranges_, frames_, texts_;
    std::uint32_t lastFrame_ = runtime::NO_FRAME;
    std::map<std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>, std::uint32_t> knownFrames_;
    std::unordered_map<std::string, std::uint32_t> knownTexts_;
};

}  // namespace vesk::compiler
