// Writing and reading the names beside a bundle.
#include "generics/bundles/bundle_names.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "generics/source/source_text_cache.h"
#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/compiler_sources.h"

namespace vesk::compiler {

namespace {

constexpr std::string_view OUTER_HASH = "__T__h", INNER_HASH = "_l_h";
constexpr std::size_t HASH_OFFSET = 5;  // of the "h" and its digits in OUTER_HASH
constexpr std::size_t MAX_NAMES = 10'000;

using NameTable = std::map<Str, Str>;  // hashed name -> the type, one level deep

bool mentionsHash(const Str& text) { return text.find(OUTER_HASH) != Str::npos || text.find(INNER_HASH) != Str::npos; }

bool isNamePart(char c) {
    return c == '_' || c == '.' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The names that stand in a type text.
StrVec namesIn(const Str& text) {
    StrVec names;
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = start;
        while (end < text.size() && isNamePart(text[end])) end++;
        if (end > start) names.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return names;
}

// Follows every name down to its parts; hashed ones go into the table.
void addHashedNames(const Str& text, NameTable& table) {
    StrVec pending = namesIn(text);
    while (!pending.empty() && table.size() < MAX_NAMES) {
        const Str name = std::move(pending.back());
        pending.pop_back();
        if (!mentionsHash(name) || table.contains(name)) continue;
        Str base;
        StrVec args;
        if (!ClassLoader::resolveConcreteGenericBase(name, base) ||
            !ClassLoader::resolveConcreteGenericArgs(name, args))
            continue;
        if (name.find(OUTER_HASH) != Str::npos) table.emplace(name, base + "<" + joinTypes(args) + ">");
        for (const Str& arg : args) {
            StrVec inner = namesIn(arg);
            pending.insert(pending.end(), std::make_move_iterator(inner.begin()), std::make_move_iterator(inner.end()));
        }
    }
}

NameTable readTable(const Str& path) {
    NameTable table;
    Str text;
    if (!readSourceText(path, text)) return table;
    for (std::size_t start = 0; start < text.size() && table.size() < MAX_NAMES;) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::size_t tab = text.find('\t', start);
        if (tab < end && text.substr(start, tab - start).find(OUTER_HASH) != Str::npos)
            table.emplace(text.substr(start, tab - start), text.substr(tab + 1, end - tab - 1));
        start = end + 1;
    }
    return table;
}

bool mentionsHash(const GenericMethodBundleManifest& manifest) {
    const auto anyMentions = [](const StrVec& texts) {
        return std::any_of(texts.begin(), texts.end(), [](const Str& text) { return mentionsHash(text); });
    };
    return mentionsHash(manifest.owner) || anyMentions(manifest.args) ||
           std::any_of(manifest.specs.begin(), manifest.specs.end(), [&](const auto& block) {
               return mentionsHash(block.returnType) || anyMentions(block.paramTypes);
           });
}

// Empty where everything stays in memory: there the names are known.
NameTable hashedNamesOf(const Str& owner, const StrVec& args, const BundleMethodSpecialization& block) {
    NameTable table;
    if (Compiler::keepsGeneratedSourcesInMemory()) return table;
    addHashedNames(owner, table);
    addHashedNames(block.returnType, table);
    for (const Str& arg : args) addHashedNames(arg, table);
    for (const Str& type : block.paramTypes) addHashedNames(type, table);
    return table;
}

}  // namespace

Str genericMethodBundleNamesPath(const Str& bundlePath) {
    return std::filesystem::path(bundlePath).replace_extension(".names").string();
}

bool storeHashedTypeNames(const Str& bundlePath, const Str& owner, const StrVec& args,
                          const BundleMethodSpecialization& block, Str& error) {
    NameTable table = hashedNamesOf(owner, args, block);
    if (table.empty()) return true;
    const Str path = genericMethodBundleNamesPath(bundlePath);
    const NameTable present = readTable(path);
    table.insert(present.begin(), present.end());
    if (table == present) return true;
    Str text;
    for (const auto& [name, type] : table) text += name + "\t" + type + "\n";
    return Compiler::writeGeneratedSourceAtomically(path, text, error);
}

void recallHashedTypeNames(const GenericMethodBundleManifest& manifest, const ContextPtr& context,
                           const TokenPtr& token) {
    if (!mentionsHash(manifest)) return;
    NameTable table = readTable(genericMethodBundleNamesPath(manifest.path));
    // A type that stands on others of the table comes after them: the host remembers what it could not resolve.
    const auto standsOnOthers = [&](const Str& type) {
        const auto isPending = [&](const auto& entry) {
            return type.find(entry.first.substr(entry.first.find(OUTER_HASH) + HASH_OFFSET)) != Str::npos;
        };
        return std::any_of(table.begin(), table.end(), isPending);
    };
    for (bool changed = true; changed;) {
        changed = std::erase_if(table, [&](const auto& entry) {
                      if (standsOnOthers(entry.second)) return false;
                      resolveTypeNameOrKeep(entry.second, context, token);
                      return true;
                  }) > 0;
    }
}

}  // namespace vesk::compiler
