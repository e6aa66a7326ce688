// Writing and reading manifests.
#include "generics/bundles/bundle_manifest.h"

#include <optional>
#include <stdexcept>

#include "generics/source/source_text_cache.h"
#include "host/compiler_sources.h"
#include "host/source_manager.h"

namespace vesk::compiler {

namespace {

using Manifest = GenericMethodBundleManifest;
using MethodSpec = GenericMethodBundleManifest::MethodSpec;

constexpr std::string_view VERSION = "# @vesk-generic-method-bundle-version ";
constexpr std::string_view OWNER = "# @vesk-generic-method-owner ";
constexpr std::string_view CALLER = "# @vesk-generic-caller-source-unit ";
constexpr std::string_view ARG = "# @vesk-generic-method-arg ";
constexpr std::string_view PARAM_TYPE = "# @vesk-generic-method-param-type ";
constexpr std::string_view SPEC_BEGIN = "# @vesk-generic-method-spec-begin";
constexpr std::string_view SPEC_END = "# @vesk-generic-method-spec-end";
constexpr std::string_view NAME = "# @vesk-generic-method-name ";
constexpr std::string_view OVERLOAD = "# @vesk-generic-method-overload ";
constexpr std::string_view STATIC = "# @vesk-generic-method-static ";
constexpr std::string_view VARIADIC = "# @vesk-generic-method-variadic ";
constexpr std::string_view VARIADIC_INDEX = "# @vesk-generic-method-variadic-index ";
constexpr std::string_view NAMED_VARIADIC = "# @vesk-generic-method-named-variadic ";
constexpr std::string_view NAMED_VARIADIC_INDEX = "# @vesk-generic-method-named-variadic-index ";
constexpr std::string_view RETURN = "# @vesk-generic-method-return ";
constexpr std::string_view SYMBOL = "# @vesk-generic-method-symbol ";
constexpr std::string_view SPEC_PARAM_TYPE = "# @vesk-generic-method-spec-param-type ";
constexpr std::string_view KEY_START = "# @vesk-generic-";

constexpr int WRITTEN_VERSION = 7;
constexpr int OLDEST_READ_VERSION = 6;

void writeLine(Str& out, std::string_view key, std::string_view value) {
    out += key;
    out += value;
    out += '\n';
}

void writeFlag(Str& out, std::string_view key, bool value) { writeLine(out, key, value ? "1" : "0"); }

void writeBlock(Str& out, const BundleMethodSpecialization& spec) {
    writeLine(out, SPEC_BEGIN, "");
    writeLine(out, NAME, spec.info.name);
    writeLine(out, OVERLOAD, std::to_string(spec.info.overloadIndex));
    writeFlag(out, STATIC, spec.info.isStatic);
    writeFlag(out, VARIADIC, spec.info.isVariadic);
    writeLine(out, VARIADIC_INDEX, std::to_string(spec.variadicIndex));
    writeFlag(out, NAMED_VARIADIC, spec.info.isNamedVariadic);
    writeLine(out, NAMED_VARIADIC_INDEX, std::to_string(spec.namedVariadicIndex));
    writeLine(out, RETURN, spec.returnType);
    writeLine(out, SYMBOL, spec.symbol);
    for (const Str& type : spec.paramTypes) writeLine(out, SPEC_PARAM_TYPE, type);
    writeLine(out, SPEC_END, "");
}

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

// The parse functions take the leading number of a value, as the library's conversions do: "7abc" is 7.
int parseInt(std::string_view value) {
    try {
        return std::stoi(Str(value));
    } catch (const std::invalid_argument&) {
        return -1;
    } catch (const std::out_of_range&) {
        return -1;
    }
}

std::uint64_t parseOverload(std::string_view value) {
    try {
        return std::stoull(Str(value));
    } catch (const std::invalid_argument&) {
        return 1;
    } catch (const std::out_of_range&) {
        return 1;
    }
}

// Where one completed block stands in the text: from its begin line to behind its end line.
struct BlockPlace {
    std::size_t begin = 0, end = 0;
};

class ManifestReader {
public:
    explicit ManifestReader(const Str& path) { manifest_.path = path; }

