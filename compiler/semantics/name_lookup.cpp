// What a name means at a place: classes and functions.
// A scope's way of looking up is put into a LookupEnvironment once; look-ups then walk environments, from the inside
// outward. Each environment that belongs to a file asks the file's package, its imports and package `vesk`.
#include "semantics/name_lookup.h"

#include <algorithm>
#include <utility>

#include "host/source_manager.h"
#include "semantics/context_state.h"
#include "semantics/import_index.h"
#include "semantics/interactive_session.h"
#include "semantics/session_tables.h"
#include "syntax/interactive_chunk.h"

namespace vesk::compiler {

namespace {

// No legal name comes near it; longer texts are not looked for, prefix by prefix.
constexpr std::size_t MAX_NAME = 1000;

// The base of a type text in any spelling: arguments, suffixes and a flattened argument part cut off.
std::string_view baseOfText(std::string_view text) {
    text = text.substr(0, text.find('<'));
    text = text.substr(0, text.find("__T_"));
    while (!text.empty() && (text.back() == '?' || text.back() == ' ' || text.back() == ']' || text.back() == '['))
        text.remove_suffix(1);
    return text;
}

std::string environmentKey(const LookupEnvironment& made) {
    std::string key = std::to_string(made.parent ? made.parent->position : 0);
    auto add = [&key](char mark, const std::string& text) {
        key += '\n';
        key += mark;
        key += text;
    };
    if (made.hasPackage) add('p', made.package);
    for (const std::string& name : made.imports) add('i', name);
    if (!made.declaringFile.empty()) add('f', made.declaringFile);
    if (!made.selfType.empty()) add('s', made.selfType);
    for (const std::string& name : made.typeParameters) add('t', name);
    return key;
}

ClassDeclaration* topLevelClass(CompileSession& session, std::string_view package, std::string_view name) {
    PackageTable& table = session.state().packageWith(session, package, name);
    auto found = table.classes.find(name);
    return found == table.classes.end() ? nullptr : found->second;
}

const std::vector<FunctionDeclaration*>* functionsIn(CompileSession& session, std::string_view package,
                                                     std::string_view name) {
    PackageTable& table = session.state().packageWith(session, package, name);
    auto found = table.functions.find(name);
    return found == table.functions.end() || found->second.empty() ? nullptr : &found->second;
}

// Visits the packages that a file or a file-like scope sees, nearest first: its own, the imported ones, `vesk`.
// `find` answers whatever it finds in one package (null = nothing). Two imports that both have the name: the first
// counts, the second goes to `ambiguous`.
template <class Found, class Find>
Found findInPackages(CompileSession& session, std::string_view name, const std::string* own,
                     const std::vector<std::string>& imports, Find find, Found* ambiguous) {
    if (own)
        if (Found found = find(*own)) return found;
    Found first{};
    for (const PackageTable* package : importIndexOf(session, imports).candidates(session, name)) {
        Found found = find(package->name);
        if (!found || found == first) continue;
        if (!first) {
            first = found;
        } else {
            if (ambiguous) *ambiguous = found;
            break;
        }
    }
    if (first) return first;
    ensureLanguagePackage(session);
    return find(std::string("vesk"));
}

FileDeclaration* fileOf(CompileSession& session, const std::string& path) {
    FileDeclaration* file = session.loadedFile(path);
    return file ? file : session.loadFile(path);
}

// A file's own scope repeats what the file says. What is compared are lists of any length, so once.
bool repeatsFile(const LookupEnvironment& environment, const FileDeclaration& file) {
    if (std::exchange(environment.comparedFile, &file) != &file)
        environment.repeatsFile = file.package == environment.package && file.imports == environment.imports;
    return environment.repeatsFile;
}

// Visits what one environment can see besides its class; `find` as above.
template <class Found, class Find>
Found findInEnvironment(CompileSession& session, std::string_view name, const LookupEnvironment& environment,
                        ClassDeclaration* self, Find find, Found* ambiguous) {
    const auto inFile = [&](const FileDeclaration& file) {
        return findInPackages<Found>(session, name, &file.package, file.imports, find, ambiguous);
    };
    if (self && self->file)
        if (Found found = inFile(*self->file)) return found;
    if (!environment.declaringFile.empty()) {
        if (FileDeclaration* file = fileOf(session, environment.declaringFile)) {
            if (Found found = inFile(*file)) return found;
            if (repeatsFile(environment, *file)) return {};
        }
    }
    if (environment.hasPackage || !environment.imports.empty())
        return findInPackages<Found>(session, name, environment.hasPackage ? &environment.package : nullptr,
                                     environment.imports, find, ambiguous);
    return {};
}

ClassDeclaration* nestedClass(const ClassDeclaration* outer, std::string_view name) {
    auto found = outer->nestedByName.find(name);
    return found == outer->nestedByName.end() ? nullptr : found->second;
}

// A class by a name without dots.
ClassDeclaration* findSimpleClass(CompileSession& session, std::string_view name, const LookupEnvironment* environment,
                                  ClassDeclaration** ambiguous) {
    auto find = [&](const std::string& package) {
        ClassDeclaration* found = topLevelClass(session, package, name);
        if (found || !session.state().interactive || !isInteractiveChunk(package)) return found;
        const std::string earlier = publishedPackage(session, name, package);
        return earlier.empty() ? nullptr : topLevelClass(session, earlier, name);
    };
    for (const LookupEnvironment* at = environment; at; at = at->parent) {
        ClassDeclaration* self =
            at->selfType.empty() ? nullptr : session.classNamed(std::string(baseOfText(at->selfType)));
        for (ClassDeclaration* outer = self; outer; outer = outer->outer) {
            if (ClassDeclaration* nested = nestedClass(outer, name)) return nested;
            if (outer->name == name) return outer;
        }
        if (ClassDeclaration* found = findInEnvironment<ClassDeclaration*>(session, name, *at, self, find, ambiguous))
            return found;
    }
    ensureLanguagePackage(session);
    if (ClassDeclaration* found = topLevelClass(session, "vesk", name)) return found;
    return session.classNamed(std::string(name));
}

// What environments at or outside `environment` call a free function.
const std::vector<FunctionDeclaration*>* findFunctions(CompileSession& session, std::string_view name,
                                                       const LookupEnvironment* environment,
                                                       const std::vector<FunctionDeclaration*>** ambiguous) {
    using Found = const std::vector<FunctionDeclaration*>*;
    if (std::size_t dot = name.rfind('.'); dot != std::string_view::npos)
        return functionsIn(session, name.substr(0, dot), name.substr(dot + 1));
    auto find = [&](const std::string& package) {
        Found found = functionsIn(session, package, name);
        if (found || !session.state().interactive || !isInteractiveChunk(package)) return found;
        const std::string earlier = publishedPackage(session, name, package);
        return earlier.empty() ? nullptr : functionsIn(session, earlier, name);
    };
    for (const LookupEnvironment* at = environment; at; at = at->parent) {
        ClassDeclaration* self =
            at->selfType.empty() ? nullptr : session.classNamed(std::string(baseOfText(at->selfType)));
        if (Found found = findInEnvironment<Found>(session, name, *at, self, find, ambiguous)) return found;
    }
    ensureLanguagePackage(session);
    if (Found found = functionsIn(session, "vesk", name)) return found;
    return functionsIn(session, "", name);
}

}  // namespace

const LookupEnvironment& lookupEnvironment(CompileSession& session, const Context* scope) {
    CompileSession::State& state = session.state();
    while (scope) {
        const Context::State* own = scope->stateIfAny();
        if (own && own->rare && own->rare->decidesLookup()) break;
        scope = scope->parent().get();
    }
    std::lock_guard lock(state.modelMutex);
    if (!scope) return state.environments.front();
    Context::State::Rare& rare = *scope->stateIfAny()->rare;
    std::uint64_t known = rare.environment.load(std::memory_order_relaxed);
    if (known >> 32 == state.serial) return state.environments[known & 0xffffffff];
    LookupEnvironment made;
    made.parent = &lookupEnvironment(session, scope->parent().get());
    made.package = rare.packageName;
    made.hasPackage = rare.hasPackage;
    made.declaringFile = rare.declaringFile;
    made.selfType = rare.selfType;
    made.imports = rare.imports;
    made.typeParameters = rare.typeParameters;
    auto [place, isNew] = state.environmentPositions.try_emplace(environmentKey(made), 0);
    if (isNew) {
        made.position = static_cast<std::uint32_t>(state.environments.size());
        place->second = made.position;
        state.environments.push_back(std::move(made));
        LookupEnvironment& kept = state.environments.back();
        kept.typeParameterSet.insert(kept.typeParameters.begin(), kept.typeParameters.end());
    }
    rare.environment.store(std::uint64_t{state.serial} << 32 | place->second, std::memory_order_relaxed);
    return state.environments[place->second];
}

bool isTypeParameter(std::string_view name, const LookupEnvironment* environment) {
    for (const LookupEnvironment* at = environment; at; at = at->parent) {
        if (at->typeParameterSet.contains(name)) return true;
        // Classes do not see the type parameters of what they are nested in.
        if (!at->selfType.empty()) return false;
    }
    return false;
}

namespace {

// Per environment, the last name in front of a dot that is no class there, as long as nothing else is declared: mostly it is
// a package, and looked for in all others before.
struct NoClass {
    std::uint64_t session = 0, epoch = 0;
    std::string name;
};
thread_local std::unordered_map<std::uint32_t, NoClass> gNoClasses;

ClassDeclaration* findOutermost(CompileSession& session, std::string_view name, const LookupEnvironment* environment) {
    if (!environment) return findSimpleClass(session, name, environment, nullptr);
    const CompileSession::State& state = session.state();
    const NoClass& known = gNoClasses[environment->position];
    if (known.session == state.serial && known.epoch == state.epoch && known.name == name) return nullptr;
    ClassDeclaration* found = findSimpleClass(session, name, environment, nullptr);
    if (!found) gNoClasses[environment->position] = {state.serial, state.epoch, std::string(name)};
    return found;
}

}  // namespace

ClassDeclaration* findClass(CompileSession& session, std::string_view name, const LookupEnvironment* environment,
                            ClassDeclaration** ambiguous) {
    std::size_t dot = name.find('.');
    if (dot == std::string_view::npos) return findSimpleClass(session, name, environment, ambiguous);
    ClassDeclaration* found = findOutermost(session, name.substr(0, dot), environment);
    for (std::string_view rest = name.substr(dot + 1); found && !rest.empty();) {
        std::size_t end = rest.find('.');
        found = nestedClass(found, rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    return found ? found : session.classNamed(std::string(name));
}

ClassDeclaration* lookupClass(std::string_view name, const ContextPtr& scope, ClassDeclaration** ambiguous) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    return findClass(session, name, &lookupEnvironment(session, scope.get()), ambiguous);
}

bool isTypeParameterAt(std::string_view name, const ContextPtr& scope) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    return isTypeParameter(name, &lookupEnvironment(session, scope.get()));
}

std::vector<FunctionDeclaration*> lookupFunctions(std::string_view name, const ContextPtr& scope) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    const auto* found = findFunctions(session, name, &lookupEnvironment(session, scope.get()), nullptr);
    return found ? *found : std::vector<FunctionDeclaration*>{};
}

