// Bundle paths and keys.
#include "generics/bundles/bundle_paths.h"

#include <filesystem>

#include "generics/candidate_cache.h"
#include "generics/typetext/symbol_mangling.h"
#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/runtime.h"
#include "host/source_manager.h"

namespace vesk::compiler {

namespace {

bool isNameStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool isNamePart(char c) { return isNameStart(c) || (c >= '0' && c <= '9'); }

Str packageDirectory(const Str& canonicalOwner) {
    const std::size_t dot = canonicalOwner.rfind('.');
    if (dot == Str::npos) return {};
    Str directory = canonicalOwner.substr(0, dot);
    for (char& c : directory) {
        if (c == '.') c = '/';
    }
    return directory;
}

// Component by component, so that a separator at the end does not count.
bool isApplicationRoot(const Str& root) {
    const Str application = Runtime::getInstance().getAppGenericsPath();
    if (root.empty() || application.empty()) return false;
    const auto withoutEmptyEnd = [](const Str& path) {
        std::filesystem::path result = SourceManager::normalizePath(path);
        return result.has_filename() ? result : result.parent_path();
    };
    return withoutEmptyEnd(root) == withoutEmptyEnd(application);
}

bool liesUnder(const std::filesystem::path& root, const std::filesystem::path& path) {
    const auto [rootEnd, rest] = std::mismatch(root.begin(), root.end(), path.begin(), path.end());
    return (rootEnd == root.end() || rootEnd->empty()) && rest != path.end();
}

}  // namespace

bool isClassName(const Str& name) {
    bool atStart = true;
    for (const char c : name) {
        if (c == '.' ? atStart : !(atStart ? isNameStart(c) : isNamePart(c))) return false;
        atStart = c == '.';
    }
    return !atStart;
}

Str genericMethodBundleIdentity(const Str& canonicalOwner, const StrVec& args, const StrVec& paramTypes,
                                const Str& caller) {
    Str identity = canonicalOwner + "<gm:" + joinTypes(args) + "|params:" + joinTypes(paramTypes);
    if (!caller.empty()) identity += "|caller:" + caller;
    identity += '>';
    return identity;
}

Str genericMethodBundleSourcePath(const Str& owner, const StrVec& args, const StrVec& paramTypes,
                                  const ContextPtr& context, const TokenPtr& token, Str* callerOut) {
    return genericMethodBundlePathOfCanonicalOwner(canonicalOwnerClassName(context, token, owner), args, paramTypes,
                                                   context, token, callerOut);
}

Str genericMethodBundlePathOfCanonicalOwner(const Str& canonicalOwner, const StrVec& args, const StrVec& paramTypes,
                                            const ContextPtr& context, const TokenPtr& token, Str* callerOut) {
    StrVec typeList = args;
    typeList.insert(typeList.end(), paramTypes.begin(), paramTypes.end());
    const Str caller = genericMethodCallerSourceUnit(context, token);
    const Str root = ClassLoader::genericOutputRootForType(canonicalOwner, typeList, caller, context, token);
    const Str effectiveCaller = isApplicationRoot(root) ? caller : Str();
    if (callerOut) *callerOut = effectiveCaller;

    if (root.empty() || !isClassName(canonicalOwner)) return {};
    const std::filesystem::path normalRoot = std::filesystem::path(root).lexically_normal();
    std::filesystem::path path = normalRoot;
    if (const Str directory = packageDirectory(canonicalOwner); !directory.empty()) path /= directory;
    path /= shortTypeNameLocal(canonicalOwner) + "__GM_" +
            fnv1a64Hex(genericMethodBundleIdentity(canonicalOwner, args, paramTypes, effectiveCaller)) + ".vk";
    path = path.lexically_normal();
    return liesUnder(normalRoot, path) ? path.string() : Str();
}

Str genericMethodBundleCacheKey(const Str& owner, const Str& methodName, bool isStatic, const StrVec& paramTypes,
                                const StrVec& explicitTypeArgs, const Str& callerSourceUnit) {
    Str key;
    key.reserve(owner.size() + methodName.size() + callerSourceUnit.size() + 64);
    key.append(owner).append("|").append(methodName).append(isStatic ? "|1|" : "|0|").append(joinTypes(paramTypes));
    if (!explicitTypeArgs.empty()) key.append("|<").append(joinTypes(explicitTypeArgs)).append(">");
    if (!callerSourceUnit.empty()) key.append("|caller:").append(callerSourceUnit);
    return key;
}

}  // namespace vesk::compiler