    void read(std::string_view text) {
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t lineEnd = std::min(text.find('\n', start), text.size());
            const std::size_t next = std::min(lineEnd + 1, text.size());
            const std::string_view line = trimmed(text.substr(start, lineEnd - start));
            if (!line.empty()) {
                if (line.front() != '#') break;
                if (readLine(line, start, next)) keysEnd_ = next;
            }
            start = next;
        }
        manifest_.valid = versionSeen_ && version_ >= OLDEST_READ_VERSION && version_ <= WRITTEN_VERSION &&
                          !manifest_.owner.empty() && !manifest_.args.empty();
    }

    Manifest& manifest() { return manifest_; }
    // Parallel to the manifest's specs.
    const std::vector<BlockPlace>& places() const { return places_; }
    // Behind the last line that carries a key.
    std::size_t keysEnd() const { return keysEnd_; }

private:
    bool readLine(std::string_view line, std::size_t start, std::size_t next) {
        if (!line.starts_with(KEY_START)) return false;
        return readHeaderKey(line) || readBlockBound(line, start, next) || (inBlock_ && readBlockKey(line));
    }

    static bool take(std::string_view line, std::string_view key, std::string_view& value) {
        if (!line.starts_with(key)) return false;
        value = trimmed(line.substr(key.size()));
        return true;
    }

    bool readHeaderKey(std::string_view line) {
        std::string_view value;
        if (take(line, VERSION, value)) {
            version_ = parseInt(value);
            versionSeen_ = true;
        } else if (take(line, OWNER, value)) {
            manifest_.owner = value;
        } else if (take(line, CALLER, value)) {
            manifest_.callerSourceUnit = value;
        } else if (take(line, ARG, value)) {
            manifest_.args.emplace_back(value);
        } else if (take(line, PARAM_TYPE, value)) {
            manifest_.paramTypes.emplace_back(value);
        } else {
            return false;
        }
        return true;
    }

    bool readBlockBound(std::string_view line, std::size_t start, std::size_t next) {
        if (line == SPEC_BEGIN) {
            block_ = {};
            blockBegin_ = start;
            inBlock_ = true;
            return true;
        }
        if (line != SPEC_END) return false;
        if (inBlock_ && !block_.name.empty() && !block_.symbol.empty()) {
            manifest_.specs.push_back(std::move(block_));
            places_.push_back({blockBegin_, next});
        }
        block_ = {};
        inBlock_ = false;
        return true;
    }

    bool readBlockKey(std::string_view line) {
        std::string_view value;
        if (take(line, NAME, value))
            block_.name = value;
        else if (take(line, OVERLOAD, value))
            block_.overload = parseOverload(value);
        else if (take(line, STATIC, value))
            block_.isStatic = value == "1";
        else if (take(line, VARIADIC, value))
            block_.isVariadic = value == "1";
        else if (take(line, VARIADIC_INDEX, value))
            block_.variadicIndex = parseInt(value);
        else if (take(line, NAMED_VARIADIC, value))
            block_.isNamedVariadic = value == "1";
        else if (take(line, NAMED_VARIADIC_INDEX, value))
            block_.namedVariadicIndex = parseInt(value);
        else if (take(line, RETURN, value))
            block_.returnType = value;
        else if (take(line, SYMBOL, value))
            block_.symbol = value;
        else if (take(line, SPEC_PARAM_TYPE, value))
            block_.paramTypes.emplace_back(value);
        else
            return false;
        return true;
    }

    Manifest manifest_;
    MethodSpec block_;
    std::vector<BlockPlace> places_;
    std::size_t blockBegin_ = 0, keysEnd_ = 0;
    int version_ = -1;
    bool versionSeen_ = false, inBlock_ = false;
};

bool comesBefore(const BundleMethodSpecialization& added, const MethodSpec& present) {
    if (added.info.name != present.name) return added.info.name < present.name;
    if (added.info.overloadIndex != present.overload) return added.info.overloadIndex < present.overload;
    return added.symbol < present.symbol;
}

}  // namespace

Str renderGenericMethodBundleManifestContent(const Str& owner, const StrVec& args, const StrVec& paramTypes,
                                             const Str& callerSourceUnit,
                                             const std::vector<BundleMethodSpecialization>* specs) {
    Str out;
    writeLine(out, VERSION, std::to_string(WRITTEN_VERSION));
    writeLine(out, OWNER, owner);
    if (!callerSourceUnit.empty()) writeLine(out, CALLER, callerSourceUnit);
    for (const Str& arg : args) writeLine(out, ARG, arg);
    for (const Str& type : paramTypes) writeLine(out, PARAM_TYPE, type);
    if (specs) {
        for (const BundleMethodSpecialization& spec : *specs) writeBlock(out, spec);
    }
    out += '\n';
    return out;
}