std::string ambiguityOf(std::string_view name, const ContextPtr& scope) {
    if (name.find('.') != std::string_view::npos) return {};
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    const LookupEnvironment& environment = lookupEnvironment(session, scope.get());
    auto message = [&](const std::string& first, const std::string& second) {
        return "'" + std::string(name) + "' is ambiguous: it is declared in the imported packages " + first + " and " +
               second;
    };
    ClassDeclaration* secondClass = nullptr;
    ClassDeclaration* firstClass = findClass(session, name, &environment, &secondClass);
    if (firstClass && secondClass) return message(firstClass->package, secondClass->package);
    const std::vector<FunctionDeclaration*>* second = nullptr;
    const auto* first = findFunctions(session, name, &environment, &second);
    if (first && second) return message(first->front()->file->package, second->front()->file->package);
    return {};
}

ClassDeclaration* CompileSession::classNamed(const std::string& qualifiedName) {
    std::lock_guard lock(state_->modelMutex);
    if (auto found = state_->classes.find(qualifiedName); found != state_->classes.end()) return found->second;
    if (qualifiedName.size() > MAX_NAME) return nullptr;
    // The package is some prefix; loading it declares the class if there is one.
    std::size_t epoch = state_->epoch;
    for (std::size_t dot = qualifiedName.rfind('.'); dot != std::string::npos && dot > 0;
         dot = qualifiedName.rfind('.', dot - 1)) {
        const std::string_view rest = std::string_view(qualifiedName).substr(dot + 1);
        state_->packageWith(*this, std::string_view(qualifiedName).substr(0, dot), rest.substr(0, rest.find('.')));
        if (state_->epoch == epoch) continue;
        epoch = state_->epoch;
        if (auto found = state_->classes.find(qualifiedName); found != state_->classes.end()) return found->second;
    }
    return nullptr;
}

