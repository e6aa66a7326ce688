// The inside of CompileSession: its tables and what guards them.
// All tables are guarded by modelMutex, except those of SpecializationRegistry, which has a lock of its own that is
// taken last and never held while anything else is called.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "cache/trusted_cache.h"
#include "host/source_manager.h"
#include "semantics/compile_session.h"
#include "semantics/import_index.h"
#include "semantics/lineage.h"
#include "semantics/name_lookup.h"
#include "semantics/request_chain.h"

namespace vesk::compiler {

struct TransparentTextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};
template <class Value>
using TextTable = std::unordered_map<std::string, Value, TransparentTextHash, std::equal_to<>>;

struct AddressPairHash {
    template <class A, class B>
    std::size_t operator()(const std::pair<A*, B*>& pair) const {
        return std::hash<const void*>()(pair.first) * 0x9e3779b97f4a7c15ULL ^ std::hash<const void*>()(pair.second);
    }
};

// How names are looked up from a scope. Equal scopes share one record, so that it can key caches.
struct LookupEnvironment {
    const LookupEnvironment* parent = nullptr;
    std::uint32_t position = 0;
    std::string package, declaringFile, selfType;
    std::vector<std::string> imports, typeParameters;
    std::unordered_set<std::string_view> typeParameterSet;  // views of `typeParameters`, set when the record is kept
    bool hasPackage = false;
    // The declaring file as it was last compared: whether its package and imports are these.
    mutable const FileDeclaration* comparedFile = nullptr;
    mutable bool repeatsFile = false;
};

struct PackageTable {
    std::string name;
    bool isLoaded = false;  // its folder has been read
    std::vector<FileDeclaration*> files;
    TextTable<ClassDeclaration*> classes;  // top-level ones by short name
    TextTable<std::vector<FunctionDeclaration*>> functions;
    std::unordered_set<std::string> genericNames;  // names of its generic functions
    // Of a package of the standard library: the files in which a top-level name may be declared. They are loaded when
    // the name is looked up.
    enum class Outline : unsigned char { Unknown, None, Read } outlineState = Outline::Unknown;
    TextTable<std::vector<std::string>> outline;
};

// Concrete functions that the specializer registered.
struct SpecializationRegistry {
    mutable std::mutex mutex;
    struct Signature {
        StrVec paramTypes;
        std::string returnType;
        // From here on: what an instance is made of when one is wanted before its node has come; dropped when it comes.
        StrVec paramNames;
        ContextPtr scope;
        std::string sourceFile;
        bool isVariadic = false, isNamedVariadic = false;
        int variadicIndex = -1, namedVariadicIndex = -1;
        FunctionInstance* requester = nullptr;
        TokenPtr requestToken;
        int requestDepth = 0;
    };
    // A registration without copies of what other tables hold.
    struct Registered {
        const std::string* symbol = nullptr;  // the key in the unit's table
        std::string owner;
        const std::string* sourceOrTarget = nullptr;  // a text of `paths`
        std::shared_ptr<CallableDeclarationNode> node;
        FunctionInstance* instance = nullptr;
        CompileSession::Registration of(const std::string& unit) const {
            return {unit, *symbol, owner, *sourceOrTarget, node, instance};
        }
    };
    struct Unit {
        std::unordered_map<std::string, std::size_t, TransparentTextHash, std::equal_to<>> functions, methods;
        std::vector<Registered> registrations;
    };
    TextTable<Unit> units;
    TextTable<Signature> signatures;
    TextTable<FunctionInstance*> instances;       // by symbol
    TextTable<const std::string*> symbolSources;  // texts of `paths`
    std::set<std::string, std::less<>> paths;
    // The one copy of a path that thousands of symbols name.
    const std::string* keptPath(const std::string& path) { return &*paths.insert(path).first; }
    std::vector<std::string> externals;  // methods of bundles that this compilation calls, in order
    std::deque<FunctionInstance> storage;
    TextTable<std::set<std::string>> dependencies;  // by unit
    // What was registered, in order, so that an interactive chunk with mistakes can be taken back; and which symbols were
    // registered again.
    struct Entry {
        std::string unit, symbol;  // unit "": a record or a signature only
    };
    bool keepsJournal = false;
    std::vector<Entry> journal;
    std::vector<std::string> repeated;
    // What has come since a driver looked last, for drivers that ask for it.
    bool keepsNews = false;
    CompileSession::RegistryNews news;
    void note(const std::string& unit, const std::string& symbol) {
        if (keepsJournal) journal.push_back({unit, symbol});
        if (!keepsNews) return;
        if (unit.empty())
            news.symbols.push_back(symbol);
        else
            news.units.insert(unit);
    }
};

