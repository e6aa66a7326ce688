// Building the errors and their notes.
#include "generics/method_diagnostics.h"

#include <algorithm>
#include <set>
#include <utility>

#include "generics/errors.h"
#include "generics/method_lineage.h"
#include "generics/source/source_text_cache.h"
#include "generics/typetext/edit_distance.h"
#include "generics/typetext/type_text.h"
#include "host/ast_nodes.h"
#include "host/context.h"
#include "host/tokens.h"

namespace vesk::compiler {

namespace {

constexpr std::size_t MAX_NOTES = 10;

CompilerException errorOfKind(const TokenPtr& token, Str message, CompilerErrorKind kind) {
    return CompilerException(token, std::move(message), kind, "", "");
}

StrVec nearMatches(const Str& wanted, const StrVec& methods) {
    std::set<std::pair<std::size_t, Str>> near;
    const std::size_t most = std::max<std::size_t>(1, wanted.size() / 3);
    for (const Str& name : methods) {
        if (name == wanted) continue;
        if (const std::size_t distance = editDistance(wanted, name, most); distance <= most)
            near.emplace(distance, name);
    }
    StrVec names;
    for (const auto& entry : near) {
        if (names.size() < 3) names.push_back(entry.second);
    }
    return names;
}

void noteMore(CompilerException& error, std::size_t count) {
    if (count > MAX_NOTES) error.addNote({"and " + std::to_string(count - MAX_NOTES) + " more", nullptr});
}

Str quotedList(const StrVec& names) {
    Str text;
    for (std::size_t i = 0; i < names.size(); i++) {
        if (i > 0) text += i + 1 == names.size() ? " or " : ", ";
        text += "'" + names[i] + "'";
    }
    return text;
}

Str parameterName(const GenericMethodInfo& info, std::size_t position) {
    if (position < info.paramNames.size() && !info.paramNames[position].empty())
        return "'" + info.paramNames[position] + "'";
    return std::to_string(position + 1);
}

TokenPtr tokenAt(const TokenVec& tokens, std::size_t position) {
    return position < tokens.size() ? tokens[position] : nullptr;
}

bool isWordCharacter(char c) {
    return c == '_' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Column (from 1) of a name as a word of its own behind `from`, 0 when it is not there.
int columnOfWord(const Str& line, const Str& word, std::size_t from) {
    for (std::size_t at = line.find(word, from); at != Str::npos; at = line.find(word, at + 1)) {
        const bool startsWord = at == 0 || !isWordCharacter(line[at - 1]);
        const std::size_t end = at + word.size();
        if (startsWord && (end >= line.size() || !isWordCharacter(line[end]))) return static_cast<int>(at) + 1;
    }
    return 0;
}

}  // namespace

Str describeGenericMethod(const GenericMethodInfo& info) {
    Str text = info.name;
    for (std::size_t i = 0; i < info.typeParams.size(); i++) {
        const GenericTypeParamInfo& param = info.typeParams[i];
        text += (i == 0 ? "<" : ", ") + param.name;
        if (!param.constraint.empty()) text += ": " + structuredTypeText(param.constraint);
        if (!param.defaultType.empty()) text += " = " + structuredTypeText(param.defaultType);
    }
    if (!info.typeParams.empty()) text += ">";
    text += "(";
    for (std::size_t i = 0; i < info.paramTypes.size(); i++) {
        if (i > 0) text += ", ";
        const bool isVariadic = info.isVariadic && info.variadicIndex == static_cast<int>(i);
        const bool isNamedVariadic = info.isNamedVariadic && info.namedVariadicIndex == static_cast<int>(i);
        if (isVariadic || isNamedVariadic) text += isVariadic ? "*" : "**";
        if (i < info.paramNames.size() && !info.paramNames[i].empty()) text += info.paramNames[i] + ": ";
        Str type = structuredTypeText(info.paramTypes[i]);
        // As it is written: the type of what is collected.
        if (isVariadic || isNamedVariadic) {
            const StrVec args = parseGenericTypeText(type).args;
            if (!args.empty()) type = args.back();
        }
        text += type;
    }
    text += ")";
    if (!info.returnType.empty()) text += " -> " + structuredTypeText(info.returnType);
    return text;
}

TokenPtr placeOfGenericMethod(const GenericMethodInfo& info, const Str& typeParam) {
    if (info.sourceFile.empty() || info.declarationLine < 1) return nullptr;
    int column = 1;
    const StrVec& lines = readSourceLinesCached(info.sourceFile);
    if (const std::size_t index = static_cast<std::size_t>(info.declarationLine) - 1; index < lines.size()) {
        const Str& line = lines[index];
        const std::size_t def = line.find("def ");
        const int ofName = columnOfWord(line, info.name, def == Str::npos ? 0 : def);
        if (ofName > 0)
            column = ofName;
        else if (def != Str::npos)
            column = static_cast<int>(def) + 1;
        if (!typeParam.empty()) {
            if (const int ofParam = columnOfWord(line, typeParam, static_cast<std::size_t>(column))) column = ofParam;
        }
    }
    auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, typeParam.empty() ? info.name : typeParam,
                                         info.declarationLine, column);
    token->setFilename(info.sourceFile);
    return token;
}

CompilerException unknownGenericMethod(const ContextPtr& context, const TokenPtr& token, const Str& owner,
                                       const Str& method, const std::vector<DroppedOverload>& dropped) {
    CompilerException error =
        errorOfKind(token, "Unknown generic method " + owner + "." + method, CompilerErrorKind::CompileError);
    for (std::size_t i = 0; i < dropped.size() && i < MAX_NOTES; i++) {
        error.addNote({describeGenericMethod(dropped[i].info) + " does not take this call: " + dropped[i].reason,
                       placeOfGenericMethod(dropped[i].info)});
    }
    noteMore(error, dropped.size());
    if (!dropped.empty() || !context) return error;
    try {
        if (const StrVec near = nearMatches(method, genericMethodNames(context, owner)); !near.empty()) {
            error.addNote({"did you mean " + quotedList(near) + "?", nullptr});
        }
    } catch (const std::exception&) {
        // The owner is not known: no names to offer.
    }
    return error;
}

CompilerException inaccessibleGenericMethod(const TokenPtr& token, const Str& owner, const Str& method,
                                            const std::vector<GenericMethodInfo>& overloads) {
    CompilerException error =
        errorOfKind(token, "Cannot access generic method " + method + " in " + owner, CompilerErrorKind::CompileError);
    for (std::size_t i = 0; i < overloads.size() && i < MAX_NOTES; i++) {
        error.addNote({describeGenericMethod(overloads[i]) + " is declared here", placeOfGenericMethod(overloads[i])});
    }
    noteMore(error, overloads.size());
    return error;
}

CompilerException unloadableGenericMethod(const TokenPtr& token, const Str& owner, const Str& method) {
    return errorOfKind(token, "Cannot load generic method " + owner + "." + method, CompilerErrorKind::DeclarationLoad);
}

CompilerException mismatchedArguments(const TokenPtr& token, const GenericMethodInfo& info, const StrVec& expected,
                                      const StrVec& actual) {
    CompilerException error = errorOfKind(token,
                                          "Arguments do not match generic method signature: expected (" +
                                              joinTypes(expected) + "), got (" + joinTypes(actual) + ")",
                                          CompilerErrorKind::CompileError);
    error.addNote({describeGenericMethod(info) + " is declared here", placeOfGenericMethod(info)});
    return error;
}

CompilerException ambiguousGenericMethod(const TokenPtr& token, const Str& owner, const Str& method,
                                         const std::vector<TiedOverload>& tied) {
    CompilerException error =
        errorOfKind(token, "Ambiguous generic method call " + owner + "." + method, CompilerErrorKind::CompileError);
    for (std::size_t i = 0; i < tied.size() && i < MAX_NOTES; i++) {
        Str text = "candidate " + describeGenericMethod(tied[i].info);
        if (tied[i].betterAt.empty()) {
            text += " is better for no argument";
        } else {
            text += tied[i].betterAt.size() == 1 ? " is better for argument " : " is better for arguments ";
            for (std::size_t n = 0; n < tied[i].betterAt.size(); n++) {
                text += (n == 0 ? "" : ", ") + std::to_string(tied[i].betterAt[n] + 1);
            }
        }
        error.addNote({std::move(text), placeOfGenericMethod(tied[i].info)});
    }
    noteMore(error, tied.size());
    return error;
}

Str describeBindingFailure(const GenericMethodInfo& info, const StrVec& argNames) {
    const std::size_t fixed = info.paramCount;
    std::set<Str> named;
    std::size_t positional = 0;
    for (const Str& name : argNames) {
        if (name.empty()) {
            positional++;
            continue;
        }
        const bool known = std::find(info.paramNames.begin(), info.paramNames.end(), name) != info.paramNames.end();
        if (!known && !info.isNamedVariadic) return "it has no parameter '" + name + "'";
        if (!named.insert(name).second) return "parameter '" + name + "' is given twice";
    }
    if (positional > fixed && !info.isVariadic) {
        return "it takes " + std::to_string(fixed) + (fixed == 1 ? " argument" : " arguments") + ", " +
               std::to_string(argNames.size()) + " given";
    }
    for (std::size_t i = 0; i < info.paramNames.size(); i++) {
        if (named.contains(info.paramNames[i]) && i < positional) {
            return "parameter '" + info.paramNames[i] + "' is given by position and by name";
        }
        const bool collects = (info.isVariadic && info.variadicIndex == static_cast<int>(i)) ||
                              (info.isNamedVariadic && info.namedVariadicIndex == static_cast<int>(i));
        const bool hasDefault = i < info.defaultValueTokens.size() && !info.defaultValueTokens[i].empty();
        if (i >= positional && !collects && !hasDefault && !named.contains(info.paramNames[i])) {
            return "parameter '" + info.paramNames[i] + "' gets no argument";
        }
    }
    return "the arguments do not pair with its parameters";
}

TokenVec boundArgumentTokens(const CallArgumentBinding& binding, const GenericCallArguments& arguments) {
    TokenVec tokens;
    for (const int arg : binding.paramToArg) {
        const bool isOne = arg >= 0 && static_cast<std::size_t>(arg) < arguments.argInfos.size();
        const NodePtr node = isOne ? arguments.argInfos[static_cast<std::size_t>(arg)].node : nullptr;
        tokens.push_back(node ? node->getToken() : nullptr);
    }
    return tokens;
}

std::vector<ResolutionReport::TypeArgument> describeTypeArguments(const GenericMethodInfo& info, const StrVec& typeArgs,
                                                                  const StrVec& explicitTypeArgs, const TokenPtr& token,
                                                                  const InferenceTrace& trace) {
    const std::size_t written = token ? parseGenericTypeText(token->getText()).args.size() : 0;
    std::vector<ResolutionReport::TypeArgument> described;
    for (std::size_t i = 0; i < info.typeParams.size() && i < typeArgs.size(); i++) {
        const Str& name = info.typeParams[i].name;
        const auto position = trace.boundBy.find(name);
        Str origin = "its default";
        if (!explicitTypeArgs.empty() && i < written)
            origin = "written at the call";
        else if (!explicitTypeArgs.empty())
            origin = written > 0 ? "the identity of the entity" : "worked out from the functions that are passed";
        else if (position != trace.boundBy.end())
            origin = "argument for parameter " + parameterName(info, position->second);
        described.push_back({name, typeArgs[i], std::move(origin)});
    }
    return described;
}

void explainInferenceError(CompilerException& error, const GenericMethodInfo& info, const InferenceTrace& trace,
                           const StrVec& argTypes, const TokenVec& argumentTokens) {
    const InferenceFailure* failure = inferenceFailureOf(error);
    if (!failure || failure->parameter.empty()) return;
    const Str& name = failure->parameter;
    // A parameter that collects nothing has no argument to point at.
    const auto placeOf = [&](std::size_t position) {
        const TokenPtr token = tokenAt(argumentTokens, position);
        return token ? token : placeOfGenericMethod(info);
    };
    switch (failure->reason) {
        case InferenceFailureReason::InconsistentArguments: {
            const auto first = trace.boundBy.find(name);
            if (first != trace.boundBy.end()) {
                error.addNote({"parameter " + parameterName(info, first->second) + " makes " + name + " " +
                                   structuredTypeText(trace.bindings.at(name)),
                               placeOf(first->second)});
            }
            error.addNote({"parameter " + parameterName(info, failure->position) + " gets " +
                               structuredTypeText(argTypes[failure->position]) + ", which disagrees",
                           placeOf(failure->position)});
            return;
        }
        case InferenceFailureReason::NothingBinds:
            error.addNote(
                {name + " of " + describeGenericMethod(info) + " is declared here", placeOfGenericMethod(info, name)});
            return;
        case InferenceFailureReason::ConstraintNotSatisfied:
            error.addNote({"the constraint " + name + ": " +
                               structuredTypeText(info.typeParams.at(failure->position).constraint) +
                               " is declared here",
                           placeOfGenericMethod(info, name)});
            return;
        case InferenceFailureReason::WrongArgumentCount:
        case InferenceFailureReason::ReturnTypeNotInferrable: return;
    }
}

}  // namespace vesk::compiler