const std::vector<FunctionDeclaration*>& CompileSession::functionsNamed(const std::string& package,
                                                                        const std::string& name) {
    static const std::vector<FunctionDeclaration*> NONE;
    std::lock_guard lock(state_->modelMutex);
    const auto* found = functionsIn(*this, package, name);
    return found ? *found : NONE;
}

ClassDeclaration* enclosingClassOf(const ContextPtr& scope) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    for (const LookupEnvironment* at = &lookupEnvironment(session, scope.get()); at; at = at->parent)
        if (!at->selfType.empty()) return findClass(session, baseOfText(at->selfType), at->parent ? at->parent : at);
    return nullptr;
}

namespace {

// The packages that an environment adds to those around it.
template <class Visit>
void forEachPackage(CompileSession& session, const LookupEnvironment& environment, const Visit& visit) {
    if (!environment.declaringFile.empty())
        if (FileDeclaration* file = fileOf(session, environment.declaringFile)) {
            visit(file->package);
            for (const std::string& package : file->imports) visit(package);
        }
    if (environment.hasPackage) visit(environment.package);
    for (const std::string& package : environment.imports) visit(package);
}

// Whether an import of the file was refused or names no package: what the file does not know may come from there.
bool knowsTooLittle(CompileSession& session, const FileDeclaration& file) {
    return file.node->lacksImports() || !std::ranges::all_of(file.node->imports(), [&](const PackageLine& line) {
               return session.packageExists(line.name);
           });
}

}  // namespace

