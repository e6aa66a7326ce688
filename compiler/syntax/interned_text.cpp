// The table of interned texts, with short cuts for what nearly every look-up asks for.
#include "syntax/interned_text.h"

#include <array>
#include <mutex>
#include <unordered_set>

namespace vesk::compiler {

namespace {

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

struct InternTable {
    std::mutex mutex;
    std::unordered_set<Str, TextHash, std::equal_to<>> texts;

    const Str* add(std::string_view text) {
        std::lock_guard lock(mutex);
        auto found = texts.find(text);
        if (found == texts.end()) found = texts.emplace(text).first;
        return &*found;
    }
};

InternTable& internTable() {
    static InternTable* table = new InternTable;  // never destroyed: tokens may outlive every static object
    return *table;
}

constexpr std::size_t COMMON_SPACES = 64;
using SpaceTable = std::array<const Str*, COMMON_SPACES + 1>;

const SpaceTable& spaceTable() {
    static const SpaceTable table = [] {
        SpaceTable made{};
        for (std::size_t i = 0; i <= COMMON_SPACES; i++) made[i] = internTable().add(Str(i, ' '));
        return made;
    }();
    return table;
}

}  // namespace

const Str* internFilename(std::string_view name) {
    thread_local const Str* gLastFilename = nullptr;
    if (gLastFilename == nullptr || *gLastFilename != name) gLastFilename = internTable().add(name);
    return gLastFilename;
}

const Str* internBlanks(std::string_view blanks) {
    if (blanks.size() <= COMMON_SPACES && blanks.find_first_not_of(' ') == std::string_view::npos)
        return spaceTable()[blanks.size()];
    return internTable().add(blanks);
}

int blanksWidth(std::string_view blanks) {
    int width = 0;
    for (char c : blanks) width += c == '\t' ? 4 : 1;
    return width;
}

}  // namespace vesk::compiler
