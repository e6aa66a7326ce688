// The session itself: which one a thread uses, its diagnostics and its dependencies.
#include "semantics/compile_session.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "host/class_loader.h"
#include "host/il_gen_context.h"
#include "host/source_manager.h"
#include "semantics/context_state.h"
#include "semantics/installation.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

thread_local CompileSession* gCurrentSession = nullptr;
thread_local std::string gDependencyUnit;
thread_local int gDependencySuspensions = 0;

// The folder that holds `vesk/`: given, named by the environment, of the installation that the program was linked with, or
// found from the program's place upward.
std::string findStandardLibrary(const std::string& given, CompileSession::State& state) {
    if (!given.empty()) return SourceManager::normalizePath(given);
    if (const char* named = std::getenv("VESK_STDLIB"); named && *named) return SourceManager::normalizePath(named);
    if (const std::filesystem::path installed = installationPrefix(); !installed.empty()) {
        if (state.isFolder((installed / "share/vesk/stdlib/vesk").native()))
            return (installed / "share/vesk/stdlib").native();
    }
    std::error_code error;
    std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    while (!folder.empty()) {
        for (const char* place : {"stdlib", "share/vesk/stdlib"})
            if (state.isFolder((folder / place / "vesk").native())) return (folder / place).native();
        if (folder == folder.parent_path()) break;
        folder = folder.parent_path();
    }
    return {};
}

// Where an error stands, for sorting and for telling equal ones.
struct ErrorPlace {
    std::string_view file;
    int line = 0, column = 0;
    auto operator<=>(const ErrorPlace&) const = default;
};

ErrorPlace placeOf(const TokenPtr& token) {
    if (!token) return {};
    return {token->getFilename(), token->getLine(), token->getColumn()};
}

}  // namespace

CompileSession::CompileSession(SessionOptions options) : state_(std::make_unique<State>()) {
    static std::atomic<std::uint32_t> serials{0};
    State& state = *state_;
    state.serial = ++serials;
    state.options = std::move(options);
    state.standardLibrary = findStandardLibrary(state.options.standardLibrary, state);
    for (const std::string& root : state.options.sourceRoots) state.roots.push_back(SourceManager::normalizePath(root));
    if (!state.standardLibrary.empty()) state.roots.push_back(state.standardLibrary);
    state.root = std::make_shared<Context>();
    state.root->state().isShared = true;
    state.environments.emplace_back();
}

CompileSession::~CompileSession() {
    if (gCurrentSession == this) gCurrentSession = nullptr;
}

CompileSession& CompileSession::current() {
    if (gCurrentSession) return *gCurrentSession;
    static CompileSession* session = new CompileSession(SessionOptions{});  // lives as long as the process
    return *session;
}

const SessionOptions& CompileSession::options() const { return state_->options; }
const std::string& CompileSession::standardLibrary() const { return state_->standardLibrary; }
ContextPtr CompileSession::rootContext() { return state_->root; }
TypeTable& CompileSession::types() { return state_->types; }
std::recursive_mutex& CompileSession::modelMutex() { return state_->modelMutex; }
std::recursive_mutex& CompileSession::inferenceMutex() { return state_->inferenceMutex; }

void CompileSession::addVirtualSource(const std::string& path, const std::string& text) {
    std::string normal = SourceManager::normalizePath(path);
    {
        std::lock_guard lock(state_->sourceMutex);
        state_->virtualSources[normal] = std::make_shared<Str>(text);
    }
    std::lock_guard lock(state_->modelMutex);
    state_->unreadable.erase(normal);
    state_->epoch++;
}

std::vector<std::string> CompileSession::dependenciesOf(const std::string& unit) const {
    std::lock_guard lock(state_->registry.mutex);
    auto found = state_->registry.dependencies.find(unit);
    if (found == state_->registry.dependencies.end()) return {};
    return {found->second.begin(), found->second.end()};
}

CompileSession::RegistryNews CompileSession::takeRegistryNews() {
    SpecializationRegistry& registry = state_->registry;
    std::lock_guard lock(registry.mutex);
    RegistryNews taken = std::exchange(registry.news, {});
    if (std::exchange(registry.keepsNews, true)) return taken;
    for (const auto& [unit, paths] : registry.dependencies)
        for (const std::string& path : paths) taken.dependencies.emplace_back(unit, path);
    return taken;
}

