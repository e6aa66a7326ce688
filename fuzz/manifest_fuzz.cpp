// Feeds arbitrary texts to the reader of bundle manifests.
// What must hold: no crash; a text is valid or it is not, and what a valid one says survives being written and read again.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <exception>

#include "generics/bundles/bundle_manifest.h"

namespace {

using namespace vesk::compiler;

const Str PATH = "/fuzz/Box__T_Int__GM_0.vk";

void require(bool holds) {
    if (!holds) std::abort();
}

Str written(const GenericMethodBundleManifest& manifest) {
    const std::vector<BundleMethodSpecialization> specs = recordedGenericMethodBundleSpecs(manifest);
    return renderGenericMethodBundleManifestContent(manifest.owner, manifest.args, manifest.paramTypes,
                                                    manifest.callerSourceUnit, &specs);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Str text(reinterpret_cast<const char*>(data), size);
    const GenericMethodBundleManifest read = parseGenericMethodBundleManifestText(PATH, text);
    if (!read.valid) return 0;
    Str again;
    try {
        again = written(read);
    } catch (const std::exception&) {
        return 0;  // a value that would break out of its line is not written
    }
    const GenericMethodBundleManifest reread = parseGenericMethodBundleManifestText(PATH, again);
    require(reread.valid && reread.owner == read.owner && reread.args == read.args &&
            reread.paramTypes == read.paramTypes && reread.callerSourceUnit == read.callerSourceUnit);
    require(std::is_permutation(read.specs.begin(), read.specs.end(), reread.specs.begin(), reread.specs.end()));
    return 0;
}
