// Links objects of this compiler into the running process: those that lie in the cache and are whole among themselves.
// The general linker of the Jit can take anything, and spends some ten microseconds on each symbol; a program that uses
// a few collections needs hundreds. This one knows one machine (x86-64) and the few kinds of relocation that our code
// generator writes, and takes a tenth of that. Whatever it does not know it refuses, and the Jit takes the objects.
//
// All objects lie in one piece of memory: code, then constants, then data. Calls out of it go through stubs behind the
// code, since the run-time library may be further away than a call reaches; addresses that code loads from elsewhere
// stand in a table behind the constants. Of several definitions of one symbol the first counts.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vesk::compiler {

class ObjectLinker {
public:
    // Finds what no object defines; null for unknown symbols.
    using Outside = void* (*)(std::string_view symbol);
    explicit ObjectLinker(Outside outside) : outside_(outside) {}
    ObjectLinker(const ObjectLinker&) = delete;
    ObjectLinker& operator=(const ObjectLinker&) = delete;

    // The bytes stay in use. False: nothing has been linked, and problem() says why. Once per linker.
    bool link(const std::vector<std::string_view>& objects);
    const std::string& problem() const { return problem_; }
    void* addressOf(std::string_view symbol) const;

    struct Linked {
        std::string_view bytes;
        std::vector<std::uintptr_t> sections;  // by number; 0: not in memory
        struct Code {
            std::uintptr_t begin, end;
            std::size_t section;
        };
        std::vector<Code> code;
    };
    const std::vector<Linked>& linked() const { return linked_; }

private:
    struct Object;
    struct Image;

    bool place(const std::vector<Object>& objects, Image& image);
    void define(const Object& object, const Linked& places);
    bool relocate(const Object& object, const Linked& places, Image& image);
    std::uintptr_t resolve(std::string_view symbol);
    bool fail(std::string why);

    Outside outside_;
    std::string problem_;
    std::vector<Linked> linked_;
    std::unordered_map<std::string_view, std::uintptr_t> symbols_;
};

}  // namespace vesk::compiler
