// The manifest: the comment lines at the top of a generic method bundle that say which specializations it holds.
//
// Grammar, in this order; a value runs to the end of its line:
//     # @vesk-generic-method-bundle-version 7
//     # @vesk-generic-method-owner OWNER
//     # @vesk-generic-caller-source-unit PATH      only when the bundle belongs to one caller
//     # @vesk-generic-method-arg TYPE              one line per type argument
//     # @vesk-generic-method-param-type TYPE       one line per owner-level parameter type
//     then one block per specialization, from "-spec-begin" to "-spec-end", and an empty line.
// Blocks stand in the order in which they were asked for. Version 6 had the same lines; it is read as well, and becomes
// version 7 with the next write. The reader stops at the first line that is neither empty nor a
// comment, never throws for bad content, and drops unfinished blocks.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

#include "host/file_identity.h"
#include "host/model_records.h"

namespace vesk::compiler {

struct GenericMethodBundleManifest {
    struct MethodSpec {
        Str name;
        std::uint64_t overload = 1;
        bool isStatic = false, isVariadic = false;
        std::int32_t variadicIndex = -1;
        bool isNamedVariadic = false;
        std::int32_t namedVariadicIndex = -1;
        Str returnType, symbol;
        StrVec paramTypes;
        bool operator==(const MethodSpec&) const = default;
    };
    bool valid = false;
    Str path, owner, callerSourceUnit;
    StrVec args, paramTypes;
    std::vector<MethodSpec> specs;
};

// One specialization as it is generated into a bundle: the declaration, its node where there is one, and the signature.
struct BundleMethodSpecialization {
    GenericMethodInfo info;
    std::shared_ptr<MethodNode> declaration;
    Str symbol;
    StrVec paramNames, paramTypes;
    std::vector<bool> paramHasDefault;
    std::vector<ParameterPassingMode> passingModes;
    std::vector<TokenVec> defaultValueTokens;
    Str returnType;
    std::int32_t variadicIndex = -1, namedVariadicIndex = -1;
    StrVec typeArgs;
    Str sourcePath;
};

// `specs` may be null: the bare manifest.
Str renderGenericMethodBundleManifestContent(const Str& owner, const StrVec& args, const StrVec& paramTypes,
                                             const Str& callerSourceUnit,
                                             const std::vector<BundleMethodSpecialization>* specs);
GenericMethodBundleManifest readGenericMethodBundleManifest(const Str& path);
GenericMethodBundleManifest parseGenericMethodBundleManifestText(const Str& path, std::string_view text);
// The caller of a manifest as it is written, without taking all of it apart; "" where it has none or looks different.
std::string_view callerInGenericMethodBundleHead(std::string_view text);
// The manifest as it is now: the same object for this thread as long as the text stays the same.
std::shared_ptr<const GenericMethodBundleManifest> currentGenericMethodBundleManifest(const Str& path);
// The manifest of the text that was just found under a path (null for none), and the one of a text that a file has as long
// as it keeps this identity. This thread remembers them.
std::shared_ptr<const GenericMethodBundleManifest> genericMethodBundleManifestOf(const Str& path,
                                                                                 std::shared_ptr<const Str> text);
std::shared_ptr<const GenericMethodBundleManifest> genericMethodBundleManifestOf(const Str& path,
                                                                                 const FileIdentity& identity,
                                                                                 std::string_view text);

// The manifest of the unit that a call of the driver belongs to, of the text that its caller unit was found in.
std::shared_ptr<const GenericMethodBundleManifest> manifestOfUnitUnderWay(const Str& unit);

// Makes the bundle list exactly `specs`, under the caller that it already has; blocks that say the same as before stay word
// for word, also with lines that this version does not know. A bundle that lists something is never emptied. Throws runtime_error with the host's message when the file cannot be written.
void updateGenericMethodBundleManifestSpecs(const Str& path, const Str& owner, const StrVec& args,
                                            const StrVec& paramTypes,
                                            const std::vector<BundleMethodSpecialization>& specs);

// The same for one more specialization, whose symbol the bundle does not list, without taking the others apart. False, with
// nothing done, where the bundle is not as this thread left it, or is another's than these say.
bool appendGenericMethodBundleSpec(const Str& path, const Str& owner, const StrVec& args, const StrVec& paramTypes,
                                   const BundleMethodSpecialization& spec);

// What the blocks of a manifest say of their specializations: to be written again, not to be compiled.
std::vector<BundleMethodSpecialization> recordedGenericMethodBundleSpecs(const GenericMethodBundleManifest& manifest);
// Keeps the text in memory where the host does that, else makes the file hold it. Nothing is written where the file holds
// it already. False, and the host's message, on failure.
bool storeGenericMethodBundleText(const Str& path, const Str& text, Str& error);
// Whether a value stands in one line, and is read from there as it is: blanks at its ends would be lost.
bool fitsManifestLine(std::string_view value);

}  // namespace vesk::compiler
