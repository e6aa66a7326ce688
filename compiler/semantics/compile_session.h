// One compilation: its sources, declarations, types, registrations and diagnostics.
// The static host services (ClassLoader, Compiler, Runtime, Context's queries) forward to the session of the calling
// thread. A thread without one uses the process's default session.
//
// Locks, always taken in this order: inferenceMutex (inferring a return type or checking a shared body), then a bundle's
// lock, then modelMutex (every table of this class). modelMutex is held for short pieces of work only, never while a
// body is checked or the specializer runs.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

#include "host/diagnostics.h"
#include "host/requested_specialization.h"
#include "semantics/declarations.h"

namespace vesk::compiler {

class TrustedCache;
struct TypedBody;

enum class CacheMode { On, Memory, ReadOnly, Off };

// The first trouble with the cache.
class CacheTrouble {
public:
    // It cannot be written, for the system's reason.
    void note(const std::string& what) { note("the cache is not written: ", what); }
    // It is left alone, for a reason of ours.
    void noteRefusal(const std::string& what) { note("the cache is not used: ", what); }
    bool isThere() const { return isThere_.load(std::memory_order_acquire); }
    // The whole sentence.
    std::string text() const;

private:
    void note(const char* kind, const std::string& what);

    mutable std::mutex mutex_;
    std::string text_;
    std::atomic<bool> isThere_{false};
};

// A source, or a folder of sources, that is there and cannot be read, and why in the system's words.
struct UnreadableSource {
    std::string path, reason;
};

struct SessionOptions {
    std::vector<std::string> sourceRoots;  // in order, without the standard library
    std::string standardLibrary;           // folder that holds `vesk/`; "" = found beside the running program
    std::string cacheDirectory;            // "" = VESK_CACHE_DIR, else the XDG cache folder
    CacheMode cache = CacheMode::On;
    std::string programRoot;   // names the application's own bundles
    bool isOptimized = false;  // code is made to be fast, not to be made fast
    // What files without a package belong to; "" = the default package. See namesakes.h.
    std::string defaultPackage;
    // Where trouble with writing the cache is noted; from then on the cache is in memory. Null: trouble is an error.
    std::shared_ptr<CacheTrouble> cacheTrouble;
};

class CompileSession {
public:
    explicit CompileSession(SessionOptions options);
    ~CompileSession();
    CompileSession(const CompileSession&) = delete;
    CompileSession& operator=(const CompileSession&) = delete;

    static CompileSession& current();
    const SessionOptions& options() const;
    // The folder that holds `vesk/`, "" when there is none.
    const std::string& standardLibrary() const;
    // Whether what is generated goes to the cache.
    bool writesCache() const;
    // Removes what killed compilers have left where this session has looked, if it writes.
    void tidyCache();
    // The cache folder; null where none is used.
    std::shared_ptr<TrustedCache> cache() const;

    ContextPtr rootContext();
    TypeTable& types();
    std::recursive_mutex& modelMutex();
    std::recursive_mutex& inferenceMutex();

    // --- loading ---------------------------------------------------------------------------------------
    // Parses and declares a file once. Mistakes in it go to diagnostics(); null when it cannot be read.
    FileDeclaration* loadFile(const std::string& path);
    FileDeclaration* loadedFile(const std::string& path) const;  // null when not loaded
    // All files of a package, loading them on first use. Empty for unknown packages.
    const std::vector<FileDeclaration*>& filesOfPackage(const std::string& package);
    bool packageExists(const std::string& package);
    std::vector<FileDeclaration*> allFiles() const;  // in order of path
    // Makes a text available as the file of that path (interactive chunks, tests).
    void addVirtualSource(const std::string& path, const std::string& text);

    // --- lookup ----------------------------------------------------------------------------------------
    ClassDeclaration* classNamed(const std::string& qualifiedName);
    const std::vector<FunctionDeclaration*>& functionsNamed(const std::string& package, const std::string& name);
    // Resolved super class and interfaces; throws CompilerException for unknown names and cyclic inheritance.
    void linkSuperTypes(ClassDeclaration& declaration);
    // Everything about a file's declarations that can be wrong without looking at bodies: super types, signatures,
    // fields, overrides, equal overloads. Mistakes go to diagnostics(). Does its work once per file without mistakes.
    void checkDeclarations(FileDeclaration& file);
    // The same for all files of the program that have been loaded, chunks aside: what is generic in them is used without their units
    // being compiled.
    void checkLoadedDeclarations();