struct InteractiveNames;

struct CompileSession::State {
    SessionOptions options;
    std::uint32_t serial = 0;
    std::string standardLibrary;     // folder that holds `vesk/`, "" when there is none
    std::vector<std::string> roots;  // options.sourceRoots, then the standard library
    std::recursive_mutex modelMutex, inferenceMutex;
    TypeTable types;
    ContextPtr root;

    // --- declarations
    TextTable<std::unique_ptr<FileDeclaration>> files;
    std::vector<FileDeclaration*> filesToCheck;  // loaded since checkLoadedDeclarations came by
    TextTable<std::unique_ptr<PackageTable>> packages;
    TextTable<std::vector<const PackageTable*>> packagesByName;  // that declare something of this name
    std::unordered_map<const std::vector<std::string>*, std::unique_ptr<ImportIndex>> importIndexes;
    TextTable<bool> folders;               // "a/b" below some root: does it exist
    TextTable<ClassDeclaration*> classes;  // by qualified name
    std::deque<ClassDeclaration> classStorage;
    std::deque<FunctionDeclaration> functionStorage;
    std::unordered_set<std::string> unreadable, checkedFiles;
    // Of packages with files some of whose declarations were refused: the names on those lines.
    std::map<std::string, RefusedNames, std::less<>> refusedNames;
    std::atomic<bool> veskIsLoaded{false};
    // Rises when a file is declared: names that nothing declared may have become known.
    std::atomic<std::uint64_t> epoch{1};

    // --- names and types
    std::deque<LookupEnvironment> environments;  // position 0 is the root scope's
    TextTable<std::uint32_t> environmentPositions;
    std::unordered_map<const Type*, std::unique_ptr<const std::vector<const Type*>>> lineages;
    std::deque<std::unique_ptr<const std::vector<const Type*>>> unsettledLineages;  // of classes with mistakes
    LineageTables lineage;
    // What linking a class has ended with, as long as no further file is declared.
    struct LinkingFailure {
        CompilerException mistake;
        std::uint64_t epoch;
    };
    std::unordered_map<const ClassDeclaration*, LinkingFailure> linkingFailures;

    // --- instances
    std::deque<FunctionInstance> instances;
    std::unordered_map<const FunctionDeclaration*, FunctionInstance*> functionInstances;
    std::unordered_map<std::pair<const MethodDeclaration*, const Type*>, FunctionInstance*, AddressPairHash>
        methodInstances;
    std::map<std::pair<const FunctionInstance*, std::size_t>, FunctionInstance*> defaultValues;
    // Of functions with such defaults; views of their names.
    std::unordered_map<const FunctionInstance*, std::unordered_map<std::string_view, std::size_t>> parameterPositions;
    std::unordered_map<const Type*, FunctionInstance*> fieldInitializers;
    std::unordered_map<const FileDeclaration*, FunctionInstance*> unitInitializers;
    std::unordered_map<const Type*, std::unique_ptr<ClassLayout>> layouts;
    std::unordered_set<const ClassDeclaration*> instantiable;      // of the library
    std::unordered_map<const Type*, bool> interfacesWithDefaults;  // their own or of those that they extend
    std::unordered_set<const Type*> layoutsUnderWay;
    PersistentMaps<FunctionInstance*> slotMaps;
    PersistentMaps<std::uint32_t> signatureMaps;
    std::map<std::pair<const Type*, std::string>, std::shared_ptr<const std::vector<GenericMethodInfo>>> genericMethods;

