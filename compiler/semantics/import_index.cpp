// Which imported packages declare a name.
#include "semantics/import_index.h"

#include <algorithm>

#include "semantics/session_tables.h"
#include "syntax/interactive_chunk.h"

namespace vesk::compiler {

ImportIndex::ImportIndex(CompileSession& session, const std::vector<std::string>& imports) : size_(imports.size()) {
    for (const std::string& name : imports) {
        PackageTable& package = session.state().packageTable(name);
        const auto position = static_cast<std::uint32_t>(packages_.size());
        if (!positions_.try_emplace(&package, position).second) continue;
        packages_.push_back(&package);
        open_.push_back(position);
    }
}

std::vector<const PackageTable*> ImportIndex::candidates(CompileSession& session, std::string_view name) {
    for (std::size_t i = 0; i < open_.size(); i++)
        session.state().packageWith(session, packages_[open_[i]]->name, name);
    // Names of earlier chunks are found through the chunk's own.
    std::erase_if(open_, [&](std::uint32_t position) {
        return packages_[position]->isLoaded && !isInteractiveChunk(packages_[position]->name);
    });
    std::vector<std::uint32_t> found = open_;
    const auto declaring = session.state().packagesByName.find(name);
    if (declaring != session.state().packagesByName.end()) {
        if (declaring->second.size() > packages_.size()) return {packages_.begin(), packages_.end()};
        for (const PackageTable* package : declaring->second)
            if (const auto known = positions_.find(package); known != positions_.end()) found.push_back(known->second);
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    std::vector<const PackageTable*> packages;
    packages.reserve(found.size());
    for (const std::uint32_t position : found) packages.push_back(packages_[position]);
    return packages;
}

ImportIndex& importIndexOf(CompileSession& session, const std::vector<std::string>& imports) {
    std::unique_ptr<ImportIndex>& index = session.state().importIndexes[&imports];
    if (!index || index->size() != imports.size()) index = std::make_unique<ImportIndex>(session, imports);
    return *index;
}

}  // namespace vesk::compiler