GenericMethodBundleManifest parseGenericMethodBundleManifestText(const Str& path, std::string_view text) {
    ManifestReader reader(path);
    reader.read(text);
    return std::move(reader.manifest());
}

namespace {

// A text that was read, or the identity of a file whose text was known already.
struct KnownManifest {
    std::shared_ptr<const Str> text;
    std::optional<FileIdentity> identity;
    std::shared_ptr<const GenericMethodBundleManifest> manifest;

    void take(const Str& path, std::string_view content) {
        manifest =
            std::make_shared<const GenericMethodBundleManifest>(parseGenericMethodBundleManifestText(path, content));
    }
};
thread_local std::unordered_map<Str, KnownManifest> gKnownManifests;

}  // namespace

std::shared_ptr<const GenericMethodBundleManifest> genericMethodBundleManifestOf(const Str& path,
                                                                                 std::shared_ptr<const Str> text) {
    KnownManifest& known = gKnownManifests[path];
    if (!known.manifest || known.identity || known.text != text) {
        known.take(path, text ? std::string_view(*text) : std::string_view());
        known.text = std::move(text);
        known.identity.reset();
    }
    return known.manifest;
}

std::shared_ptr<const GenericMethodBundleManifest> genericMethodBundleManifestOf(const Str& path,
                                                                                 const FileIdentity& identity,
                                                                                 std::string_view text) {
    KnownManifest& known = gKnownManifests[path];
    if (known.identity != identity) {
        known.take(path, text);
        known.text.reset();
        known.identity = identity;
    }
    return known.manifest;
}

std::shared_ptr<const GenericMethodBundleManifest> currentGenericMethodBundleManifest(const Str& path) {
    const auto known = gKnownManifests.find(path);
    if (known != gKnownManifests.end() && known->second.identity && !Compiler::virtualSourceContents(path) &&
        identityOfFile(path.c_str()) == known->second.identity) {
        return known->second.manifest;
    }
    return genericMethodBundleManifestOf(path, SourceManager::contents(path));
}

GenericMethodBundleManifest readGenericMethodBundleManifest(const Str& path) {
    return *currentGenericMethodBundleManifest(path);
}

void updateGenericMethodBundleManifestSpecs(const Str& path, const Str& owner, const StrVec& args,
                                            const StrVec& paramTypes,
                                            const std::vector<BundleMethodSpecialization>& specs) {
    const GenericMethodBundleManifest existing = readGenericMethodBundleManifest(path);
    if (specs.empty() && !existing.specs.empty()) return;
    const Str text =
        renderGenericMethodBundleManifestContent(owner, args, paramTypes, existing.callerSourceUnit, &specs);
    Str error;
    if (!storeGenericMethodBundleText(path, text, error)) throw std::runtime_error(error);
}

Str insertGenericMethodBundleSpec(std::string_view manifestText, const BundleMethodSpecialization& added) {
    ManifestReader reader("");
    reader.read(manifestText);
    const auto& specs = reader.manifest().specs;
    for (std::size_t i = 0; i < specs.size(); i++) {
        if (specs[i].symbol != added.symbol) continue;
        // What stood for this symbol gives way.
        Str without(manifestText.substr(0, reader.places()[i].begin));
        without += manifestText.substr(reader.places()[i].end);
        return insertGenericMethodBundleSpec(without, added);
    }
    std::size_t place = reader.keysEnd();
    for (std::size_t i = 0; i < specs.size(); i++) {
        if (!comesBefore(added, specs[i])) continue;
        place = reader.places()[i].begin;
        break;
    }
    Str out;
    out.reserve(manifestText.size() + 1024);
    out += manifestText.substr(0, place);
    if (!out.empty() && out.back() != '\n') out += '\n';
    writeBlock(out, added);
    out += manifestText.substr(place);
    return out;
}

bool storeGenericMethodBundleText(const Str& path, const Str& text, Str& error) {
    if (Compiler::storeGeneratedSourceInMemory(path, text)) return true;
    if (const std::shared_ptr<const Str> present = sourceTextSnapshot(path); present && *present == text) return true;
    return Compiler::writeGeneratedSourceAtomically(path, text, error);
}

bool containsLineBreak(std::string_view value) { return value.find_first_of("\n\r") != std::string_view::npos; }

}  // namespace vesk::compiler
