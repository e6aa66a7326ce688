// Writing and reading manifests.
#include "generics/bundles/bundle_manifest.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

#include "generics/source/source_text_cache.h"
#include "generics/typetext/trimming.h"
#include "host/compiler_sources.h"
#include "host/source_manager.h"
#include "host/texts_in_memory.h"

namespace vesk::compiler {

namespace {

using Manifest = GenericMethodBundleManifest;
using MethodSpec = GenericMethodBundleManifest::MethodSpec;

// In the order in which they are written.
enum class Key : unsigned char {
    Version,
    Owner,
    Caller,
    Arg,
    ParamType,
    SpecBegin,
    Name,
    Overload,
    Static,
    Variadic,
    VariadicIndex,
    NamedVariadic,
    NamedVariadicIndex,
    Return,
    Symbol,
    SpecParamType,
    SpecEnd,
    None
};

// Each ends in a blank, and the value runs to the end of the line; those of a block's bounds are whole lines. None is the
// beginning of another.
constexpr std::array<std::string_view, static_cast<std::size_t>(Key::None)> KEYS{
    "# @vesk-generic-method-bundle-version ",
    "# @vesk-generic-method-owner ",
    "# @vesk-generic-caller-source-unit ",
    "# @vesk-generic-method-arg ",
    "# @vesk-generic-method-param-type ",
    "# @vesk-generic-method-spec-begin",
    "# @vesk-generic-method-name ",
    "# @vesk-generic-method-overload ",
    "# @vesk-generic-method-static ",
    "# @vesk-generic-method-variadic ",
    "# @vesk-generic-method-variadic-index ",
    "# @vesk-generic-method-named-variadic ",
    "# @vesk-generic-method-named-variadic-index ",
    "# @vesk-generic-method-return ",
    "# @vesk-generic-method-symbol ",
    "# @vesk-generic-method-spec-param-type ",
    "# @vesk-generic-method-spec-end",
};
constexpr std::string_view KEY_START = "# @vesk-generic-";

constexpr std::string_view textOf(Key key) { return KEYS[static_cast<std::size_t>(key)]; }

constexpr int WRITTEN_VERSION = 7;
constexpr int OLDEST_READ_VERSION = 6;

void writeLine(Str& out, Key key, std::string_view value) {
    out += textOf(key);
    out += value;
    out += '\n';
}

void writeFlag(Str& out, Key key, bool value) { writeLine(out, key, value ? "1" : "0"); }

void writeBlock(Str& out, const BundleMethodSpecialization& spec) {
    writeLine(out, Key::SpecBegin, "");
    writeLine(out, Key::Name, spec.info.name);
    writeLine(out, Key::Overload, std::to_string(spec.info.overloadIndex));
    writeFlag(out, Key::Static, spec.info.isStatic);
    writeFlag(out, Key::Variadic, spec.info.isVariadic);
    writeLine(out, Key::VariadicIndex, std::to_string(spec.variadicIndex));
    writeFlag(out, Key::NamedVariadic, spec.info.isNamedVariadic);
    writeLine(out, Key::NamedVariadicIndex, std::to_string(spec.namedVariadicIndex));
    writeLine(out, Key::Return, spec.returnType);
    writeLine(out, Key::Symbol, spec.symbol);
    for (const Str& type : spec.paramTypes) writeLine(out, Key::SpecParamType, type);
    writeLine(out, Key::SpecEnd, "");
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

class ManifestReader {
public:
    explicit ManifestReader(const Str& path, bool keepsTexts = false) : keepsTexts_(keepsTexts) {
        manifest_.path = path;
    }

    void read(std::string_view text) {
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t lineEnd = std::min(text.find('\n', start), text.size());
            const std::size_t next = std::min(lineEnd + 1, text.size());
            const std::string_view line = quickTrimView(text.substr(start, lineEnd - start));
            if (!line.empty()) {
                if (line.front() != '#') break;
                readLine(line);
                if (keepsTexts_) noteBlock(text, line, start, next);
            }
            start = next;
        }
        manifest_.valid = versionSeen_ && version_ >= OLDEST_READ_VERSION && version_ <= WRITTEN_VERSION &&
                          !manifest_.owner.empty() && !manifest_.args.empty();
    }

    Manifest& manifest() { return manifest_; }
    // Parallel to the manifest's specs, for a reader that keeps them: a block as it stands in the file, with every line that
    // means nothing to this version; "" where a line of the manifest's head stands among its own.
    const std::vector<std::string_view>& blockTexts() const { return blockTexts_; }

private:
    void readLine(std::string_view line) {
        const Key key = keyOf(line);
        if (key == Key::None || (key > Key::SpecBegin && key < Key::SpecEnd && !inBlock_)) return;
        const std::string_view value = quickTrimView(line.substr(textOf(key).size()));
        switch (key) {
            case Key::Version:
                version_ = parseInt(value);
                versionSeen_ = true;
                break;
            case Key::Owner: manifest_.owner = value; break;
            case Key::Caller: manifest_.callerSourceUnit = value; break;
            case Key::Arg: manifest_.args.emplace_back(value); break;
            case Key::ParamType: manifest_.paramTypes.emplace_back(value); break;
            case Key::SpecBegin: beginBlock(); break;
            case Key::Name: block_.name = value; break;
            case Key::Overload: block_.overload = parseOverload(value); break;
            case Key::Static: block_.isStatic = value == "1"; break;
            case Key::Variadic: block_.isVariadic = value == "1"; break;
            case Key::VariadicIndex: block_.variadicIndex = parseInt(value); break;
            case Key::NamedVariadic: block_.isNamedVariadic = value == "1"; break;
            case Key::NamedVariadicIndex: block_.namedVariadicIndex = parseInt(value); break;
            case Key::Return: block_.returnType = value; break;
            case Key::Symbol: block_.symbol = value; break;
            case Key::SpecParamType: block_.paramTypes.emplace_back(value); break;
            case Key::SpecEnd: endBlock(); break;
            case Key::None: break;
        }
    }

    // Lines mostly come as they are written: the key behind the last one is tried first.
    Key keyOf(std::string_view line) {
        if (!line.starts_with(KEY_START)) return Key::None;
        for (std::size_t tried = 0; tried < KEYS.size(); tried++, expected_ = (expected_ + 1) % KEYS.size()) {
            const Key key = static_cast<Key>(expected_);
            const bool isBound = key == Key::SpecBegin || key == Key::SpecEnd;
            if (isBound ? line != textOf(key) : !line.starts_with(textOf(key))) continue;
            expected_ = (expected_ + 1) % KEYS.size();
            return key;
        }
        return Key::None;
    }

    void noteBlock(std::string_view text, std::string_view line, std::size_t start, std::size_t next) {
        if (line == textOf(Key::SpecBegin)) {
            blockBegin_ = start;
            holdsHeadLine_ = false;
        } else if (const Key key = keyOf(line); key < Key::SpecBegin) {
            holdsHeadLine_ = true;
        }
        if (blockTexts_.size() == manifest_.specs.size()) return;
        blockTexts_.push_back(holdsHeadLine_ ? std::string_view() : text.substr(blockBegin_, next - blockBegin_));
    }

    void beginBlock() {
        block_ = {};
        inBlock_ = true;
    }

    void endBlock() {
        if (inBlock_ && !block_.name.empty() && !block_.symbol.empty()) manifest_.specs.push_back(std::move(block_));
        block_ = {};
        inBlock_ = false;
    }

    Manifest manifest_;
    MethodSpec block_;
    std::vector<std::string_view> blockTexts_;
    std::size_t expected_ = 0, blockBegin_ = 0;
    int version_ = -1;
    bool versionSeen_ = false, inBlock_ = false, holdsHeadLine_ = false;
    bool keepsTexts_;
};

}  // namespace

Str renderGenericMethodBundleManifestContent(const Str& owner, const StrVec& args, const StrVec& paramTypes,
                                             const Str& callerSourceUnit,
                                             const std::vector<BundleMethodSpecialization>* specs) {
    Str out;
    writeLine(out, Key::Version, std::to_string(WRITTEN_VERSION));
    writeLine(out, Key::Owner, owner);
    if (!callerSourceUnit.empty()) writeLine(out, Key::Caller, callerSourceUnit);
    for (const Str& arg : args) writeLine(out, Key::Arg, arg);
    for (const Str& type : paramTypes) writeLine(out, Key::ParamType, type);
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

std::string_view callerInGenericMethodBundleHead(std::string_view text) {
    std::string_view rest = text, caller;
    for (const Key key : {Key::Version, Key::Owner, Key::Caller}) {
        if (!rest.starts_with(textOf(key))) return {};
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        caller = quickTrimView(rest.substr(textOf(key).size(), end - textOf(key).size()));
        rest.remove_prefix(end == rest.size() ? end : end + 1);
    }
    return rest.find(textOf(Key::Caller)) == std::string_view::npos ? caller : std::string_view();
}

namespace {

// A text that was read, or the identity of a file whose text was known already.
struct KnownManifest {
    std::shared_ptr<const Str> text;
    std::optional<FileIdentity> identity;
    // Grows only while nobody else holds it.
    std::shared_ptr<GenericMethodBundleManifest> manifest;
    // The text is a head and blocks as this version writes them: a new block goes behind them and changes nothing else.
    bool isAsWritten = false;

    void take(const Str& path, std::string_view content) {
        manifest = std::make_shared<GenericMethodBundleManifest>(parseGenericMethodBundleManifestText(path, content));
        isAsWritten = false;
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

namespace {

MethodSpec blockOf(const BundleMethodSpecialization& spec) {
    return {spec.info.name,          spec.info.overloadIndex, spec.info.isStatic,
            spec.info.isVariadic,    spec.variadicIndex,      spec.info.isNamedVariadic,
            spec.namedVariadicIndex, spec.returnType,         spec.symbol,
            spec.paramTypes};
}

}  // namespace

void updateGenericMethodBundleManifestSpecs(const Str& path, const Str& owner, const StrVec& args,
                                            const StrVec& paramTypes,
                                            const std::vector<BundleMethodSpecialization>& specs) {
    const std::shared_ptr<const Str> present = sourceTextSnapshot(path);
    ManifestReader existing(path, true);
    if (present) existing.read(*present);
    const Manifest& manifest = existing.manifest();
    if (specs.empty() && !manifest.specs.empty()) return;

    Str text = renderGenericMethodBundleManifestContent(owner, args, paramTypes, manifest.callerSourceUnit, nullptr);
    text.pop_back();
    std::unordered_multimap<std::string_view, std::size_t> positions;  // by symbol
    for (std::size_t i = manifest.specs.size(); i-- > 0;) positions.emplace(manifest.specs[i].symbol, i);
    const auto positionOf = [&](const BundleMethodSpecialization& spec) {
        const MethodSpec wanted = blockOf(spec);
        std::size_t first = manifest.specs.size();
        const auto [begin, end] = positions.equal_range(wanted.symbol);
        for (auto at = begin; at != end; ++at)
            if (manifest.specs[at->second] == wanted) first = std::min(first, at->second);
        return first;
    };
    for (const BundleMethodSpecialization& spec : specs) {
        const std::size_t position = positionOf(spec);
        const std::string_view asItStands =
            position == manifest.specs.size() ? std::string_view() : existing.blockTexts()[position];
        if (asItStands.empty()) {
            writeBlock(text, spec);
            continue;
        }
        text += asItStands;
        if (text.back() != '\n') text += '\n';
    }
    text += '\n';
    Str error;
    if (!storeGenericMethodBundleText(path, text, error)) throw std::runtime_error(error);
    if (const std::shared_ptr<const Str> written = sourceTextSnapshot(path); written && *written == text) {
        genericMethodBundleManifestOf(path, written);
        gKnownManifests[path].isAsWritten = true;
    }
}

bool appendGenericMethodBundleSpec(const Str& path, const Str& owner, const StrVec& args, const StrVec& paramTypes,
                                   const BundleMethodSpecialization& spec) {
    const auto found = gKnownManifests.find(path);
    if (found == gKnownManifests.end() || !found->second.isAsWritten || found->second.identity) return false;
    KnownManifest& known = found->second;
    const bool isOfThese = known.manifest->valid && known.manifest->owner == owner && known.manifest->args == args &&
                           known.manifest->paramTypes == paramTypes;
    if (!isOfThese || sourceTextSnapshot(path) != known.text) return false;
    Str block;
    writeBlock(block, spec);
    ManifestReader added(path);
    added.read(block);
    block += '\n';
    const std::size_t kept = known.text->size() - 1;
    if (!growTextInMemory(path, known.text, kept, block)) {
        Str text;
        text.reserve(kept + block.size());
        text.append(*known.text, 0, kept);
        text += block;
        Str error;
        if (!storeGenericMethodBundleText(path, text, error)) throw std::runtime_error(error);
        const std::shared_ptr<const Str> written = sourceTextSnapshot(path);
        if (!written || *written != text) return true;  // what another has written since is read in its turn
        known.text = written;
    }
    if (known.manifest.use_count() > 1) known.manifest = std::make_shared<Manifest>(*known.manifest);
    for (MethodSpec& each : added.manifest().specs) known.manifest->specs.push_back(std::move(each));
    return true;
}

std::vector<BundleMethodSpecialization> recordedGenericMethodBundleSpecs(const GenericMethodBundleManifest& manifest) {
    std::vector<BundleMethodSpecialization> specs(manifest.specs.size());
    for (std::size_t i = 0; i < specs.size(); i++) {
        const MethodSpec& block = manifest.specs[i];
        BundleMethodSpecialization& spec = specs[i];
        spec.info.name = block.name;
        spec.info.overloadIndex = block.overload;
        spec.info.isStatic = block.isStatic;
        spec.info.isVariadic = block.isVariadic;
        spec.info.isNamedVariadic = block.isNamedVariadic;
        spec.variadicIndex = block.variadicIndex;
        spec.namedVariadicIndex = block.namedVariadicIndex;
        spec.returnType = block.returnType;
        spec.symbol = block.symbol;
        spec.paramTypes = block.paramTypes;
    }
    return specs;
}

bool storeGenericMethodBundleText(const Str& path, const Str& text, Str& error) {
    if (Compiler::storeGeneratedSourceInMemory(path, text)) return true;
    if (const std::shared_ptr<const Str> present = sourceTextSnapshot(path); present && *present == text) return true;
    return Compiler::writeGeneratedSourceAtomically(path, text, error);
}

bool fitsManifestLine(std::string_view value) {
    return value.find('\n') == std::string_view::npos && quickTrimView(value) == value;
}

}  // namespace vesk::compiler
