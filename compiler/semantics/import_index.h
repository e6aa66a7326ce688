// The packages that a scope imports, asked for a name at the cost of those that declare it.
// A file may import thousands of packages, and each name that it uses is looked for in all of them. The session knows which
// packages declare a name (packagesByName); an index knows which of these are imported, and in which order.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vesk::compiler {

class CompileSession;
struct PackageTable;

class ImportIndex {
public:
    ImportIndex(CompileSession& session, const std::vector<std::string>& imports);

    // How many imports it was made of.
    std::size_t size() const { return size_; }
    // The packages that may declare the name, in order of their imports. Loads those that nothing has been asked of yet.
    std::vector<const PackageTable*> candidates(CompileSession& session, std::string_view name);

private:
    std::size_t size_;
    std::vector<PackageTable*> packages_;  // each once
    std::unordered_map<const PackageTable*, std::uint32_t> positions_;
    std::vector<std::uint32_t> open_;  // positions of packages whose names are not all known
};

// The index of a list of imports that lives as long as the session.
ImportIndex& importIndexOf(CompileSession& session, const std::vector<std::string>& imports);

}  // namespace vesk::compiler
