// How the arguments of a call meet the parameters of a declaration, and the texts of function types.
#include <algorithm>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "generics/typetext/trimming.h"
#include "host/ast_nodes.h"
#include "host/inference_services.h"

namespace vesk::compiler {

namespace {

constexpr int MAX_FUNCTION_TYPE_DEPTH = 256;

// One left-to-right look at `(A, B) -> R`: the commas of the list and its closing parenthesis.
struct ParameterListScan {
    std::vector<std::size_t> commas;
    std::size_t close = 0;
};

std::optional<ParameterListScan> scanParameterList(const Str& text, std::size_t open) {
    ParameterListScan scan;
    int parentheses = 0, angles = 0, brackets = 0, deepest = 0;
    for (std::size_t i = open; i < text.size(); i++) {
        switch (text[i]) {
            case '(': parentheses++; break;
            case '[': brackets++; break;
            case ']': brackets--; break;
            case '<': angles++; break;
            case '>':
                if (text[i - 1] != '-') angles--;
                break;
            case ')':
                if (--parentheses > 0) break;
                if (angles != 0 || brackets != 0) return std::nullopt;
                scan.close = i;
                return scan;
            case ',':
                if (parentheses == 1 && angles == 0 && brackets == 0) scan.commas.push_back(i);
                break;
            default: break;
        }
        if (angles < 0 || brackets < 0) return std::nullopt;
        deepest = std::max(deepest, parentheses + angles + brackets);
        if (deepest > MAX_FUNCTION_TYPE_DEPTH) return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace

std::vector<CallArgInfo> collectCallArgInfos(const NodeVec& args, const TokenPtr&) {
    std::vector<CallArgInfo> infos;
    infos.reserve(args.size());
    for (const NodePtr& arg : args) {
        if (arg && arg->getKind() == NodeKind::NamedArgument) {
            const auto& named = static_cast<const NamedArgumentNode&>(*arg);
            infos.push_back({named.value(), named.getName()});
        } else {
            infos.push_back({arg, {}});
        }
    }
    return infos;
}

StrVec collectCallArgNames(const std::vector<CallArgInfo>& args) {
    StrVec names;
    names.reserve(args.size());
    for (const CallArgInfo& arg : args) names.push_back(arg.name);
    return names;
}

bool bindCallArgInfos(const std::vector<CallArgInfo>& args, const StrVec& paramNames, std::size_t paramCount,
                      bool variadic, int variadicIndex, bool namedVariadic, int namedVariadicIndex,
                      CallArgumentBinding& out) {
    out = {};
    out.paramToArg.assign(paramCount, -1);
    out.argToParam.assign(args.size(), -1);
    auto isCollector = [&](std::size_t parameter) {
        int index = static_cast<int>(parameter);
        return (variadic && index == variadicIndex) || (namedVariadic && index == namedVariadicIndex);
    };
    std::size_t next = 0;  // the next parameter for a positional argument
    bool sawNamed = false;
    // Made for the first named argument: calls may name thousands.
    std::unordered_map<std::string_view, std::size_t> parameters;
    std::unordered_set<std::string_view> collectedNames;
    for (std::size_t i = 0; i < args.size(); i++) {
        int argument = static_cast<int>(i);
        if (args[i].name.empty()) {
            if (sawNamed) return false;
            // Parameters behind the collector are reached by name only.
            if (variadic && variadicIndex >= 0 && static_cast<std::size_t>(variadicIndex) == next) {
                out.variadicArgs.push_back(argument);
                out.argToParam[i] = variadicIndex;
                continue;
            }
            if (next >= paramCount || isCollector(next)) return false;
            out.paramToArg[next] = argument;
            out.argToParam[i] = static_cast<int>(next++);
            continue;
        }
        if (!sawNamed)
            for (std::size_t each = 0; each < std::min(paramCount, paramNames.size()); each++)
                if (!isCollector(each)) parameters.try_emplace(paramNames[each], each);
        sawNamed = true;
        if (auto named = parameters.find(args[i].name); named != parameters.end()) {
            const std::size_t parameter = named->second;
            if (out.paramToArg[parameter] != -1) return false;
            out.paramToArg[parameter] = argument;
            out.argToParam[i] = static_cast<int>(parameter);
        } else if (namedVariadic && namedVariadicIndex >= 0) {
            if (!collectedNames.insert(args[i].name).second) return false;
            out.namedVariadicArgs.push_back(argument);
            out.argToParam[i] = namedVariadicIndex;
        } else {
            return false;
        }
    }
    return true;
}

bool parseFunctionTypeName(const Str& text, FunctionTypeSignature& out) {
    std::size_t open = 0;
    while (open < text.size() && isTypeTextBlank(text[open])) open++;
    const std::string_view whole = text;
    if (open == text.size() || text[open] != '(') return false;
    auto scan = scanParameterList(text, open);
    if (!scan) return false;
    std::size_t arrow = scan->close + 1;
    while (arrow < text.size() && isTypeTextBlank(text[arrow])) arrow++;
    if (text.compare(arrow, 2, "->") != 0) return false;
    FunctionTypeSignature signature;
    signature.returnType = trimView(whole.substr(arrow + 2));
    if (signature.returnType.empty()) return false;
    std::size_t start = open + 1;
    bool isEmptyList = trimView(whole.substr(start, scan->close - start)).empty();
    if (!isEmptyList) {
        scan->commas.push_back(scan->close);
        for (std::size_t comma : scan->commas) {
            signature.paramTypes.emplace_back(trimView(whole.substr(start, comma - start)));
            if (signature.paramTypes.back().empty()) return false;
            start = comma + 1;
        }
    }
    out = std::move(signature);
    return true;
}

Str formatFunctionTypeName(const FunctionTypeSignature& signature) {
    Str text = "(";
    for (std::size_t i = 0; i < signature.paramTypes.size(); i++) {
        if (i) text += ", ";
        text += signature.paramTypes[i];
    }
    return text + ") -> " + signature.returnType;
}

}  // namespace vesk::compiler
