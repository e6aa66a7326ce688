// Packages: which folder a package is, which files belong to it.
// Package `a.b` is the folder a/b under the first source root that has a file with that package line in it, plus the
// files of that package that were loaded by name. Files without a package line form the default package.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <utility>

#include "host/diagnostics.h"
#include "host/source_manager.h"
#include "host/tokens.h"
#include "semantics/folder_entries.h"
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

bool isNamePart(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// The name that a line at the margin declares, "" = none. What looks like a declaration in a comment does no harm: its
// file is loaded in vain.
std::string_view declaredName(std::string_view line) {
    if (line.empty() || !isNamePart(line[0])) return {};
    for (std::string_view keyword : {"class ", "interface ", "def "}) {
        const std::size_t at = line.find(keyword);
        if (at == std::string_view::npos) continue;
        std::string_view name = line.substr(at + keyword.size());
        name.remove_prefix(std::min(name.find_first_not_of(" \t"), name.size()));
        const auto end = std::find_if_not(name.begin(), name.end(), isNamePart);
        return name.substr(0, static_cast<std::size_t>(end - name.begin()));
    }
    return {};
}

// Whether a file's package line names this package. One that cannot be read that far is to report its own mistake.
bool mayBelongTo(std::string_view package, const std::string& path) {
    const std::shared_ptr<const Str> text = SourceManager::instance().contents(path);
    if (!text) return true;
    try {
        Tokenizer tokens(*text, path);
        const TokenPtr keyword = tokens.nextToken();
        if (!keyword || keyword->getText() != "package") return false;
        std::string named;
        for (TokenPtr token = tokens.nextToken(); token && token->getLine() == keyword->getLine();
             token = tokens.nextToken())
            named += token->getText();
        return named == package;
    } catch (const CompilerException&) {
        return true;
    }
}

}  // namespace

void CompileSession::State::noteUnreadable(const std::string& path, std::error_code reason) {
    if (reason == std::errc::not_enough_memory) endForLackOfMemory();
    // A name that is too long for the system is that of nothing.
    if (!reason || reason == std::errc::no_such_file_or_directory || reason == std::errc::not_a_directory ||
        reason == std::errc::filename_too_long)
        return;
    std::lock_guard lock(diagnosticsMutex);
    if (!unreadableSource) unreadableSource = {path, reason.message()};
}

bool CompileSession::State::isFolder(const std::string& path) {
    std::error_code error;
    const bool answer = std::filesystem::is_directory(path, error);
    noteUnreadable(path, error);
    return answer;
}

std::vector<std::string> CompileSession::State::sourcesIn(const std::string& folder) {
    std::vector<std::string> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator it = folderEntries(folder, error), end; !error && it != end;
         it.increment(error)) {
        if (it->path().extension() != ".vk") continue;
        std::error_code unknown;
        if (it->is_regular_file(unknown)) paths.push_back(it->path().native());
        noteUnreadable(it->path().native(), unknown);
    }
    noteUnreadable(folder, error);
    std::sort(paths.begin(), paths.end());
    return paths;
}

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
    for (const std::string& sourceRoot : roots)
        if (isFolder(sourceRoot + "/" + folderOf(package))) exists = true;
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
            if (!mayBelongTo(name, path)) continue;
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

// Parsing all of a package of the library costs more than most programs that use a class of it.
void CompileSession::State::readOutline(PackageTable& table) {
    table.outlineState = PackageTable::Outline::None;
    if (!isPackageName(table.name) || table.name == "vesk" || standardLibrary.empty()) return;
    const std::string folder = folderOf(table.name);
    for (const std::string& sourceRoot : roots) {
        if (sourceRoot != standardLibrary && isFolder(sourceRoot + "/" + folder)) return;
    }
    if (!isFolder(standardLibrary + "/" + folder)) return;
    table.outlineState = PackageTable::Outline::Read;
    for (const std::string& path : sourcesIn(standardLibrary + "/" + folder)) {
        const std::shared_ptr<const Str> text = SourceManager::instance().contents(path);
        for (std::string_view rest = text ? std::string_view(*text) : std::string_view(); !rest.empty();) {
            const std::size_t end = std::min(rest.find('\n'), rest.size() - 1);
            const std::string_view name = declaredName(rest.substr(0, end));
            rest.remove_prefix(end + 1);
            if (name.empty()) continue;
            std::vector<std::string>& paths = table.outline[std::string(name)];
            if (paths.empty() || paths.back() != path) paths.push_back(path);
        }
    }
}

PackageTable& CompileSession::State::packageWith(CompileSession& session, std::string_view package,
                                                 std::string_view name) {
    PackageTable& table = packageTable(package);
    if (table.isLoaded) return table;
    if (table.outlineState == PackageTable::Outline::Unknown) readOutline(table);
    if (table.outlineState == PackageTable::Outline::None) return loadedPackage(session, package);
    const auto found = table.outline.find(name);
    if (found == table.outline.end()) return table;
    // Loading may look up the name again: then this is done.
    const std::vector<std::string> paths = std::exchange(found->second, {});
    for (const std::string& path : paths) session.loadFile(path);
    return table;
}

const std::vector<FileDeclaration*>& CompileSession::filesOfPackage(const std::string& package) {
    std::lock_guard lock(state_->modelMutex);
    return state_->loadedPackage(*this, package).files;
}

bool CompileSession::packageExists(const std::string& package) {
    std::lock_guard lock(state_->modelMutex);
    const PackageTable& table = state_->packageWith(*this, package, "");
    return !table.outline.empty() || !table.files.empty();
}

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