void CompileSession::report(const CompilerException& error) {
    if (error.isConsequence()) return;
    ErrorPlace place = placeOf(error.getToken());
    std::string key = std::string(place.file) + "\n" + std::to_string(place.line) + ":" + std::to_string(place.column) +
                      "\n" + error.what();
    std::lock_guard lock(state_->diagnosticsMutex);
    if (!state_->reported.insert(std::move(key)).second) return;
    state_->diagnostics.push_back(error);
    std::vector<CompileSession::ShownPlace>& shown = state_->shownPlaces;
    shown.emplace_back(place.file, place.line, place.column);
    std::push_heap(shown.begin(), shown.end());
    if (shown.size() <= MOST_DIAGNOSTICS) return;
    std::pop_heap(shown.begin(), shown.end());
    shown.pop_back();
}

// Mistakes are shown in order of their places: one behind as many as are shown never will be, whatever else is found.
bool CompileSession::mayBeShown(const TokenPtr& token) const {
    ErrorPlace place = placeOf(token);
    std::lock_guard lock(state_->diagnosticsMutex);
    return state_->shownPlaces.size() < MOST_DIAGNOSTICS ||
           !(state_->shownPlaces.front() < ShownPlace(place.file, place.line, place.column));
}

std::vector<CompilerException> CompileSession::diagnostics() const {
    std::lock_guard lock(state_->diagnosticsMutex);
    std::vector<const CompilerException*> order;
    for (const CompilerException& error : state_->diagnostics) order.push_back(&error);
    std::stable_sort(order.begin(), order.end(), [](const CompilerException* a, const CompilerException* b) {
        ErrorPlace left = placeOf(a->getToken()), right = placeOf(b->getToken());
        if (left != right) return left < right;
        return std::string_view(a->what()) < std::string_view(b->what());
    });
    std::vector<CompilerException> sorted;
    sorted.reserve(order.size());
    for (const CompilerException* error : order) sorted.push_back(*error);
    return sorted;
}

bool CompileSession::hasEndedGrowth() const { return state_->growth.hasEnded; }

bool CompileSession::hasErrors() const {
    std::lock_guard lock(state_->diagnosticsMutex);
    return !state_->diagnostics.empty();
}

void CompileSession::noteUnreadable(const std::string& path, const std::string& reason) {
    std::lock_guard lock(state_->diagnosticsMutex);
    if (!state_->unreadableSource) state_->unreadableSource = {path, reason};
}

std::optional<UnreadableSource> CompileSession::unreadable() const {
    std::lock_guard lock(state_->diagnosticsMutex);
    return state_->unreadableSource;
}

void CacheTrouble::note(const char* kind, const std::string& what) {
    std::lock_guard lock(mutex_);
    if (isThere_.load(std::memory_order_relaxed)) return;
    text_ = kind + what;
    isThere_.store(true, std::memory_order_release);
}

std::string CacheTrouble::text() const {
    std::lock_guard lock(mutex_);
    return text_;
}

ScopedCompileSession::ScopedCompileSession(CompileSession& session) : previous_(gCurrentSession) {
    gCurrentSession = &session;
}
ScopedCompileSession::~ScopedCompileSession() { gCurrentSession = previous_; }

ScopedDependencyUnit::ScopedDependencyUnit(const std::string& unit) : previous_(std::move(gDependencyUnit)) {
    gDependencyUnit = SourceManager::normalizePath(unit);
}
ScopedDependencyUnit::~ScopedDependencyUnit() { gDependencyUnit = std::move(previous_); }

void ClassLoader::trackSourceDependency(const Str& path) {
    if (gDependencySuspensions > 0 || path.empty()) return;
    std::string unit = gDependencyUnit;
    if (const ILGenContext* generated = ILGenContext::current(); unit.empty() && generated) unit = generated->unitName;
    SpecializationRegistry& registry = CompileSession::current().state().registry;
    Str normal = SourceManager::normalizePath(path);
    std::lock_guard lock(registry.mutex);
    const auto [place, isNew] = registry.dependencies[unit].insert(std::move(normal));
    if (isNew && registry.keepsNews) registry.news.dependencies.emplace_back(unit, *place);
}

void ClassLoader::suspendDependencyCapture() { gDependencySuspensions++; }
void ClassLoader::resumeDependencyCapture() {
    if (gDependencySuspensions > 0) gDependencySuspensions--;
}

}  // namespace vesk::compiler
