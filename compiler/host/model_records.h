// Value records that the host compiler and the specializer hand to each other.
// Plain structures: copy and compare them freely; a type is always a text, and the empty text means
// "unknown" or "none". Nodes, tokens and scopes are shared, never owned, by these records.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace vesk::compiler {

class AbstractNode;
class AnnotationNode;
class ClassNode;
class Context;
class FunctionNode;
class MethodNode;
class Token;

using Str = std::string;
using StrVec = std::vector<Str>;
using NodePtr = std::shared_ptr<AbstractNode>;
using NodeVec = std::vector<NodePtr>;
using TokenPtr = std::shared_ptr<Token>;
using TokenVec = std::vector<TokenPtr>;
using ContextPtr = std::shared_ptr<Context>;
using GenericBindingMap = std::unordered_map<Str, Str>;
using GenericPlaceholderSet = std::unordered_set<Str>;

// The declared type of a variable whose type is left to inference. Shorter names for it are made of this one.
inline constexpr std::string_view AUTO_TYPE_MARKER = "### auto typed var ###";

enum class ParameterPassingMode : int { ByValue = 0, ByReference = 1 };
enum class MemberVisibility : int { Public = 0, Protected, Private, Internal };

// CompileError: the program being compiled is wrong. DeclarationLoad: a declaration or a bundle cannot
// be loaded or generated.
enum class CompilerErrorKind : int { CompileError = 1, DeclarationLoad = 2 };

// One type parameter as a declaration reports it. The default may name earlier parameters.
struct GenericTypeParamInfo {
    Str name, constraint, defaultType;
    bool operator==(const GenericTypeParamInfo&) const = default;
};

// One type parameter as a node carries it. `flag` and the tokens belong to the parser and are copied through: `token` is
// the name, `defaultToken` where the default begins.
struct GenericTypeParam {
    Str name, constraint, defaultType;
    bool flag = false;
    TokenPtr token = nullptr;
    TokenPtr defaultToken = nullptr;
};

// A class that declares generic methods, seen from a class that has them: as instantiated, and what it is to that class.
struct GenericMethodOwner {
    enum class Place { Self, SuperClass, Interface };
    Str name;
    Place place = Place::Self;
    bool operator==(const GenericMethodOwner&) const = default;
};

// One generic method as its class declares it. All per-parameter vectors run in declaration order.
// `overloadIndex` counts from 1 per class and method name. `nextCodeLine` is the line of the first code
// after the body as the parser saw it (number of lines + 1 at the end of the file, 0 when unknown).
struct GenericMethodInfo {
    Str ownerClass, name, sourceFile;
    int declarationLine = 0;
    std::vector<GenericTypeParamInfo> typeParams;
    std::size_t paramCount = 0;
    StrVec paramNames, paramTypes;
    std::vector<bool> paramHasDefault;
    std::vector<ParameterPassingMode> passingModes;
    std::vector<TokenVec> defaultValueTokens;
    Str returnType;
    bool isStatic = false, isNative = false, isVariadic = false;
    int variadicIndex = -1;
    bool isNamedVariadic = false;
    int namedVariadicIndex = -1;
    std::size_t overloadIndex = 1;
    MemberVisibility visibility{};
    int nextCodeLine = 0;
};

// The result of specializing one generic method for one call shape.
struct GenericMethodSpec {
    Str symbol;
    StrVec paramNames, paramTypes;
    std::vector<bool> paramHasDefault;
    std::vector<ParameterPassingMode> passingModes;
    std::vector<TokenVec> defaultValueTokens;
    Str returnType;
    bool isStatic = false, isNative = false, isVariadic = false;
    int variadicIndex = -1;
    bool isNamedVariadic = false;
    int namedVariadicIndex = -1;
};

// The result of specializing one generic free function for one call shape.
struct GenericFunctionSpec {
    Str symbol;
    StrVec paramNames, paramTypes;
    std::vector<bool> paramHasDefault;
    std::vector<ParameterPassingMode> passingModes;
    std::vector<TokenVec> defaultValueTokens;
    Str returnType;
    bool isVariadic = false;
    int variadicIndex = -1;
    bool isNamedVariadic = false;
    int namedVariadicIndex = -1;
};

// One generic free function as its file declares it.
struct GenericFunctionInfo {
    Str sourceFile, name;
    int declarationLine = 0;
    std::vector<GenericTypeParam> typeParams;
    std::size_t paramCount = 0;
    StrVec paramNames, paramTypes;
    std::vector<bool> paramHasDefault;
    std::vector<ParameterPassingMode> passingModes;
    std::vector<TokenVec> defaultValueTokens;
    Str returnType;
    bool isVariadic = false;
    int variadicIndex = -1;
    bool isNamedVariadic = false;
    int namedVariadicIndex = -1;
    int nextCodeLine = 0;
};

// One declared parameter of a function or method node. `extra` is the parser's own text. A parameter with
// a default has non-empty default tokens; they belong to the declaration and are never changed.
struct FunctionParam {
    Str name, type, extra;
    TokenPtr token;
    TokenVec defaultValueTokens;
    std::vector<std::shared_ptr<AnnotationNode>> annotations;
    bool hasDefault = false;
    ParameterPassingMode passingMode{};
    bool isVariadic = false, isNamedVariadic = false;
};

// One call argument: its expression and its name ("" = positional).
struct CallArgInfo {
    NodePtr node;
    Str name;
};

// Which argument goes to which parameter. `paramToArg[p]` is an argument index or -1; `argToParam[a]` a
// parameter index; the two lists hold the arguments that the variadic parameters collect, in call order.
struct CallArgumentBinding {
    std::vector<int> paramToArg, argToParam, variadicArgs, namedVariadicArgs;
};

struct FunctionTypeSignature {
    StrVec paramTypes;
    Str returnType;
};

struct FileStatus {
    bool queried = false, exists = false;
};

}  // namespace vesk::compiler
