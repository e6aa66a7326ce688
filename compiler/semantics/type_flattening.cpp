// Writing and reading the argument part of flattened names; see the header for its grammar.
#include "semantics/type_flattening.h"

#include <cstdint>

#include "generics/typetext/content_hash.h"
#include "semantics/declarations.h"

namespace vesk::compiler {

namespace {

void appendEncodedName(std::string& out, std::string_view name) {
    for (char c : name) {
        if (c == '_')
            out += "_u";
        else if (c == '.')
            out += "_d";
        else
            out += c;
    }
}

// Two independent 64-bit hashes: different argument lists never share a name in practice.
std::string hashDigits(std::string_view text) {
    static const char DIGITS[] = "0123456789abcdef";
    std::string digits;
    for (std::uint64_t seed : {0U, 1U}) {
        const std::uint64_t value = contentHash(text, seed);
        for (int shift = 60; shift >= 0; shift -= 4) digits += DIGITS[(value >> shift) & 15];
    }
    return digits;
}

constexpr std::size_t HASH_DIGITS = 32;

void appendEncodedType(std::string& out, const Type& type) {
    switch (type.kind) {
        case TypeKind::Array:
        case TypeKind::Nullable: {
            const Type& inner = *type.arguments[0];
            bool parentheses = inner.kind == TypeKind::Function;
            if (parentheses) out += "_p";
            appendEncodedType(out, inner);
            if (parentheses) out += "_q";
            out += type.kind == TypeKind::Array ? "_a" : "_n";
            return;
        }
        case TypeKind::Function:
            out += "_p";
            for (std::size_t i = 0; i < type.arguments.size(); i++) {
                if (i) out += "_c";
                appendEncodedType(out, *type.arguments[i]);
            }
            out += "_q_r";
            appendEncodedType(out, *type.result);
            return;
        case TypeKind::Class:
            if (!type.arguments.empty()) {
                // An inner instantiation's own name already holds its arguments, hashed where they were too long.
                std::string_view text = type.text;
                std::size_t marker = text.find(FLATTENED_MARKER);
                appendEncodedName(out, text.substr(0, marker));
                out += "_l";
                out += text.substr(marker + FLATTENED_MARKER.size());
                out += "_g";
                return;
            }
            [[fallthrough]];
        default: appendEncodedName(out, type.text);
    }
}

}  // namespace

std::string encodeTypeForName(const Type& type) {
    std::string out;
    appendEncodedType(out, type);
    return out;
}

std::string flattenedName(std::string_view qualifiedName, const std::vector<const Type*>& arguments) {
    std::string part;
    for (std::size_t i = 0; i < arguments.size(); i++) {
        if (i) part += "_c";
        appendEncodedType(part, *arguments[i]);
    }
    std::string name(qualifiedName);
    name += FLATTENED_MARKER;
    if (name.size() + part.size() > MAX_FLATTENED_NAME) part = "_h" + hashDigits(part);
    return name + part;
}

std::optional<std::string> structuredTextOfFlattened(std::string_view text) {
    std::size_t marker = text.find(FLATTENED_MARKER);
    if (marker == 0 || marker == std::string_view::npos) return std::nullopt;
    std::string out(text.substr(0, marker));
    std::string_view part = text.substr(marker + FLATTENED_MARKER.size());
    if (part.empty() || part.substr(0, 2) == "_h") return std::nullopt;
    out += '<';
    std::size_t depth = 0;
    for (std::size_t i = 0; i < part.size(); i++) {
        char c = part[i];
        if (c != '_') {
            bool isNameCharacter = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
            if (!isNameCharacter) return std::nullopt;
            out += c;
            continue;
        }
        if (++i == part.size()) return std::nullopt;
        switch (part[i]) {
            case 'u': out += '_'; break;
            case 'd': out += '.'; break;
            case 'c': out += ','; break;
            case 'l':
                if (part.substr(i + 1, 2) == "_h") {
                    // An inner hashed instantiation: its own flattened name stands for it.
                    std::string_view digits = part.substr(i + 3, HASH_DIGITS);
                    if (digits.size() != HASH_DIGITS || part.substr(i + 3 + HASH_DIGITS, 2) != "_g")
                        return std::nullopt;
                    out += FLATTENED_MARKER;
                    out += "_h";
                    out += digits;
                    i += 2 + HASH_DIGITS + 2;
                    break;
                }
                depth++;
                out += '<';
                break;
            case 'g':
                if (depth-- == 0) return std::nullopt;
                out += '>';
                break;
            case 'a': out += "[]"; break;
            case 'n': out += '?'; break;
            case 'p': out += '('; break;
            case 'q': out += ')'; break;
            case 'r': out += "->"; break;
            default: return std::nullopt;
        }
    }
    if (depth != 0) return std::nullopt;
    out += '>';
    return out;
}

}  // namespace vesk::compiler
