// Parsing and printing type texts, and the operations that ask the class loader about them.
#include "generics/typetext/type_text.h"

#include <exception>

#include "generics/typetext/trimming.h"
#include "host/class_loader.h"
#include "host/inference_services.h"

namespace vesk::compiler {

namespace {

bool isWordByte(char c) {
    const auto b = static_cast<unsigned char>(c);
    return (b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z') || (b >= '0' && b <= '9') || b == '_' || b > 127;
}

}  // namespace

Str trimCopy(Str text) {
    const std::string_view trimmed = trimView(text);
    if (trimmed.size() == text.size()) return text;
    return Str(trimmed);
}

Str quickTrimCopy(Str text) {
    const std::string_view trimmed = quickTrimView(text);
    if (trimmed.size() == text.size()) return text;
    return Str(trimmed);
}

ParsedGenericType parseGenericTypeText(const Str& text) {
    ParsedGenericType parsed;
    std::string_view t = trimView(text);
    while (t.ends_with("[]")) {
        parsed.arraySuffix += "[]";
        t.remove_suffix(2);
    }
    const std::size_t lt = t.find('<');
    const std::size_t gt = lt == std::string_view::npos ? lt : t.rfind('>');
    if (gt == std::string_view::npos || lt >= gt) {
        parsed.base = t;
        return parsed;
    }
    parsed.base = trimView(t.substr(0, lt));
    const std::string_view inner = t.substr(lt + 1, gt - lt - 1);
    const auto take = [&](std::size_t from, std::size_t to) {
        if (const std::string_view piece = trimView(inner.substr(from, to - from)); !piece.empty()) {
            parsed.args.emplace_back(piece);
        }
    };
    long parens = 0, angles = 0, brackets = 0;
    std::size_t start = 0;
    for (std::size_t i = 0; i < inner.size(); i++) {
        switch (inner[i]) {
            case '(': parens++; break;
            case ')': parens--; break;
            case '<': angles++; break;
            case '>':
                if (i == 0 || inner[i - 1] != '-') angles--;
                break;
            case '[': brackets++; break;
            case ']': brackets--; break;
            case ',':
                if (parens == 0 && angles == 0 && brackets == 0) {
                    take(start, i);
                    start = i + 1;
                }
                break;
            default: break;
        }
    }
    take(start, inner.size());
    return parsed;
}

bool hasGenericClauseText(const Str& text) {
    long parens = 0, brackets = 0, angles = 0;
    for (std::size_t i = text.find('<'); i < text.size(); i++) {
        switch (text[i]) {
            case '(': parens++; break;
            case ')':
                if (parens-- == 0) return false;
                break;
            case '[': brackets++; break;
            case ']':
                if (brackets-- == 0) return false;
                break;
            case '<': angles++; break;
            case '>':
                if (i > 0 && text[i - 1] == '-') break;
                if (angles == 0) return false;
                if (--angles == 0) return true;
                break;
            default: break;
        }
    }
    return false;
}

Str shortTypeNameLocal(const Str& name) {
    const std::size_t dot = name.rfind('.');
    return dot == Str::npos ? name : name.substr(dot + 1);
}

Str shortTypeNameGeneric(const Str& text) {
    std::string_view head = std::string_view(text).substr(0, text.find('<'));
    if (const std::size_t dot = head.rfind('.'); dot != std::string_view::npos) head.remove_prefix(dot + 1);
    return Str(head);
}

Str joinTypes(const StrVec& types) {
    Str joined;
    for (std::size_t i = 0; i < types.size(); i++) {
        if (i > 0) joined += ',';
        joined += types[i];
    }
    return joined;
}

Str resolveTypeNameOrKeep(const Str& type, const ContextPtr& context, const TokenPtr& token) {
    try {
        return ClassLoader::resolveTypeName(type, context, token);
    } catch (const std::exception&) {
        return type;
    }
}

Str canonicalTypeForBinding(const Str& type, const ContextPtr& context, const TokenPtr& token) {
    if (type.empty()) return {};
    Str resolved = resolveTypeNameOrKeep(type, context, token);
    try {
        return ClassLoader::canonicalBaseTypeName(resolved, context, token);
    } catch (const std::exception&) {
        return resolved;
    }
}

Str normalizeExplicitGenericSpecializationArg(const Str& arg, const ContextPtr& context, const TokenPtr& token) {
    if (arg.empty()) return arg;
    Str resolved = resolveTypeNameOrKeep(arg, context, token);
    if (resolved.empty()) return arg;
    try {
        resolved = classloader::normalizeBuiltinGenericArg(resolved);
        if (resolved.find('<') != Str::npos) return resolved;
        if (resolved.find(FLATTENED_TYPE_MARKER) != Str::npos) return resolved;
        StrVec names, args;
        if (ClassLoader::resolveGenericTypeBindings(resolved, context, token, names, args)) {
            Str completed = ClassLoader::resolveTypeName(resolved + "<>", context, token);
            if (!completed.empty() && completed != resolved) return completed;
        }
    } catch (const std::exception&) {
        // A raw class that its defaults cannot complete stays raw.
    }
    return resolved;
}

bool recoverStructuredGenericType(const Str& text, const ContextPtr&, const TokenPtr&, ParsedGenericType& parsed) {
    if (!parsed.args.empty() || !parsed.arraySuffix.empty()) {
        if (parsed.base.empty()) parsed.base = text;
        return true;
    }
    if (text.find(FLATTENED_TYPE_MARKER) == Str::npos) return false;
    Str base;
    StrVec args;
    if (!ClassLoader::resolveConcreteGenericBase(text, base)) return false;
    if (!ClassLoader::resolveConcreteGenericArgs(text, args) || args.empty()) return false;
    parsed.base = std::move(base);
    parsed.args = std::move(args);
    return true;
}

namespace {

// `appendName(name, out)` writes one name of the text.
template <class AppendName>
void appendByNames(std::string_view text, std::size_t limit, Str& out, const AppendName& appendName) {
    std::size_t i = 0;
    while (i < text.size() && out.size() <= limit) {
        if (!isWordByte(text[i])) {
            out += text[i++];
            continue;
        }
        std::size_t end = i;
        while (end < text.size() && (isWordByte(text[end]) || text[end] == '.')) end++;
        appendName(text.substr(i, end - i), out);
        i = end;
    }
}

void appendStructured(std::string_view text, int depth, Str& out) {
    appendByNames(text, Str::npos - 1, out, [depth](std::string_view name, Str& to) {
        Str base;
        StrVec args;
        if (depth < MAX_TYPE_TEXT_DEPTH && name.find(FLATTENED_TYPE_MARKER) != std::string_view::npos &&
            ClassLoader::resolveConcreteGenericBase(Str(name), base) &&
            ClassLoader::resolveConcreteGenericArgs(Str(name), args) && !args.empty()) {
            to += base;
            for (std::size_t a = 0; a < args.size(); a++) {
                to += a == 0 ? "<" : ", ";
                appendStructured(args[a], depth + 1, to);
            }
            to += '>';
        } else {
            to += name;
        }
    });
}

// As the host keeps it: a chain of requests that grows shows each of its types.
void appendShown(std::string_view name, Str& out) {
    const Str shown =
        name.find(FLATTENED_TYPE_MARKER) == std::string_view::npos ? Str() : classloader::shownGenericType(Str(name));
    out += shown.empty() ? name : std::string_view(shown);
}

}  // namespace

Str structuredTypeText(const Str& text) {
    if (text.find(FLATTENED_TYPE_MARKER) == Str::npos) return text;
    Str out;
    try {
        appendStructured(text, 0, out);
    } catch (const std::exception&) {
        return text;
    }
    return out;
}

Str shownTypeText(const Str& text, std::size_t limit) {
    if (text.find(FLATTENED_TYPE_MARKER) == Str::npos && text.size() <= limit) return text;
    Str out;
    try {
        appendByNames(text, limit, out, appendShown);
    } catch (const std::exception&) {
        out = text;
    }
    if (out.size() > limit) out.replace(limit, Str::npos, "...");
    return out;
}

}  // namespace vesk::compiler
