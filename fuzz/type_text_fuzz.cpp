// Feeds arbitrary texts to the operations on type texts.
// What must hold: no crash and no recursion without bound; a text taken apart keeps its parts when it is put together and
// taken apart again; a substitution of nothing changes separators at most; flattened names come back as the type they name.
#include <cstdint>
#include <cstdlib>

#include "generics/typetext/symbol_mangling.h"
#include "generics/typetext/type_text.h"
#include "semantics/compile_session.h"
#include "semantics/name_lookup.h"

namespace {

using namespace vesk::compiler;

void require(bool holds) {
    if (!holds) std::abort();
}

void checkParts(const Str& text) {
    const ParsedGenericType parsed = parseGenericTypeText(text);
    shortTypeNameLocal(text);
    shortTypeNameGeneric(text);
    hasGenericClauseText(text);
    mangleMethodName(text);
    if (parsed.args.empty()) return;
    const Str joined = parsed.base + "<" + joinTypes(parsed.args) + ">" + parsed.arraySuffix;
    require(parseGenericTypeText(joined) == parsed);
}

// Clauses come back with their separators in one form.
Str withoutSeparators(Str text) {
    std::erase_if(text, [](char c) { return c == ',' || c == ' ' || (c >= '\t' && c <= '\r'); });
    return text;
}

void checkSubstitution(const Str& text) {
    const StrVec names{"T", "U"}, types{"Int", "Map<String, T>"};
    substituteGenericTypeParamsLocal(text, names, types);
    substituteGenericIdentifierType(text, names, types);
    const Str replaced = substituteTypeThroughout(text, names, types);
    if (!mentionsTypeName(text, names)) require(withoutSeparators(replaced) == withoutSeparators(text));
}

void checkResolution(const Str& text) {
    static SessionOptions options = [] {
        SessionOptions made;
        made.cache = CacheMode::Off;
        return made;
    }();
    static CompileSession session(options);
    static ScopedCompileSession current(session);
    const Type* type = resolveType(text, session.rootContext());
    require(type != nullptr);
    if (!type->isConcrete) return;
    require(resolveType(type->text, session.rootContext()) == type);
    require(resolveType(type->structured, session.rootContext()) == type);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Str text(reinterpret_cast<const char*>(data), size);
    checkParts(text);
    checkSubstitution(text);
    checkResolution(text);
    return 0;
}
