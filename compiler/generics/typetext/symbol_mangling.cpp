// Forming link-level names.
#include "generics/typetext/symbol_mangling.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <exception>

#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/context.h"

namespace vesk::compiler {

namespace {

constexpr std::uint64_t HASH_START = 1469598103934665603ULL;
constexpr std::uint64_t HASH_PRIME = 0x100000001b3ULL;
constexpr std::string_view OPERATOR_METHOD = "operator";

const std::unordered_map<Str, Str>& operatorWords() {
    static const std::unordered_map<Str, Str> words = {
        {"[]", "index"}, {"[]=", "index_eq"}, {"+", "plus"}, {"+=", "plus_eq"}, {"-", "minus"},  {"-=", "minus_eq"},
        {"*", "mul"},    {"*=", "mul_eq"},    {"/", "div"},  {"/=", "div_eq"},  {"//", "idiv"},  {"//=", "idiv_eq"},
        {"%", "mod"},    {"%=", "mod_eq"},    {"**", "pow"}, {"**=", "pow_eq"}, {"@", "matmul"}, {"@=", "matmul_eq"},
        {"==", "eq"},    {"!=", "ne"},        {"<", "lt"},   {"<=", "le"},      {">", "gt"},     {">=", "ge"},
        {"&&", "and"},   {"||", "or"},        {"!", "not"},  {"++", "inc"},     {"--", "dec"},
    };
    return words;
}

}  // namespace

Str mangleOperatorSymbol(const Str& op) {
    if (const auto found = operatorWords().find(op); found != operatorWords().end()) return found->second;
    Str word = op;
    for (char& c : word) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') c = '_';
    }
    return word.empty() ? "op" : word;
}

Str mangleMethodName(const Str& name) {
    if (!name.starts_with(OPERATOR_METHOD)) return name;
    return "operator_" + mangleOperatorSymbol(name.substr(OPERATOR_METHOD.size()));
}

std::uint64_t fnv1a64(const Str& text) {
    std::uint64_t hash = HASH_START;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * HASH_PRIME;
    return hash;
}

Str fnv1a64Hex(const Str& text) {
    char digits[16];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, fnv1a64(text), 16);
    return Str(digits, end);
}

Str packagePrefix(const ContextPtr& context, const Str& className) {
    if (!context) return {};
    Str package = context->getClassPackage(className);
    if (package.empty()) return {};
    std::replace(package.begin(), package.end(), '.', '_');
    return package + "_";
}

Str nativeMethodTargetSymbol(const ContextPtr& context, const Str& owner, const Str& method, std::size_t ordinal,
                             const TokenPtr& token) {
    Str base = resolveTypeNameOrKeep(owner, context, token);
    if (base.find(FLATTENED_TYPE_MARKER) != Str::npos) {
        if (Str unflattened; ClassLoader::resolveConcreteGenericBase(base, unflattened)) base = std::move(unflattened);
    }
    base.resize(std::min(base.size(), base.find('<')));
    Str symbol = packagePrefix(context, base) + shortTypeNameLocal(base) + "_" + mangleMethodName(method);
    if (ordinal > 1) symbol += "__dup" + std::to_string(ordinal);
    return symbol;
}

}  // namespace vesk::compiler
