// Packages: which folder a package is, which files belong to it.
// Package `a.b` is the folder a/b under the first source root that has a file with that package line in it, plus the
// files of that package that were loaded by name. Files without a package line form the default package.
#include <algorithm>
#include <filesystem>

#include "host/source_manager.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

std::string folderOf(std::string_view package) {
    std::string folder(package);
    std::replace(folder.begin(), folder.end(), '.', '/');
    return folder;
}

// Package names become folder names: nothing but dotted identifiers may.
bool isPackageName(std::string_view name) {
    if (name.empty() || name.size() > 1000) return false;
    bool atStart = true;
    for (char c : name) {
        if (c == '.') {
            if (atStart) return false;
            atStart = true;
            continue;
        }
        bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
        if (!isLetter && (atStart || c < '0' || c > '9')) return false;
        atStart = false;
    }
    return !atStart;
}

std::vector<std::string> sourcesIn(const std::string& folder) {
    std::vector<std::string> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        std::error_code ignored;
        if (it->path().extension() == ".vk" && it->is_regular_file(ignored)) paths.push_back(it->path().native());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

}  // namespace

PackageTable& CompileSession::State::packageTable(std::string_view name) {
    auto found = packages.find(name);
    if (found == packages.end()) {
        found = packages.emplace(std::string(name), std::make_unique<PackageTable>()).first;
        found->second->name = name;
    }
    return *found->second;
}

bool CompileSession::State::folderExists(std::string_view package) {
    if (auto known = folders.find(package); known != folders.end()) return known->second;
    bool exists = false;
    std::error_code error;
    for (const std::string& sourceRoot : roots)
        if (std::filesystem::is_directory(sourceRoot + "/" + folderOf(package), error)) exists = true;
    folders.emplace(std::string(package), exists);
    return exists;
}

PackageTable& CompileSession::State::loadedPackage(CompileSession& session, std::string_view name) {
    PackageTable& table = packageTable(name);
    if (table.isLoaded) return table;
    table.isLoaded = true;
    if (!isPackageName(name)) return table;
    bool isLanguage = name == "vesk";
    if (!isLanguage && !folderExists(name)) return table;
    for (const std::string& sourceRoot : roots) {
        // The language's own package is the installed one, whatever folders a program has.
        if (isLanguage && sourceRoot != standardLibrary) continue;
        bool found = false;
        for (const std::string& path : sourcesIn(sourceRoot + "/" + folderOf(name))) {
            FileDeclaration* file = session.loadFile(path);
            if (file && file->package == name) found = true;
        }
        if (found) break;
    }
    if (isLanguage) {
        for (FileDeclaration* file : table.files)
            for (ClassDeclaration* declaration : file->classes)
                types.setBuiltinDeclaration(declaration->name, declaration);
        veskIsLoaded.store(true, std::memory_order_release);
    }
    return table;
}

const std::vector<FileDeclaration*>& CompileSession::filesOfPackage(const std::string& package) {
    std::lock_guard lock(state_->modelMutex);
    return state_->loadedPackage(*this, package).files;
}

bool CompileSession::packageExists(const std::string& package) { return !filesOfPackage(package).empty(); }

bool isPackagePrefix(std::string_view name) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    if (!isPackageName(name)) return false;
    CompileSession::State& state = session.state();
    if (state.folderExists(name)) return true;
    for (const auto& [known, table] : state.packages) {
        if (table->files.empty() || known.size() < name.size() || known.compare(0, name.size(), name) != 0) continue;
        if (known.size() == name.size() || known[name.size()] == '.') return true;
    }
    return false;
}

void ensureLanguagePackage(CompileSession& session) {
    CompileSession::State& state = session.state();
    if (state.veskIsLoaded.load(std::memory_order_acquire)) return;
    std::lock_guard lock(state.modelMutex);
    state.loadedPackage(session, "vesk");
}

}  // namespace vesk::compiler
