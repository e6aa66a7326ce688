// Replacing type parameters in type texts.
// Two of the operations follow the structure that parseGenericTypeText sees and know nothing of "T[]" and "T?". The third,
// substituteTypeThroughout, works on words: a parameter is replaced wherever it stands as a word that is neither
// qualified ("a.T", "T.x") nor the base of a clause ("T<Int>"), so `((T) -> List<T?>)[]` with T = Int becomes
// `((Int) -> List<Int?>)[]` in one pass and without recursion.
#include "generics/typetext/trimming.h"
#include "generics/typetext/type_parameter_index.h"
#include "generics/typetext/type_text.h"
#include "host/inference_services.h"

namespace vesk::compiler {

namespace {

bool isWordByte(char c) {
    const auto b = static_cast<unsigned char>(c);
    return (b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z') || (b >= '0' && b <= '9') || b == '_' || b > 127;
}

// What the parameter that the text is stands for, null for other texts. Parameters beyond the arguments do not count.
const Str* argumentFor(std::string_view text, const TypeParameterIndex& params, const StrVec& args) {
    const std::size_t position = params.positionOf(text);
    return position < args.size() ? &args[position] : nullptr;
}

bool isFunctionType(const Str& text, FunctionTypeSignature& signature) {
    return text.find("->") != Str::npos && parseFunctionTypeName(text, signature);
}

Str substituteStructure(const Str& text, const TypeParameterIndex& params, const StrVec& args, int depth) {
    if (const Str* const arg = argumentFor(text, params, args)) return *arg;
    if (depth >= MAX_TYPE_TEXT_DEPTH) return text;
    if (FunctionTypeSignature signature; isFunctionType(text, signature)) {
        for (Str& type : signature.paramTypes) type = substituteStructure(type, params, args, depth + 1);
        signature.returnType = substituteStructure(signature.returnType, params, args, depth + 1);
        return formatFunctionTypeName(signature);
    }
    if (text.find('<') == Str::npos) return text;
    const ParsedGenericType parsed = parseGenericTypeText(text);
    if (parsed.base.empty() || parsed.args.empty()) return text;
    Str out = parsed.base;
    out += '<';
    for (std::size_t i = 0; i < parsed.args.size(); i++) {
        if (i > 0) out += ", ";
        out += substituteStructure(parsed.args[i], params, args, depth + 1);
    }
    out += '>';
    out += parsed.arraySuffix;
    return out;
}

// True for texts whose clauses and function types are nested further than anything here follows them.
bool isTooDeep(std::string_view text) {
    int angles = 0, parens = 0;
    for (std::size_t i = 0; i < text.size(); i++) {
        if (text[i] == '<') angles++;
        if (text[i] == '>' && i > 0 && text[i - 1] != '-' && angles > 0) angles--;
        if (text[i] == '(') parens++;
        if (text[i] == ')' && parens > 0) parens--;
        if (angles + parens > MAX_TYPE_TEXT_DEPTH) return true;
    }
    return false;
}

// True when the text ends with its clause, blanks and array pairs aside.
bool endsWithClause(std::string_view text) {
    const std::size_t gt = text.rfind('>');
    if (gt == std::string_view::npos) return true;
    for (std::size_t i = gt + 1; i < text.size(); i++) {
        if (isTypeTextBlank(text[i])) continue;
        if (text[i] == '[' && i + 1 < text.size() && text[i + 1] == ']') {
            i++;
            continue;
        }
        return false;
    }
    return true;
}

// True when a function type stands bare in the text: it needs parentheses before "[]" and "?".
bool isBareFunctionType(const Str& text) {
    FunctionTypeSignature ignored;
    return isFunctionType(text, ignored);
}

}  // namespace

Str substituteGenericTypeParamsLocal(const Str& text, const StrVec& params, const StrVec& args) {
    if (text.empty() || params.empty() || args.empty() || isTooDeep(text)) return text;
    return substituteStructure(text, TypeParameterIndex(params), args, 0);
}

Str substituteGenericIdentifierType(const Str& text, const StrVec& params, const StrVec& args) {
    if (text.empty() || params.empty() || args.empty() || isTooDeep(text)) return text;
    const TypeParameterIndex index(params);
    if (const Str* const arg = argumentFor(text, index, args)) return *arg;
    const bool whole = isBareFunctionType(text) || endsWithClause(text);
    if (Str result = substituteStructure(text, index, args, 0); whole && result != text) return result;
    long depth = 0;
    for (std::size_t i = text.find('<'); i < text.size(); i++) {
        if (text[i] == '<') depth++;
        if (text[i] == '>' && --depth == 0) {
            return substituteGenericTypeParamsLocal(text.substr(0, i + 1), params, args) + text.substr(i + 1);
        }
    }
    return text;
}

bool substituteTypeThroughout(std::string_view text, const TypeParameterIndex& params, const StrVec& args, Str& out) {
    if (params.empty() || args.empty()) return false;
    if (text.find_first_of("<([? \t\r\n") == std::string_view::npos) {  // most texts: a single name
        const Str* const arg = argumentFor(text, params, args);
        if (!arg || *arg == text) return false;
        out = *arg;
        return true;
    }
    Str result;
    result.reserve(text.size() + 16);
    long brackets = 0;  // open "<" and "(": inside them the spacing is made uniform
    for (std::size_t i = 0; i < text.size();) {
        const char c = text[i];
        if (isWordByte(c)) {
            std::size_t end = i;
            while (end < text.size() && isWordByte(text[end])) end++;
            const std::string_view word = text.substr(i, end - i);
            std::size_t next = end;
            while (next < text.size() && isTypeTextBlank(text[next])) next++;
            const char follower = next < text.size() ? text[next] : '\0';
            std::size_t before = i;
            while (before > 0 && isTypeTextBlank(text[before - 1])) before--;
            const bool qualified = (before > 0 && text[before - 1] == '.') || follower == '.';
            const Str* const found = qualified || follower == '<' ? nullptr : argumentFor(word, params, args);
            if (!found) {
                result += word;
            } else {
                std::string_view arg = *found;
                const bool suffixed = follower == '[' || follower == '?';
                if (suffixed && isBareFunctionType(*found)) {
                    result.append("(").append(arg).append(")");
                } else {
                    if (follower == '?' && arg.ends_with('?')) arg.remove_suffix(1);
                    result += arg;
                }
            }
            i = end;
            continue;
        }
        if (c == '-' && i + 1 < text.size() && text[i + 1] == '>') {
            while (!result.empty() && isTypeTextBlank(result.back())) result.pop_back();
            result += " -> ";
            i += 2;
            while (i < text.size() && isTypeTextBlank(text[i])) i++;
            continue;
        }
        if (c == '<' || c == '(') {
            brackets++;
            result += c;
            i++;
            while (i < text.size() && isTypeTextBlank(text[i])) i++;
            continue;
        }
        if (brackets > 0 && (c == '>' || c == ')' || c == ',')) {
            while (!result.empty() && isTypeTextBlank(result.back())) result.pop_back();
            result += c;
            i++;
            if (c == ',') {
                result += ' ';
                while (i < text.size() && isTypeTextBlank(text[i])) i++;
            } else {
                brackets--;
            }
            continue;
        }
        result += c;
        i++;
    }
    if (result == text) return false;
    out = std::move(result);
    return true;
}

Str substituteIndexedType(const Str& text, const TypeParameterIndex& params, const StrVec& args) {
    Str out;
    return substituteTypeThroughout(std::string_view(text), params, args, out) ? out : text;
}

Str substituteTypeThroughout(const Str& text, const StrVec& params, const StrVec& args) {
    return substituteIndexedType(text, TypeParameterIndex(params), args);
}

namespace {

template <class Contains>
bool anyWord(std::string_view text, Contains contains) {
    for (std::size_t i = 0; i < text.size();) {
        if (!isWordByte(text[i])) {
            i++;
            continue;
        }
        std::size_t end = i;
        while (end < text.size() && isWordByte(text[end])) end++;
        if (contains(text.substr(i, end - i))) return true;
        i = end;
    }
    return false;
}

}  // namespace

bool mentionsTypeName(std::string_view text, const TypeParameterIndex& names) {
    return anyWord(text, [&](std::string_view word) { return names.contains(word); });
}

std::vector<bool> mentionedTypeNames(const StrVec& texts, const TypeParameterIndex& names) {
    std::vector<bool> mentioned(names.size());
    for (const Str& text : texts) {
        anyWord(text, [&](std::string_view word) {
            if (const std::size_t position = names.positionOf(word); position != TypeParameterIndex::NONE)
                mentioned[position] = true;
            return false;
        });
    }
    return mentioned;
}

}  // namespace vesk::compiler
