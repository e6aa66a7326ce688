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

// A separator at the end does not count.
bool isApplicationRoot(const Str& root) {
    const Str application = Runtime::getInstance().getAppGenericsPath();
    if (root.empty() || application.empty()) return false;
    if (root == application) return true;
    const auto withoutEmptyEnd = [](const Str& path) {
        Str result = SourceManager::normalizePath(path);
        while (result.size() > 1 && result.back() == '/') result.pop_back();
        return result;
    };
    return withoutEmptyEnd(root) == withoutEmptyEnd(application);
}

// "/a/b/" for every spelling of that folder.
Str normalFolder(const Str& path) {
    thread_local Str lastPath, lastFolder;
    if (path == lastPath) return lastFolder;
    std::filesystem::path folder = std::filesystem::path(path).lexically_normal();
    if (!folder.has_filename()) folder = folder.parent_path();
    Str text = folder == "." ? Str() : (folder / "").string();
    lastPath = path;
    return lastFolder = std::move(text);
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

Str genericMethodBundleCaller(const Str& canonicalOwner, const StrVec& typeList, const ContextPtr& context,
                              const TokenPtr& token, Str* rootOut) {
    Str caller = genericMethodCallerSourceUnit(context, token);
    Str root = ClassLoader::genericOutputRootForType(canonicalOwner, typeList, caller, context, token);
    if (!isApplicationRoot(root)) caller.clear();
    if (rootOut) *rootOut = std::move(root);
    return caller;
}

Str genericMethodBundlePathOfCanonicalOwner(const Str& canonicalOwner, const StrVec& args, const StrVec& paramTypes,
                                            const ContextPtr& context, const TokenPtr& token, Str* callerOut) {
    StrVec typeList = args;
    typeList.insert(typeList.end(), paramTypes.begin(), paramTypes.end());
    Str root;
    const Str effectiveCaller = genericMethodBundleCaller(canonicalOwner, typeList, context, token, &root);
    if (callerOut) *callerOut = effectiveCaller;

    // A class name has no part that leads out of the root.
    if (root.empty() || !isClassName(canonicalOwner)) return {};
    Str path = normalFolder(root);
    if (const Str directory = packageDirectory(canonicalOwner); !directory.empty()) path += directory + "/";
    path += shortTypeNameLocal(canonicalOwner);
    path += "__GM_";
    path += fnv1a64Hex(genericMethodBundleIdentity(canonicalOwner, args, paramTypes, effectiveCaller));
    path += ".vk";
    return path;
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
