// Tables of traces.
#include "il/trace_table_writer.h"

namespace vesk::compiler {
namespace {

void appendNumber(std::string& bytes, std::uint32_t number) {
    for (int i = 0; i < 4; i++) bytes += char(number >> (8 * i) & 0xff);
}

}  // namespace

void TraceTableWriter::addRange(std::uint32_t begin, const std::vector<runtime::TraceFrame>& frames) {
    std::uint32_t frame = runtime::NO_FRAME;
    for (auto at = frames.rbegin(); at != frames.rend(); ++at) frame = indexOf(*at, frame);
    if (frame == lastFrame_) return;
    lastFrame_ = frame;
    appendNumber(ranges_, begin);
    appendNumber(ranges_, frame);
}

// A frame's caller is known before it: it has the smaller index.
std::uint32_t TraceTableWriter::indexOf(const runtime::TraceFrame& frame, std::uint32_t caller) {
    const auto key = std::tuple(textAt(frame.name), textAt(frame.path), std::uint32_t(frame.line), caller);
    const auto [found, isNew] = knownFrames_.try_emplace(key, std::uint32_t(knownFrames_.size()));
    if (isNew) std::apply([this](auto... numbers) { (appendNumber(frames_, numbers), ...); }, key);
    return found->second;
}

std::uint32_t TraceTableWriter::textAt(const std::string& text) {
    const auto [found, isNew] = knownTexts_.try_emplace(text, std::uint32_t(texts_.size()));
    if (isNew) texts_ += text + '\0';
    return found->second;
}

std::string TraceTableWriter::finish() const {
    std::string table = ranges_ + frames_ + texts_;
    appendNumber(table, std::uint32_t(ranges_.size() / runtime::RANGE_BYTES));
    appendNumber(table, std::uint32_t(frames_.size() / runtime::FRAME_BYTES));
    appendNumber(table, std::uint32_t(texts_.size()));
    appendNumber(table, 0);
    const std::uint64_t hash = runtime::traceTableHash(table);
    appendNumber(table, std::uint32_t(hash));
    appendNumber(table, std::uint32_t(hash >> 32));
    table += runtime::TRACE_TABLE_MAGIC;
    return table;
}

}  // namespace vesk::compiler
