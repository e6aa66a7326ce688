// A small program for tests of generic methods: files in a temporary folder, a compile session with a cache folder of its
// own, and the calls in it asked of the driver as the checker would ask.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <optional>

#include "generics/generic_specializer.h"
#include "generics/session_state.h"
#include "generics/source/source_text_cache.h"
#include "generics/typetext/type_text.h"
#include "host/host_services.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

class TemporaryFolder {
public:
    TemporaryFolder() {
        static std::atomic<int> count = 0;
        path_ =
            SourceManager::normalizePath(std::filesystem::temp_directory_path() /
                                         ("vesk-methods-" + std::to_string(getpid()) + "-" + std::to_string(count++)));
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

// One compilation of the files in a folder. Several may follow each other on one folder, like compiler processes that
// share a cache; thread state is forgotten at both ends.
class MethodProgram {
public:
    explicit MethodProgram(const Str& root, CacheMode cache = CacheMode::On)
        : root_(root), session_(optionsFor(root, cache)), current_(session_) {
        forget();
    }
    ~MethodProgram() { forget(); }

    CompileSession& session() { return session_; }
    ContextPtr root() { return session_.rootContext(); }
    Str pathOf(const Str& name) const { return SourceManager::normalizePath(root_ + "/" + name); }

    ContextPtr load(const Str& name, const Str& text) {
        writeFile(pathOf(name), text);
        return load(name);
    }
    ContextPtr load(const Str& name) {
        FileDeclaration* file = session_.loadFile(pathOf(name));
        if (!file) throw std::runtime_error("cannot load " + name);
        return file->context;
    }

    std::shared_ptr<FunctionNode> function(const Str& file, const Str& name) const {
        for (const FunctionDeclaration* declaration : session_.loadedFile(pathOf(file))->functions) {
            if (declaration->name == name) return declaration->node;
        }
        throw std::runtime_error("no function " + name);
    }
    // The call that is a function's first statement that is one.
    std::shared_ptr<CallableExpressionNode> call(const Str& file, const Str& functionName) const {
        for (const NodePtr& statement : function(file, functionName)->getBody()) {
            if (auto node = std::dynamic_pointer_cast<CallableExpressionNode>(statement)) return node;
        }
        throw std::runtime_error("no call in " + functionName);
    }
    // Asks for the specialization that this call needs. A receiver that is a class makes it a static call.
    GenericMethodSpec specialize(const Str& file, const Str& functionName) const {
        const auto node = call(file, functionName);
        const ParsedGenericType callee = parseGenericTypeText(node->name());
        const ContextPtr scope = node->context();
        Str owner;
        bool isStatic = false;
        if (const auto* value = dynamic_cast<ValueExpressionNode*>(node->receiver().get());
            value && value->value() != "self" && std::isupper(static_cast<unsigned char>(value->value()[0]))) {
            owner = value->value();
            isStatic = true;
        } else {
            owner = inferExpressionType(node->receiver(), scope);
        }
        return ensureGenericMethodSpecialization(scope, owner, callee.base, node->getArguments(), node->token(),
                                                 isStatic, callee.args);
    }

    StrVec messages() const {
        StrVec texts;
        for (const CompilerException& error : session_.diagnostics()) texts.push_back(error.what());
        return texts;
    }

    static void forget() {
        resetGenericSpecializerSession();
        gSourceTextCache.clear();
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
CompilerException thrownBy(Action action) {
    try {
        action();
    } catch (const CompilerException& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return CompilerException(nullptr, "nothing was thrown", CompilerErrorKind::CompileError, "", "");
}

inline StrVec notesOf(const CompilerException& error) {
    StrVec texts;
    for (const DiagnosticNote& note : error.getNotes()) texts.push_back(note.message);
    return texts;
}

// The bundle files below a folder, sorted.
inline StrVec bundleFilesBelow(const Str& folder) {
    StrVec files;
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (isGenericMethodBundlePath(entry->path().string()) && entry->path().extension() == ".vk")
            files.push_back(entry->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace vesk::compiler
