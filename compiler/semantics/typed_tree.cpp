// The arena of typed nodes: blocks that grow with the body and are given back together.
#include "semantics/typed_tree.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vesk::compiler {

namespace {
// Most bodies fit the first block; long ones settle at the largest size.
constexpr std::size_t FIRST_BLOCK = 2048, LARGEST_BLOCK = 64 * 1024;
}  // namespace

Arena::~Arena() = default;

Arena::Arena(Arena&& other) noexcept
    : blocks_(std::move(other.blocks_)),
      next_(std::exchange(other.next_, nullptr)),
      end_(std::exchange(other.end_, nullptr)) {}

Arena& Arena::operator=(Arena&& other) noexcept {
    blocks_ = std::move(other.blocks_);
    next_ = std::exchange(other.next_, nullptr);
    end_ = std::exchange(other.end_, nullptr);
    return *this;
}

void* Arena::allocate(std::size_t size, std::size_t alignment) {
    auto aligned = [alignment](char* place) {
        return reinterpret_cast<char*>((reinterpret_cast<std::uintptr_t>(place) + alignment - 1) & ~(alignment - 1));
    };
    char* place = next_ ? aligned(next_) : nullptr;
    if (!place || place > end_ || size > static_cast<std::size_t>(end_ - place)) {
        std::size_t grown = std::min(FIRST_BLOCK << std::min<std::size_t>(blocks_.size(), 5), LARGEST_BLOCK);
        std::size_t block = std::max(grown, size + alignment);
        blocks_.push_back(std::unique_ptr<char[]>(new char[block]));
        next_ = blocks_.back().get();
        end_ = next_ + block;
        place = aligned(next_);
    }
    next_ = place + size;
    return place;
}

std::string_view Arena::copy(std::string_view text) {
    if (text.empty()) return {};
    char* room = static_cast<char*>(allocate(text.size(), 1));
    std::memcpy(room, text.data(), text.size());
    return {room, text.size()};
}

}  // namespace vesk::compiler
