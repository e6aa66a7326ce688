// A compile session over sources in memory, for the tests of this folder. It is the calling thread's while it lives.
#pragma once

#include <gtest/gtest.h>

#include "host/host_services.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

class ModelSession {
public:
    explicit ModelSession(SessionOptions options = memoryOptions()) : session_(std::move(options)), scope_(session_) {}

    static SessionOptions memoryOptions() {
        SessionOptions options;
        options.cache = CacheMode::Memory;
        options.cacheDirectory = "/nowhere/cache";
        options.programRoot = "/app";
        return options;
    }

    CompileSession& operator*() { return session_; }
    CompileSession* operator->() { return &session_; }

    // Declares a file; answers its scope.
    ContextPtr load(const Str& path, const Str& text) {
        session_.addVirtualSource(path, text);
        FileDeclaration* file = session_.loadFile(path);
        return file ? file->context : nullptr;
    }
    const Type* type(const Str& text, const ContextPtr& scope) { return resolveType(text, scope); }
    Str resolve(const Str& text, const ContextPtr& scope) { return ClassLoader::resolveTypeName(text, scope, nullptr); }

    // "file:line: message" for each mistake, file names without their folder.
    StrVec mistakes() const {
        StrVec lines;
        for (const CompilerException& error : session_.diagnostics()) lines.push_back(lineOf(error));
        return lines;
    }
    static Str lineOf(const CompilerException& error) {
        Str place;
        if (TokenPtr token = error.getToken()) {
            Str file = token->getFilename();
            place = file.substr(file.rfind('/') + 1) + ":" + std::to_string(token->getLine()) + ": ";
        }
        return place + error.what();
    }
    // The message of what `work` throws, "" when it throws nothing.
    template <class Work>
    static Str thrown(Work work) {
        try {
            work();
        } catch (const CompilerException& error) {
            return error.what();
        }
        return {};
    }

private:
    CompileSession session_;
    ScopedCompileSession scope_;
};

}  // namespace vesk::compiler
