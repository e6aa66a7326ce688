// Names and lines of an executable's code, for the traces of its panics.
// The compiler appends the table to the file that it has linked; nothing is loaded until a program panics. All numbers
// are little-endian and 32 bits wide unless it says otherwise:
//
//     ranges    {begin, frame} each, sorted: code from `begin` to the next range's; counted from the beginning of the
//               generated code, wherever it is loaded
//     frames    {name, path, line, caller} each: places in `texts`; the frame into which the call was inlined stands
//               further ahead. A caller or a range without a frame says NO_FRAME.
//     texts     each ends with a zero byte
//     trailer   counts of ranges and frames, bytes of texts, zero; 64 bits: hash of everything before; TRACE_TABLE_MAGIC
//
// The last character of the magic counts up when the form changes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/panic.h"

namespace vesk::runtime {

inline constexpr std::string_view TRACE_TABLE_MAGIC = "veskTrc1";
inline constexpr std::uint32_t NO_FRAME = 0xffffffff;
inline constexpr std::size_t RANGE_BYTES = 8, FRAME_BYTES = 16, TRAILER_BYTES = 32;

std::uint64_t traceTableHash(std::string_view bytes);

class TraceTable {
public:
    // Reads the table at the end of a file. Nothing when there is none or when it is damaged.
    static std::optional<TraceTable> read(int file);
    // The same from a text that ends with the table.
    static std::optional<TraceTable> parse(std::string bytes);

    // Appends the frames of the code at a distance from the code's beginning, innermost first; false for none.
    bool framesAt(std::uint64_t offset, std::vector<TraceFrame>& frames) const;

private:
    std::uint32_t number(std::size_t at) const;
    std::string text(std::uint32_t at) const;

    std::string bytes_;
    std::size_t ranges_ = 0, frames_ = 0, textSize_ = 0;  // counts, and bytes of texts
    std::size_t framesAt_ = 0, textsAt_ = 0;
};

}  // namespace vesk::runtime
