// A small program for tests: its files lie in a temporary folder and belong to a compile session of their own, which is
// the calling thread's while the object lives.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "generics/generic_specializer.h"
#include "generics/typetext/type_text.h"
#include "host/host_services.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

class SampleProgram {
public:
    SampleProgram() : root_(freshFolder()), session_(optionsFor(root_)), current_(session_) {
        resetGenericSpecializerSession();
    }
    ~SampleProgram() {
        resetGenericSpecializerSession();
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    const Str& root() const { return root_; }
    CompileSession& session() { return session_; }

    Str write(const Str& name, const Str& text) const {
        const Str path = pathOf(name);
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    Str pathOf(const Str& name) const { return SourceManager::normalizePath(root_ + "/" + name); }

    // Writes and loads a file; answers its scope.
    ContextPtr load(const Str& name, const Str& text) {
        FileDeclaration* file = session_.loadFile(write(name, text));
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
    // A statement of a function's body that is a call.
    std::shared_ptr<CallableExpressionNode> call(const Str& file, const Str& functionName,
                                                 std::size_t statement) const {
        auto node =
            std::dynamic_pointer_cast<CallableExpressionNode>(function(file, functionName)->getBody().at(statement));
        if (!node) throw std::runtime_error("not a call");
        return node;
    }
    // Asks for the specialization that such a call needs.
    Str specialize(const Str& file, const Str& functionName, std::size_t statement) const {
        const auto node = call(file, functionName, statement);
        const ParsedGenericType callee = parseGenericTypeText(node->name());
        return ensureGenericFunctionSpecialization(node->context(), callee.base, node->getArguments(), node->token(),
                                                   callee.args);
    }

    StrVec messages() const {
        StrVec texts;
        for (const CompilerException& error : session_.diagnostics()) texts.push_back(error.what());
        return texts;
    }

private:
    static Str freshFolder() {
        static std::atomic<int> count = 0;
        const auto folder = std::filesystem::temp_directory_path() /
                            ("vesk-sample-" + std::to_string(getpid()) + "-" + std::to_string(count++));
        std::filesystem::create_directories(folder);
        return SourceManager::normalizePath(folder);
    }
    static SessionOptions optionsFor(const Str& root) {
        SessionOptions options;
        options.sourceRoots = {root};
        options.programRoot = root;
        options.cacheDirectory = root + "/cache";
        options.cache = CacheMode::Memory;
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