    // --- instances -------------------------------------------------------------------------------------
    // One record per declaration and types; the same arguments give the same record.
    FunctionInstance* instanceOf(FunctionDeclaration& function);
    FunctionInstance* instanceOf(MethodDeclaration& method, const Type* owner);
    FunctionInstance* defaultValueOf(FunctionInstance& function, std::size_t parameter);
    FunctionInstance* fieldInitializerOf(const Type* owner);  // null when there is nothing to initialize
    FunctionInstance* unitInitializerOf(
        FileDeclaration& file);  // null when the file has no static fields to initialize
    // The instance made for a node registered by the specializer, null for unknown symbols.
    FunctionInstance* specializedInstance(const std::string& symbol);
    // Symbols of methods that this session calls and bundles hold, in order of the first call, from the given one on. One
    // that is called again may be named again.
    std::vector<std::string> externalMethods(std::size_t from = 0) const;
    // The instance behind a method specialization as the specializer answered it, also when its node is not known
    // here: a request that is still under way, or a specialization that lies in a bundle.
    FunctionInstance* specializedMethod(const GenericMethodSpec& spec, const Type* owner, const std::string& name);
    const ClassLayout& layoutOf(const Type* type);
    // Whether nothing of a class is abstract. For classes of the library one answer holds whatever their type arguments are.
    bool isInstantiable(const Type* type);
    // Declared or inferred; throws "Cannot infer return type ..." when it depends on itself.
    const Type* returnTypeOf(FunctionInstance& function);
    // Checks a body. Mistakes go to diagnostics(); null when there were some.
    std::unique_ptr<TypedBody> bodyOf(FunctionInstance& function);
    // What a mistaken body calls, each once: nothing is compiled for it, but it may be mistaken as well.
    void keepRequestsOfMistaken(const FunctionInstance& function, const std::vector<FunctionInstance*>& requested);
    std::vector<FunctionInstance*> requestsOfMistaken(const FunctionInstance& function) const;

    // --- specializations ------------------------------------------------------------------------------
    struct Registration {
        std::string unit, symbol, owner, sourceOrTarget;
        std::shared_ptr<CallableDeclarationNode> node;
        FunctionInstance* instance = nullptr;
    };
    // Everything registered for a unit from position `from` on.
    std::vector<Registration> registrationsOf(const std::string& unit, std::size_t from = 0) const;
    std::size_t registrationCount(const std::string& unit) const;
    // The one at a position below that count.
    Registration registrationAt(const std::string& unit, std::size_t position) const;

    // What has been registered and recorded, so that a driver that goes round over its units looks at no others.
    struct RegistryNews {
        std::set<std::string> units;                                    // that got registrations
        std::vector<std::string> symbols;                               // whose record or source has come
        std::vector<std::pair<std::string, std::string>> dependencies;  // by unit
    };
    // Everything that came since the last call; the first call answers with all dependencies so far, and begins.
    RegistryNews takeRegistryNews();

    // --- dependencies and diagnostics -----------------------------------------------------------------
    std::vector<std::string> dependenciesOf(const std::string& unit) const;  // sorted
    void report(const CompilerException& error);
    // How many mistakes a command shows, the first by place.
    static constexpr std::size_t MOST_DIAGNOSTICS = 100;
    using ShownPlace = std::tuple<std::string, int, int>;
    // Whether a mistake at this place may still be among them. What costs a look at
    // every name, as a hint does, is left out otherwise.
    bool mayBeShown(const TokenPtr& place) const;
    std::vector<CompilerException> diagnostics() const;  // in order of file and place
    // Whether a bound on specializations has been reached: there will be no program.
    bool hasEndedGrowth() const;
    bool hasErrors() const;
    // What is compiled without a source may be wrong, with mistakes or without: whoever asked for the compilation is to
    // look here before believing it. Answers with the first one noted.
    void noteUnreadable(const std::string& path, const std::string& reason);
    std::optional<UnreadableSource> unreadable() const;

    struct State;
    State& state() { return *state_; }

private:
    std::unique_ptr<State> state_;
};

// Makes a session the one of this thread for its own lifetime; scopes nest.
class ScopedCompileSession {
public:
    explicit ScopedCompileSession(CompileSession& session);
    ~ScopedCompileSession();
    ScopedCompileSession(const ScopedCompileSession&) = delete;
    ScopedCompileSession& operator=(const ScopedCompileSession&) = delete;

private:
    CompileSession* previous_;
};

// While it lives, specializations that this thread registers have been requested from inside `function`, at `token`
// (null: at the place of the enclosing scope).
class ScopedRequester {
public:
    explicit ScopedRequester(FunctionInstance* function, TokenPtr token = nullptr);
    ~ScopedRequester();
    ScopedRequester(const ScopedRequester&) = delete;
    ScopedRequester& operator=(const ScopedRequester&) = delete;
    // Also a specialization that a driver is making on this thread.
    static FunctionInstance* current();
    static TokenPtr currentToken();

private:
    FunctionInstance* previous_;
    TokenPtr previousToken_;
    ScopedSpecialization::Frame* previousFrame_;
};

// Names the unit whose dependencies this thread records while it lives; scopes nest. Without one they count for the
// module that is being generated.
class ScopedDependencyUnit {
public:
    explicit ScopedDependencyUnit(const std::string& unit);
    ~ScopedDependencyUnit();
    ScopedDependencyUnit(const ScopedDependencyUnit&) = delete;
    ScopedDependencyUnit& operator=(const ScopedDependencyUnit&) = delete;

private:
    std::string previous_;
};

// "in specialization of NAME requested here", one note per request, innermost first.
std::vector<DiagnosticNote> requestChain(const FunctionInstance* function);

// The longest chain of specializations that ask for each other.
inline constexpr int MAX_REQUEST_DEPTH = 200;

}  // namespace vesk::compiler