bool mayBeRefused(std::string_view name, const ContextPtr& scope) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    const auto& refused = session.state().refusedNames;
    // Of "a.b.C.Inner" what stands behind the package.
    std::string_view package;
    for (std::size_t dot = name.find('.'); dot != std::string_view::npos; dot = name.find('.', dot + 1))
        if (isPackagePrefix(name.substr(0, dot))) package = name.substr(0, dot);
    const std::string_view local = package.empty() ? name : name.substr(package.size() + 1);
    const auto isRefusedIn = [&](std::string_view owner) {
        const auto names = refused.find(owner);
        if (names == refused.end()) return false;
        for (std::size_t start = 0, dot = 0; dot != std::string_view::npos; start = dot + 1) {
            dot = local.find('.', start);
            if (names->second.contains(local.substr(start, dot - start))) return true;
        }
        return false;
    };
    if (!package.empty()) return isRefusedIn(package);
    bool isSeen = false;
    for (const LookupEnvironment* at = &lookupEnvironment(session, scope.get()); at && !isSeen; at = at->parent) {
        const FileDeclaration* file = at->declaringFile.empty() ? nullptr : fileOf(session, at->declaringFile);
        isSeen |= file && knowsTooLittle(session, *file);
        if (!refused.empty())
            forEachPackage(session, *at, [&](const std::string& each) { isSeen |= isRefusedIn(each); });
    }
    return isSeen;
}

bool mayHaveRefusedMember(const Type* type, std::string_view name) {
    CompileSession& session = CompileSession::current();
    std::lock_guard lock(session.modelMutex());
    if (session.state().refusedNames.empty()) return false;
    return std::ranges::any_of(lineageOf(withoutNull(type)), [&](const Type* each) {
        return each->declaration && each->declaration->file &&
               each->declaration->file->node->refusedNames().contains(name);
    });
}

std::vector<std::string> visibleTypeNames(CompileSession& session, const ContextPtr& scope) {
    std::vector<std::string> names;
    auto addPackage = [&](const std::string& package) {
        for (const auto& [name, declaration] : session.state().loadedPackage(session, package).classes)
            names.push_back(name);
    };
    for (const LookupEnvironment* at = &lookupEnvironment(session, scope.get()); at; at = at->parent) {
        names.insert(names.end(), at->typeParameters.begin(), at->typeParameters.end());
        forEachPackage(session, *at, addPackage);
    }
    ensureLanguagePackage(session);
    addPackage("vesk");
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

}  // namespace vesk::compiler
