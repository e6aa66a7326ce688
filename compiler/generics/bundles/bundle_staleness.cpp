// What the host build asks of bundle files: whether a file is one, what it defines, whether its object is out of date.
#include <algorithm>
#include <filesystem>

#include "generics/bundles/bundle_manifest.h"
#include "generics/bundles/bundle_paths.h"
#include "generics/generic_specializer.h"
#include "generics/source/source_text_cache.h"
#include "host/class_loader.h"
#include "host/compiler_sources.h"
#include "host/runtime.h"
#include "host/source_manager.h"

namespace vesk::compiler {

bool isGenericMethodBundlePath(const Str& path) {
    std::string_view stem = path;
    stem.remove_prefix(std::min(stem.rfind('/') + 1, stem.size()));
    if (const std::size_t dot = stem.rfind('.'); dot != Str::npos && dot > 0) stem = stem.substr(0, dot);
    return stem.find("__GM_") != Str::npos || stem.find("__gm_") != Str::npos;
}

bool isKeptGenericMethodBundle(const Str& path) {
    const auto isBelow = [](const Str& file, const Str& folder) {
        return !folder.empty() && file.size() > folder.size() && file.starts_with(folder) &&
               (folder.back() == '/' || file[folder.size()] == '/');
    };
    if (path.empty()) return false;
    const bool isPlain = path.find("/.") == Str::npos;
    if (isPlain && (isBelow(path, Runtime::getGenericsPath()) || isBelow(path, Runtime::getAppGenericsPath())))
        return true;
    const Str normal = SourceManager::normalizePath(path);
    return isBelow(normal, SourceManager::normalizePath(Runtime::getGenericsPath())) ||
           isBelow(normal, SourceManager::normalizePath(Runtime::getAppGenericsPath())) ||
           (isGenericMethodBundlePath(path) && Compiler::virtualSourceContents(normal));
}

bool isGenericMethodBundleSource(const Str& path) { return currentGenericMethodBundleManifest(path)->valid; }

bool genericMethodBundleObjectNeedsRebuild(const Str& bundlePath, const Str& objectPath) {
    const std::shared_ptr<const GenericMethodBundleManifest> manifest = currentGenericMethodBundleManifest(bundlePath);
    if (!manifest->valid) return false;
    const FileStatus object = SourceManager::instance().status(objectPath);
    std::filesystem::file_time_type objectTime;
    if (!object.queried || !object.exists || !SourceManager::instance().lastWriteTime(objectPath, objectTime))
        return true;
    return physicalSourceIsNewer(ClassLoader::sourceFileForClass(manifest->owner), objectPath) ||
           physicalSourceIsNewer(manifest->callerSourceUnit, objectPath);
}

StrVec genericMethodBundleDeclaredSymbols(const Str& path) {
    StrVec symbols;
    const std::shared_ptr<const GenericMethodBundleManifest> manifest = currentGenericMethodBundleManifest(path);
    if (!manifest->valid) return symbols;
    for (const auto& spec : manifest->specs) {
        if (!spec.symbol.empty()) symbols.push_back(spec.symbol);
    }
    std::sort(symbols.begin(), symbols.end());
    symbols.erase(std::unique(symbols.begin(), symbols.end()), symbols.end());
    return symbols;
}

}  // namespace vesk::compiler
