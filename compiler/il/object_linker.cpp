// Reading, placing and relocating objects. The form of the files is that of <elf.h>.
#include "il/object_linker.h"

#include <elf.h>
#include <sys/mman.h>

#include <cstring>
#include <limits>

#include "runtime/memory.h"

namespace vesk::compiler {
namespace {

constexpr std::size_t PAGE = 4096;
constexpr std::size_t STUB_SIZE = 16;

std::size_t roundUp(std::size_t size, std::size_t unit) { return (size + unit - 1) / unit * unit; }

// Whether `count` elements of a type lie within the bytes, from `at` on.
template <class T>
bool holds(std::string_view bytes, std::uint64_t at, std::uint64_t count) {
    return at <= bytes.size() && count <= (bytes.size() - at) / sizeof(T);
}

template <class T>
T elementAt(std::string_view bytes, std::uint64_t at, std::uint64_t index) {
    T element;
    std::memcpy(&element, bytes.data() + at + index * sizeof(T), sizeof(T));
    return element;
}

enum Region { CODE, CONSTANTS, DATA, REGIONS, OUTSIDE = REGIONS };

}  // namespace

// An object file, taken apart.
struct ObjectLinker::Object {
    std::string_view bytes;
    std::vector<Elf64_Shdr> sections;
    std::vector<Elf64_Sym> symbols;
    std::string_view names, sectionNames;

    // False when the bytes are no object file that can be linked here.
    bool read() {
        if (!holds<Elf64_Ehdr>(bytes, 0, 1)) return false;
        const auto header = elementAt<Elf64_Ehdr>(bytes, 0, 0);
        const bool isOurs = std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
                            header.e_ident[EI_CLASS] == ELFCLASS64 && header.e_type == ET_REL &&
                            header.e_machine == EM_X86_64 && header.e_shentsize == sizeof(Elf64_Shdr);
        if (!isOurs || !holds<Elf64_Shdr>(bytes, header.e_shoff, header.e_shnum)) return false;
        for (unsigned i = 0; i < header.e_shnum; i++) {
            sections.push_back(elementAt<Elf64_Shdr>(bytes, header.e_shoff, i));
            const Elf64_Shdr& section = sections.back();
            if (section.sh_type != SHT_NOBITS && !holds<char>(bytes, section.sh_offset, section.sh_size)) return false;
        }
        return readNames(header.e_shstrndx, sectionNames) && readSymbols();
    }

    bool readNames(std::size_t section, std::string_view& out) const {
        if (section >= sections.size()) return false;
        out = bytes.substr(sections[section].sh_offset, sections[section].sh_size);
        return out.ends_with('\0');
    }

    bool readSymbols() {
        for (const Elf64_Shdr& section : sections) {
            if (section.sh_type != SHT_SYMTAB) continue;
            if (!readNames(section.sh_link, names)) return false;
            symbols.resize(section.sh_size / sizeof(Elf64_Sym));
            std::memcpy(symbols.data(), bytes.data() + section.sh_offset, symbols.size() * sizeof(Elf64_Sym));
        }
        for (const Elf64_Sym& symbol : symbols) {
            const bool isSpecial = symbol.st_shndx == SHN_ABS || symbol.st_shndx == SHN_UNDEF;
            if (symbol.st_name >= names.size() || (!isSpecial && symbol.st_shndx >= sections.size())) return false;
        }
        return true;
    }

    // Constants that hold addresses can only be read once these are known.
    bool isConstant(const Elf64_Shdr& section) const {
        if (!(section.sh_flags & SHF_WRITE)) return true;
        const bool isNamed = section.sh_name < sectionNames.size();
        return isNamed && std::string_view(sectionNames.data() + section.sh_name).starts_with(".data.rel.ro");
    }

    Region regionOf(const Elf64_Shdr& section) const {
        if (!(section.sh_flags & SHF_ALLOC) || section.sh_size == 0) return OUTSIDE;
        if (section.sh_flags & SHF_EXECINSTR) return CODE;
        return isConstant(section) ? CONSTANTS : DATA;
    }

    std::string_view nameOf(const Elf64_Sym& symbol) const { return names.data() + symbol.st_name; }
    static bool isLocal(const Elf64_Sym& symbol) { return ELF64_ST_BIND(symbol.st_info) == STB_LOCAL; }
};

// The memory under way.
struct ObjectLinker::Image {
    struct Room {
        unsigned char *begin = nullptr, *next = nullptr, *end = nullptr;
    } rooms[REGIONS];
    unsigned char* begin = nullptr;
    std::size_t size = 0;
    std::unordered_map<std::uintptr_t, unsigned char*> stubs, slots;  // by target

