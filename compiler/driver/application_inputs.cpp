// Hashing and comparing a program's sources.
#include "driver/application_inputs.h"

#include <algorithm>
#include <set>

#include "generics/bundles/stored_bytes.h"
#include "generics/typetext/symbol_mangling.h"
#include "host/source_manager.h"

namespace vesk::compiler {

namespace {

// Of the names of a folder's sources: what a package consists of.
std::uint64_t folderHash(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().extension() == ".vk") names.push_back(entry->path().filename().native() + "\n");
    }
    std::sort(names.begin(), names.end());
    std::string all;
    for (const std::string& name : names) all += name;
    return contentHash(all);
}

bool isApplicationFile(const FileDeclaration& file) { return !file.isStandardLibrary && !file.isGenerated; }

}  // namespace

ApplicationInputs::ApplicationInputs(CompileSession& session, const std::vector<std::string>& givenFiles)
    : session_(session) {
    std::string command;
    for (const std::string& path : givenFiles) command += path + "\n";
    for (const std::string& root : session.options().sourceRoots) command += root + "\n";
    commandHash_ = fnv1a64Hex(command);
}

std::optional<std::vector<StoredUnit::Input>> ApplicationInputs::collect() {
    std::vector<StoredUnit::Input> inputs;
    std::set<std::string> folders;
    for (const FileDeclaration* file : session_.allFiles()) {
        if (!isApplicationFile(*file)) continue;
        std::filesystem::file_time_type time;
        if (SourceManager::instance().lastWriteTime(file->path, time) && time >= start_) return std::nullopt;
        inputs.push_back({file->path, hashOf(file->path)});
        if (!file->package.empty()) folders.insert(std::filesystem::path(file->path).parent_path().native());
    }
    for (const std::string& folder : folders) inputs.push_back({folder, hashOf(folder)});
    return inputs;
}

bool ApplicationInputs::areCurrent(const std::vector<StoredUnit::Input>& inputs) {
    std::set<std::string_view> known;
    for (const StoredUnit::Input& input : inputs) {
        if (hashOf(input.path) != input.hash) return false;
        known.insert(input.path);
    }
    const auto& files = session_.allFiles();
    return std::all_of(files.begin(), files.end(), [&](const FileDeclaration* file) {
        return !isApplicationFile(*file) || known.contains(file->path);
    });
}

// Asked for at every bundle; sources that change meanwhile are noticed by their times.
std::uint64_t ApplicationInputs::hashOf(const std::string& path) {
    const auto [known, isNew] = hashes_.try_emplace(path);
    if (isNew) {
        const std::shared_ptr<const Str> text = SourceManager::instance().contents(path);
        known->second = text ? contentHash(*text) : folderHash(path);
    }
    return known->second;
}

}  // namespace vesk::compiler