    std::unordered_map<const FunctionInstance*, std::vector<FunctionInstance*>> requestsOfMistaken;

    SpecializationRegistry registry;
    GrowthTable growth;
    std::shared_ptr<InteractiveNames> interactive;  // null unless there are chunks (interactive_session.h)

    // --- sources
    mutable std::mutex sourceMutex;
    TextTable<std::shared_ptr<const std::string>> virtualSources;
    // Where the cache lies: worked out on first use (cache_layout.cpp). No cache: off, or somebody else's.
    std::once_flag cacheIsFound;
    std::string genericsPath, appGenericsPath, branchPath;
    std::shared_ptr<TrustedCache> ownedCache;
    std::atomic<TrustedCache*> cache{nullptr};

    // --- diagnostics
    mutable std::mutex diagnosticsMutex;
    std::vector<CompilerException> diagnostics;
    std::unordered_set<std::string> reported;
    std::vector<CompileSession::ShownPlace> shownPlaces;  // a heap of the first MOST_DIAGNOSTICS places
    std::optional<UnreadableSource> unreadableSource;

    // --- pieces of the work, each in the file named
    PackageTable& packageTable(std::string_view name);                            // packages.cpp
    PackageTable& loadedPackage(CompileSession& session, std::string_view name);  // packages.cpp
    // The package with everything in it that has this name; more of it may come later.
    PackageTable& packageWith(CompileSession& session, std::string_view package, std::string_view name);
    void readOutline(PackageTable& table);
    // The sources of a folder, sorted; none where there is no folder. What cannot be read is noted as unreadable.
    std::vector<std::string> sourcesIn(const std::string& folder);
    bool isFolder(const std::string& path);  // what cannot be asked for is noted as unreadable
    void noteUnreadable(const std::string& path, std::error_code reason);
    bool folderExists(std::string_view package);                       // packages.cpp
    void declareFile(CompileSession& session, FileDeclaration& file);  // declaring.cpp
};

// Finds the cache of a session, unless that has happened.
void findCache(CompileSession::State& state);
// The cache of this thread's session if that holds the path; null for paths of other files.
TrustedCache* cacheHolding(const std::string& path);
// Opens a regular file, of the cache or another. Nothing when it cannot be had.
std::optional<HeldFolder::File> openSource(const std::string& path);
std::optional<HeldFolder::File> openSource(const std::string& path, UnreadReason& reason);
// Reads an open file to its end.
bool readAll(int descriptor, std::size_t expected, std::string& out);

// Loads package `vesk` unless that has happened; from then on built-in types know their methods.
void ensureLanguagePackage(CompileSession& session);
// The lookup record of a scope; null scopes look up like the root.
const LookupEnvironment& lookupEnvironment(CompileSession& session, const Context* scope);
// A class as seen from an environment. `ambiguous` (may be null) receives the second package's find of an ambiguity.
ClassDeclaration* findClass(CompileSession& session, std::string_view name, const LookupEnvironment* environment,
                            ClassDeclaration** ambiguous = nullptr);
// True for a type parameter that the environment declares.
bool isTypeParameter(std::string_view name, const LookupEnvironment* environment);
// The class of a built-in type or a class type, null for all others. Loads package `vesk` when it must.
ClassDeclaration* declarationOf(const Type* type);
// Names that near-match hints choose from.
std::vector<std::string> visibleTypeNames(CompileSession& session, const ContextPtr& scope);

// Signature parts of a declaration, resolved where they stand.
struct ResolvedSignature {
    std::vector<const Type*> parameterTypes;
    const Type* returnType = nullptr;  // null while it waits to be inferred
};
// Where its result's type stands, for mistakes in it.
const TokenPtr& placeOfResult(const CallableDeclarationNode& node);
ResolvedSignature resolveSignature(const CallableDeclarationNode& node, const TypeEnvironment* environment);
// A type name in people's spelling with the package of its base dropped: "Box<Int>".
std::string shortDisplay(const Type* type);
// All methods a class or interface declares non-statically, without constructors and generic methods.
bool takesPartInDispatch(const MethodDeclaration& method);

}  // namespace vesk::compiler