    ~Image() {
        if (begin) munmap(begin, size);
    }

    unsigned char* take(Region region, std::size_t bytes, std::size_t alignment) {
        Room& room = rooms[region];
        unsigned char* at = room.begin + roundUp(std::size_t(room.next - room.begin), alignment);
        if (std::size_t(room.end - at) < bytes) return nullptr;
        room.next = at + bytes;
        return at;
    }

    // A jump to the target, within reach of all code.
    unsigned char* stubFor(std::uintptr_t target) {
        unsigned char*& stub = stubs[target];
        if (stub || !(stub = take(CODE, STUB_SIZE, STUB_SIZE))) return stub;
        static constexpr unsigned char JUMP[] = {0xFF, 0x25, 0, 0, 0, 0};  // to the address behind it
        std::memcpy(stub, JUMP, sizeof JUMP);
        std::memcpy(stub + sizeof JUMP, &target, sizeof target);
        return stub;
    }

    unsigned char* slotFor(std::uintptr_t target) {
        unsigned char*& slot = slots[target];
        if (slot || !(slot = take(CONSTANTS, sizeof target, sizeof target))) return slot;
        std::memcpy(slot, &target, sizeof target);
        return slot;
    }

    // Gives the regions their final protection; from then on the memory stays.
    bool seal() {
        const auto protect = [](const Room& room, int protection) {
            return room.begin == room.end || mprotect(room.begin, std::size_t(room.end - room.begin), protection) == 0;
        };
        if (!protect(rooms[CODE], PROT_READ | PROT_EXEC) || !protect(rooms[CONSTANTS], PROT_READ)) return false;
        begin = nullptr;
        return true;
    }
};

bool ObjectLinker::fail(std::string why) {
    problem_ = std::move(why);
    symbols_.clear();
    linked_.clear();
    return false;
}

bool ObjectLinker::link(const std::vector<std::string_view>& files) {
    std::vector<Object> objects(files.size());
    for (std::size_t i = 0; i < files.size(); i++) {
        objects[i].bytes = files[i];
        if (!objects[i].read()) return fail("not an object file of this machine");
    }
    Image image;
    if (!place(objects, image)) return fail("no memory");
    for (std::size_t i = 0; i < objects.size(); i++) define(objects[i], linked_[i]);
    for (std::size_t i = 0; i < objects.size(); i++) {
        if (!relocate(objects[i], linked_[i], image)) return false;
    }
    const Image::Room data = image.rooms[DATA];
    if (!image.seal()) return fail("memory cannot be made executable");
    if (data.begin != data.end) runtime::addRoots(data.begin, data.end);
    return true;
}

// Takes memory for everything and copies the sections to their places.
bool ObjectLinker::place(const std::vector<Object>& objects, Image& image) {
    std::size_t sizes[REGIONS] = {};
    for (const Object& object : objects) {
        for (const Elf64_Shdr& section : object.sections) {
            const Region region = object.regionOf(section);
            if (region != OUTSIDE) sizes[region] += section.sh_size + section.sh_addralign;
        }
        // Room for a stub and a slot for each symbol, used or not: untouched memory costs nothing.
        sizes[CODE] += object.symbols.size() * STUB_SIZE + STUB_SIZE;
        sizes[CONSTANTS] += (object.symbols.size() + 1) * sizeof(std::uintptr_t);
    }
    for (std::size_t& size : sizes) image.size += size = roundUp(size, PAGE);
    if (image.size == 0) return true;
    void* memory = mmap(nullptr, image.size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return false;
    unsigned char* at = image.begin = static_cast<unsigned char*>(memory);
    for (int region = 0; region < REGIONS; region++) {
        image.rooms[region] = {at, at, at + sizes[region]};
        at += sizes[region];
    }

    for (const Object& object : objects) {
        Linked& made = linked_.emplace_back();
        made.bytes = object.bytes;
        for (const Elf64_Shdr& section : object.sections) {
            const Region region = object.regionOf(section);
            unsigned char* copy = nullptr;
            if (region != OUTSIDE) {
                copy = image.take(region, section.sh_size, section.sh_addralign ? section.sh_addralign : 1);
                if (!copy) return false;
                if (section.sh_type != SHT_NOBITS)
                    std::memcpy(copy, object.bytes.data() + section.sh_offset, section.sh_size);
            }
            const auto address = reinterpret_cast<std::uintptr_t>(copy);
            if (region == CODE) made.code.push_back({address, address + section.sh_size, made.sections.size()});
            made.sections.push_back(address);
        }
    }
    return true;
}

void ObjectLinker::define(const Object& object, const Linked& places) {
    for (const Elf64_Sym& symbol : object.symbols) {
        if (Object::isLocal(symbol) || symbol.st_shndx == SHN_UNDEF || symbol.st_shndx == SHN_ABS) continue;
        const std::uintptr_t section = places.sections[symbol.st_shndx];
        if (section) symbols_.try_emplace(object.nameOf(symbol), section + symbol.st_value);
    }
}

std::uintptr_t ObjectLinker::resolve(std::string_view symbol) {
    auto [found, isNew] = symbols_.try_emplace(symbol, 0);
    if (isNew) found->second = reinterpret_cast<std::uintptr_t>(outside_(symbol));
    return found->second;
}

bool ObjectLinker::relocate(const Object& object, const Linked& places, Image& image) {
    std::vector<std::uintptr_t> targets(object.symbols.size());
    const auto targetOf = [&](std::size_t index) {
        std::uintptr_t& target = targets[index];
        const Elf64_Sym& symbol = object.symbols[index];
        if (target) return target;
        if (!Object::isLocal(symbol)) return target = resolve(object.nameOf(symbol));
        if (symbol.st_shndx == SHN_UNDEF || symbol.st_shndx == SHN_ABS || !places.sections[symbol.st_shndx])
            return target;
        return target = places.sections[symbol.st_shndx] + symbol.st_value;
    };
    const auto put32 = [](std::uintptr_t place, std::uintptr_t target, std::int64_t addend) {
        const std::int64_t distance = std::int64_t(target) + addend - std::int64_t(place);
        if (distance != std::int32_t(distance)) return false;
        const auto value = std::int32_t(distance);
        std::memcpy(reinterpret_cast<void*>(place), &value, sizeof value);
        return true;
    };

    for (const Elf64_Shdr& section : object.sections) {
        if (section.sh_type == SHT_REL) return fail("relocations without addends");
        if (section.sh_type != SHT_RELA || section.sh_info >= object.sections.size()) continue;
        const std::uintptr_t begin = places.sections[section.sh_info];
        if (!begin) continue;  // of debug information: read by who needs it
        const std::uint64_t size = object.sections[section.sh_info].sh_size;
        for (std::uint64_t i = 0; i < section.sh_size / sizeof(Elf64_Rela); i++) {
            const auto entry = elementAt<Elf64_Rela>(object.bytes, section.sh_offset, i);
            const std::size_t index = ELF64_R_SYM(entry.r_info);
            const auto type = ELF64_R_TYPE(entry.r_info);
            const std::size_t width = type == R_X86_64_64 ? 8 : 4;
            if (index >= object.symbols.size() || size < width || entry.r_offset > size - width)
                return fail("a relocation outside of its section");
            const std::uintptr_t place = begin + entry.r_offset, target = targetOf(index);
            if (!target) return fail("nobody defines '" + std::string(object.nameOf(object.symbols[index])) + "'");
            bool isDone = false;
            switch (type) {
                case R_X86_64_64: {
                    const std::uintptr_t value = target + std::uintptr_t(entry.r_addend);
                    std::memcpy(reinterpret_cast<void*>(place), &value, sizeof value);
                    isDone = true;
                    break;
                }
                case R_X86_64_PC32: isDone = put32(place, target, entry.r_addend); break;
                case R_X86_64_PLT32: {
                    isDone = put32(place, target, entry.r_addend);
                    if (isDone) break;
                    unsigned char* stub = image.stubFor(target);
                    isDone = stub && put32(place, reinterpret_cast<std::uintptr_t>(stub), entry.r_addend);
                    break;
                }
                case R_X86_64_GOTPCREL:
                case R_X86_64_GOTPCRELX:
                case R_X86_64_REX_GOTPCRELX: {
                    unsigned char* slot = image.slotFor(target);
                    isDone = slot && put32(place, reinterpret_cast<std::uintptr_t>(slot), entry.r_addend);
                    break;
                }
                default: break;
            }
            if (!isDone) return fail("a relocation of kind " + std::to_string(type) + " that cannot be done");
        }
    }
    return true;
}

void* ObjectLinker::addressOf(std::string_view symbol) const {
    const auto found = symbols_.find(symbol);
    return found == symbols_.end() ? nullptr : reinterpret_cast<void*>(found->second);
}

}  // namespace vesk::compiler
