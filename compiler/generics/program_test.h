// What the test programs of this folder share: a folder for their files, a compile session that is the calling thread's
// while the program lives, and catching what is thrown.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "host/host_services.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

class TemporaryFolder {
public:
    TemporaryFolder() {
        static std::atomic<int> count = 0;
        path_ = SourceManager::normalizePath(std::filesystem::temp_directory_path() /
                                             ("vesk-test-" + std::to_string(getpid()) + "-" + std::to_string(count++)));
        std::filesystem::create_directories(path_);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const Str& path() const { return path_; }

private:
    Str path_;
};

inline Str writeFile(const Str& path, const Str& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

inline Str readFile(const Str& path) {
    std::ifstream in(path, std::ios::binary);
    return Str(std::istreambuf_iterator<char>(in), {});
}

// One compilation of the files in a folder, which has its cache below it.
class TestProgram {
public:
    TestProgram(const Str& root, CacheMode cache)
        : root_(root), session_(optionsFor(root, cache)), current_(session_) {}

    const Str& rootFolder() const { return root_; }
    CompileSession& session() { return session_; }
    Str pathOf(const Str& name) const { return SourceManager::normalizePath(root_ + "/" + name); }
    Str write(const Str& name, const Str& text) const { return writeFile(pathOf(name), text); }

    // Writes and loads a file; answers its scope.
    ContextPtr load(const Str& name, const Str& text) {
        write(name, text);
        return load(name);
    }
    ContextPtr load(const Str& name) {
        FileDeclaration* file = session_.loadFile(pathOf(name));
        if (!file) throw std::runtime_error("cannot load " + name);
        return file->context;
    }

    // A function of a loaded file.
    std::shared_ptr<FunctionNode> function(const Str& file, const Str& name) const {
        for (const FunctionDeclaration* declaration : session_.loadedFile(pathOf(file))->functions) {
            if (declaration->name == name) return declaration->node;
        }
        throw std::runtime_error("no function " + name);
    }

    // What the session has reported.
    StrVec messages() const {
        StrVec texts;
        for (const CompilerException& error : session_.diagnostics()) texts.push_back(error.what());
        return texts;
    }

private:
    static SessionOptions optionsFor(const Str& root, CacheMode cache) {
        SessionOptions options;
        options.sourceRoots = {root};
        options.programRoot = root;
        options.cacheDirectory = root + "/cache";
        options.cache = cache;
        return options;
    }

    const Str root_;
    CompileSession session_;
    ScopedCompileSession current_;
};

// Runs something that must throw a CompilerException, and answers the exception.
template <class Action>
CompilerException errorOf(Action action) {
    try {
        action();
    } catch (const CompilerException& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return CompilerException(nullptr, "nothing was thrown", CompilerErrorKind::CompileError, "", "");
}

template <class Action>
Str messageOf(Action action) {
    return errorOf(action).what();
}

}  // namespace vesk::compiler
