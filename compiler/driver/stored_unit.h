// A unit's machine code as it lies in the cache: an object file with a description behind it.
// Tools that read object files look at the front and see an ordinary one. The end is, counted from behind:
//
//     8 bytes   "veskobj1"; the digit counts up when the form changes
//     8 bytes   hash of everything before it
//     8 bytes   size of the object in front of the description
//     ...       the description: strings and lists, each with its length before it, in the order of StoredUnit
//
// Whoever reads one gets it as it was written, or nothing: a file that was cut off, changed or written by somebody else
// is as good as none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vesk::compiler {

struct StoredUnit {
    // A unit that this one refers to, and the symbols that it expects there.
    struct Need {
        enum class Kind : unsigned char { File, Bundle, Instantiation };
        Kind kind = Kind::File;
        std::string unit;  // path of a file or bundle; structured text of an instantiation
        std::vector<std::string> symbols;
        bool operator==(const Need&) const = default;
    };
    // A text that the code was made from, or a folder whose list of sources decided what was.
    struct Input {
        std::string path;
        std::uint64_t hash = 0;
        bool operator==(const Input&) const = default;
    };

    std::string name;          // of the unit
    std::string environment;   // compiler, library and options; code of another environment does not fit
    std::uint64_t source = 0;  // hash of the unit's own text
    std::vector<Input> inputs;
    std::vector<std::string> defines;  // sorted
    std::vector<Need> needs;
    std::string initializer;  // symbol that sets the unit's static fields, "" = none
    std::string object;
    bool operator==(const StoredUnit&) const = default;

    bool definesAll(const std::vector<std::string>& symbols) const;
};

std::string renderStoredUnit(const StoredUnit& unit);
std::optional<StoredUnit> parseStoredUnit(std::string_view bytes);

}  // namespace vesk::compiler
