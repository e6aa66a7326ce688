// Sources that live in memory, and generated sources on their way to disk.
// A session whose cache is in memory, read-only or off keeps generated texts among its virtual sources; otherwise they
// become files, each replaced as a whole.
#include <filesystem>

#include "host/compiler_sources.h"
#include "host/source_manager.h"
#include "host/texts_in_memory.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

constexpr int MOST_ATTEMPTS = 100;

// A file that does not belong to the cache.
bool replaceOtherFile(const Str& path, const Str& bytes, FileProblem& problem) {
    const std::filesystem::path parts = path;
    const Str within = parts.parent_path().string();
    for (int attempt = 0; attempt < MOST_ATTEMPTS; attempt++) {
        problem = {};
        const auto folder = HeldFolder::ofAnybody(within.empty() ? "." : within, IfAbsent::Make, problem);
        if (folder && folder->replace(parts.filename().string(), bytes, problem)) return true;
        if (problem.kind != FileProblem::Kind::Absent) return false;
    }
    return false;
}

}  // namespace

std::shared_ptr<const Str> Compiler::virtualSourceContents(const Str& path) {
    CompileSession::State& state = CompileSession::current().state();
    std::lock_guard lock(state.sourceMutex);
    if (state.virtualSources.empty()) return nullptr;
    auto found = state.virtualSources.find(SourceManager::normalizePath(path));
    return found == state.virtualSources.end() ? nullptr : found->second;
}

bool Compiler::tryGetVirtualSource(const Str& path, Str& out) {
    auto text = virtualSourceContents(path);
    if (!text) return false;
    out = *text;
    return true;
}

bool Compiler::keepsGeneratedSourcesInMemory() { return !CompileSession::current().writesCache(); }

bool Compiler::storeGeneratedSourceInMemory(const Str& path, const Str& text) {
    CompileSession& session = CompileSession::current();
    if (session.writesCache()) return false;
    CompileSession::State& state = session.state();
    Str normal = SourceManager::normalizePath(path);
    std::lock_guard lock(state.sourceMutex);
    auto& held = state.virtualSources[normal];
    if (!held || *held != text) held = std::make_shared<Str>(text);
    return true;
}

bool growTextInMemory(const Str& path, std::shared_ptr<const Str>& known, std::size_t kept, std::string_view tail) {
    CompileSession& session = CompileSession::current();
    if (session.writesCache()) return false;
    CompileSession::State& state = session.state();
    std::lock_guard lock(state.sourceMutex);
    const auto found = state.virtualSources.find(SourceManager::normalizePath(path));
    if (found == state.virtualSources.end() || found->second != known) return false;
    known.reset();
    std::shared_ptr<const Str>& held = found->second;
    // New holders come from the table alone, under its lock. Every text in it was made as one that may change.
    if (held.use_count() > 1) held = std::make_shared<Str>(*held);
    // One more step of the count, and what those did who have let go of the text lies before what follows.
    std::shared_ptr<const Str>(held).reset();
    Str& text = const_cast<Str&>(*held);
    text.resize(kept);
    text += tail;
    known = held;
    return true;
}

bool Compiler::goesOnAfterCacheTrouble(const Str& what) {
    const std::shared_ptr<CacheTrouble> trouble = CompileSession::current().options().cacheTrouble;
    if (trouble) trouble->note(what);
    return trouble != nullptr;
}

bool Compiler::replaceFile(const Str& path, const Str& text, Str& error) {
    if (CompileSession::current().options().cache == CacheMode::ReadOnly) {
        error = path + ": the cache is read-only";
        return false;
    }
    FileProblem problem;
    TrustedCache* cache = cacheHolding(path);
    if (cache ? cache->replace(path, text, problem) : replaceOtherFile(path, text, problem)) return true;
    error = problem.text();
    return false;
}

bool Compiler::writeGeneratedSourceAtomically(const Str& path, const Str& text, Str& error) {
    if (replaceFile(path, text, error)) return true;
    // The text is not lost with the disk.
    return goesOnAfterCacheTrouble(error) && storeGeneratedSourceInMemory(path, text);
}

}  // namespace vesk::compiler
