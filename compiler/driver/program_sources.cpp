// Finding a program's files and roots: the only part of the driver that walks folders.
#include "driver/program_sources.h"

#include <algorithm>
#include <filesystem>

#include "host/diagnostics.h"
#include "host/source_manager.h"
#include "host/tokens.h"

namespace fs = std::filesystem;

namespace vesk::compiler {
namespace {

[[noreturn]] void failToRead(const std::string& path, const std::string& reason) {
    throw UnreadableInput("cannot read '" + path + "': " + reason);
}

std::vector<std::string> filesOfFolder(const fs::path& folder, const std::string& asWritten) {
    std::error_code error;
    std::vector<std::string> found;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        if (it->path().extension() != ".vk") continue;
        std::error_code unknown;
        if (it->is_regular_file(unknown)) found.push_back(SourceManager::normalizePath(it->path()));
        if (unknown) failToRead((fs::path(asWritten) / it->path().filename()).string(), unknown.message());
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
    const auto addOnce = [](std::vector<std::string>& all, std::string each) {
        if (std::find(all.begin(), all.end(), each) == all.end()) all.push_back(std::move(each));
    };
    for (const std::string& input : inputs) {
        const std::string path = SourceManager::normalizePath(input);
        std::error_code ignored;
        const bool isFolder = fs::is_directory(path, ignored);
        for (const std::string& file : isFolder ? filesOfFolder(path, input) : std::vector{path}) {
            UnreadReason reason;
            const auto text = SourceManager::contents(file, reason);
            if (!text)
                failToRead(isFolder ? (fs::path(input) / fs::path(file).filename()).string() : input, reason.text);
            addOnce(sources.files, file);
            addOnce(sources.roots, rootOf(file, packageOfText(*text, file)));
        }
    }
    return sources;
}

}  // namespace vesk::compiler
