// Reading trace tables.
#include "runtime/trace_table.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace vesk::runtime {
namespace {

std::uint64_t littleEndian(std::string_view bytes) {
    std::uint64_t number = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

// Bytes that a table has, by its trailer; 0 when it is none.
std::uint64_t tableSize(std::string_view trailer) {
    if (!trailer.ends_with(TRACE_TABLE_MAGIC)) return 0;
    return littleEndian(trailer.substr(0, 4)) * RANGE_BYTES + littleEndian(trailer.substr(4, 4)) * FRAME_BYTES +
           littleEndian(trailer.substr(8, 4)) + TRAILER_BYTES;
}

bool readAt(int file, std::uint64_t at, std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::pread(file, bytes.data() + done, bytes.size() - done, off_t(at + done));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        done += std::size_t(count);
    }
    return true;
}

}  // namespace

std::uint64_t traceTableHash(std::string_view bytes) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char each : bytes) hash = (hash ^ static_cast<unsigned char>(each)) * 0x100000001b3;
    return hash;
}

std::optional<TraceTable> TraceTable::read(int file) {
    struct stat about{};
    if (::fstat(file, &about) != 0 || about.st_size < off_t(TRAILER_BYTES)) return std::nullopt;
    const auto fileSize = std::uint64_t(about.st_size);
    std::string bytes(TRAILER_BYTES, '\0');
    if (!readAt(file, fileSize - TRAILER_BYTES, bytes)) return std::nullopt;
    const std::uint64_t size = tableSize(bytes);
    if (size == 0 || size > fileSize) return std::nullopt;
    bytes.resize(size);
    if (!readAt(file, fileSize - size, bytes)) return std::nullopt;
    return parse(std::move(bytes));
}

std::optional<TraceTable> TraceTable::parse(std::string bytes) {
    if (bytes.size() < TRAILER_BYTES) return std::nullopt;
    const std::string_view trailer = std::string_view(bytes).substr(bytes.size() - TRAILER_BYTES);
    const std::uint64_t size = tableSize(trailer);
    if (size == 0 || size > bytes.size()) return std::nullopt;
    const std::uint64_t hash = littleEndian(trailer.substr(16, 8));
    TraceTable table;
    table.ranges_ = littleEndian(trailer.substr(0, 4));
    table.frames_ = littleEndian(trailer.substr(4, 4));
    table.textSize_ = littleEndian(trailer.substr(8, 4));
    table.bytes_ = bytes.substr(bytes.size() - size);
    table.framesAt_ = table.ranges_ * RANGE_BYTES;
    table.textsAt_ = table.framesAt_ + table.frames_ * FRAME_BYTES;
    if (hash != traceTableHash(std::string_view(table.bytes_).substr(0, size - 16))) return std::nullopt;
    return table;
}

std::uint32_t TraceTable::number(std::size_t at) const {
    return std::uint32_t(littleEndian(std::string_view(bytes_).substr(at, 4)));
}

std::string TraceTable::text(std::uint32_t at) const {
    const std::string_view texts = std::string_view(bytes_).substr(textsAt_, textSize_);
    if (at >= texts.size()) return {};
    return std::string(texts.substr(at, texts.find('\0', at) - at));
}

bool TraceTable::framesAt(std::uint64_t offset, std::vector<TraceFrame>& frames) const {
    // The last range that begins at the place or before.
    std::size_t low = 0, high = ranges_;
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        if (number(middle * RANGE_BYTES) <= offset)
            low = middle + 1;
        else
            high = middle;
    }
    if (low == 0) return false;
    bool any = false;
    std::uint32_t frame = number((low - 1) * RANGE_BYTES + 4);
    while (frame < frames_) {
        const std::size_t at = framesAt_ + frame * FRAME_BYTES;
        frames.push_back({text(number(at)), text(number(at + 4)), int(number(at + 8))});
        any = true;
        const std::uint32_t caller = number(at + 12);
        if (caller >= frame) break;
        frame = caller;
    }
    return any;
}

}  // namespace vesk::runtime
