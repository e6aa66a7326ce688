// Finding a program's files and roots: the only part of the driver that walks folders.
#include "driver/program_sources.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/diagnostics.h"
#include "host/source_manager.h"
#include "host/tokens.h"

namespace fs = std::filesystem;

namespace vesk::compiler {
namespace {

void checkReadable(const std::string& path, const std::string& asWritten) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file) throw UnreadableInput("cannot read '" + asWritten + "': " + std::strerror(errno ? errno : EIO));
}

std::vector<std::string> filesOfFolder(const fs::path& folder, const std::string& asWritten) {
    std::error_code error;
    std::vector<std::string> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        std::error_code ignored;
        if (entry.path().extension() == ".vk" && entry.is_regular_file(ignored)) {
            found.push_back(SourceManager::normalizePath(entry.path()));
        }
    }
    if (error) throw UnreadableInput("cannot read folder '" + asWritten + "': " + error.message());
    if (found.empty()) throw UnreadableInput("there is no .vk file in folder '" + asWritten + "'");
    std::sort(found.begin(), found.end());
    return found;
}

// The folder that holds `file`, less the folders of its package where they are there.
std::string rootOf(const std::string& file, const std::string& package) {
    const fs::path folder = fs::path(file).parent_path();
    fs::path root = folder;
    std::string rest = package;
    while (!rest.empty()) {
        const std::size_t dot = rest.rfind('.');
        const std::string last = dot == std::string::npos ? rest : rest.substr(dot + 1);
        if (root.filename() != last) return folder.string();
        root = root.parent_path();
        rest = dot == std::string::npos ? "" : rest.substr(0, dot);
    }
    return root.string();
}

}  // namespace

std::string packageOfText(const std::string& text, const std::string& path) {
    try {
        Tokenizer tokenizer(text, path);
        TokenPtr token = tokenizer.nextToken();
        if (!token || token->getText() != "package") return "";
        const int line = token->getLine();
        std::string name;
        while ((token = tokenizer.nextToken()) && token->getLine() == line) name += token->getText();
        return name;
    } catch (const CompilerException&) {
        return "";  // loading the file reports the mistake
    }
}

ProgramSources findProgramSources(const std::vector<std::string>& inputs) {
    ProgramSources sources;
    for (const std::string& input : inputs) {
        const std::string path = SourceManager::normalizePath(input);
        std::error_code ignored;
        std::vector<std::string> found = {path};
        if (fs::is_directory(path, ignored))
            found = filesOfFolder(path, input);
        else
            checkReadable(path, input);
        for (std::string& file : found) {
            if (std::find(sources.files.begin(), sources.files.end(), file) == sources.files.end()) {
                sources.files.push_back(std::move(file));
            }
        }
    }
    for (const std::string& file : sources.files) {
        const auto text = SourceManager::contents(file);
        if (!text) throw UnreadableInput("cannot read '" + file + "'");
        std::string root = rootOf(file, packageOfText(*text, file));
        if (std::find(sources.roots.begin(), sources.roots.end(), root) == sources.roots.end()) {
            sources.roots.push_back(std::move(root));
        }
    }
    return sources;
}

}  // namespace vesk::compiler
