// From type texts to types.
// One pass over the text, left to right; nesting is bounded, so that hostile texts cost linear time and little stack.
//   type   = primary { "[]" | "?" }
//   primary = "(" [ type { "," type } ] ")" "->" type  |  "(" type ")"  |  name [ clause ] { "." name [ clause ] }
// A text that is not of this form is a name that nothing declares and keeps its spelling.
#include <algorithm>
#include <optional>

#include "generics/typetext/trimming.h"
#include "host/class_loader.h"
#include "host/diagnostics.h"
#include "semantics/context_state.h"
#include "semantics/near_match.h"
#include "semantics/session_tables.h"
#include "semantics/type_flattening.h"
#include "semantics/type_place.h"

namespace vesk::compiler {

namespace {

constexpr int MAX_TYPE_DEPTH = 256;
// Defaults of type parameters that lead to each other.
thread_local int gDefaultDepth = 0;

class DepthGuard {
public:
    explicit DepthGuard(int& depth) : depth_(depth) { depth_++; }
    ~DepthGuard() { depth_--; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;

private:
    int& depth_;
};

enum class Strictness { Lenient, Declared };

class TypeTextReader {
public:
    TypeTextReader(CompileSession& session, std::string_view text, const LookupEnvironment& environment,
                   Strictness strictness, const TokenPtr& token, const ContextPtr& scope)
        : session_(session),
          types_(session.types()),
          text_(text),
          environment_(environment),
          strictness_(strictness),
          token_(token),
          scope_(scope) {}

    const Type* read() {
        const Type* type = readType(true);
        skipBlanks();
        if (type && position_ == text_.size()) return type;
        if (strictness_ == Strictness::Declared) {
            if (tooDeep_) throw compileError(token_, "Type is nested too deeply");
            throw compileError(token_, "'" + shortened() + "' is not a type");
        }
        return types_.unknown(text_);
    }

private:
    // Where `name` stands in the type being read.
    TokenPtr placeOf(std::string_view name) const { return placeOfWrittenType(token_, text_, name); }

    std::string shortened() const {
        constexpr std::size_t MAX_SHOWN = 200;
        return text_.size() <= MAX_SHOWN ? std::string(text_) : std::string(text_.substr(0, MAX_SHOWN)) + "...";
    }

    void skipBlanks() {
        while (position_ < text_.size() && (text_[position_] == ' ' || text_[position_] == '\t' ||
                                            text_[position_] == '\n' || text_[position_] == '\r'))
            position_++;
    }
    bool accept(char c) {
        skipBlanks();
        if (position_ >= text_.size() || text_[position_] != c) return false;
        position_++;
        return true;
    }
    bool acceptArrow() {
        skipBlanks();
        if (text_.substr(position_, 2) != "->") return false;
        position_ += 2;
        return true;
    }
    std::string_view readName() {
        skipBlanks();
        std::size_t start = position_;
        while (position_ < text_.size()) {
            char c = text_[position_];
            bool isNameCharacter =
                (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
            if (!isNameCharacter) break;
            position_++;
        }
        return text_.substr(start, position_ - start);
    }

    // Types up to `close`; empty pieces are dropped. False when the list does not end.
    bool readList(char close, std::vector<const Type*>& out) {
        for (;;) {
            if (accept(close)) return true;
            if (accept(',')) continue;
            const Type* type = readType(false);
            if (!type) return false;
            out.push_back(type);
            if (accept(close)) return true;
            if (!accept(',')) return false;
        }
    }

    // Null when the text does not go on as a type.
    const Type* readType(bool isWhole) {
        DepthGuard guard(depth_);
        if (depth_ > MAX_TYPE_DEPTH) {
            tooDeep_ = true;
            return nullptr;
        }
        const Type* type = accept('(') ? readParenthesized() : readNamed(isWhole);
        if (!type) return nullptr;
        for (int suffixes = 0;; suffixes++) {
            if (suffixes > MAX_TYPE_DEPTH) {
                tooDeep_ = true;
                return nullptr;
            }
            if (accept('?')) {
                type = types_.nullable(completed(type));
            } else if (std::size_t before = position_; accept('[')) {
                if (!accept(']')) {
                    position_ = before;
                    return nullptr;
                }
                type = types_.array(completed(type));
            } else {
                return type;
            }
        }
    }

    const Type* readParenthesized() {
        std::vector<const Type*> parts;
        if (!readList(')', parts)) return nullptr;
        if (!acceptArrow()) return parts.size() == 1 ? parts[0] : nullptr;
        const Type* result = readType(false);
        return result ? types_.function(parts, result) : nullptr;
    }

    const Type* readNamed(bool isWhole) {
        std::string joined;
        std::string_view name = readName();
        if (name.empty()) return nullptr;
        std::vector<const Type*> arguments;
        bool hasClause = false;
        for (;;) {
            std::size_t before = position_;
            if (!accept('<')) {
                position_ = before;
                break;
            }
            arguments.clear();
            hasClause = true;
            if (!readList('>', arguments)) return nullptr;
            // `Box<Int>.Inner`: inner classes do not depend on the outer one's arguments.
            if (position_ >= text_.size() || text_[position_] != '.') break;
            std::string_view rest = readName();
            if (rest.size() < 2) return nullptr;
            joined = std::string(name) + std::string(rest);
            name = joined;
            hasClause = false;
            arguments.clear();
        }
        const Type* type = resolveName(name, hasClause, arguments);
        return isWhole ? type : completed(type);
    }

    // A raw generic class inside another type stands for its default instantiation, where it has one.
    const Type* completed(const Type* type) {
        if (type->kind != TypeKind::Class || !type->arguments.empty() || !type->declaration->isGeneric()) return type;
        const Type* whole = complete(*type->declaration, {});
        return whole ? whole : type;
    }

    const Type* resolveName(std::string_view name, bool hasClause, const std::vector<const Type*>& arguments) {
        if (!hasClause && isTypeParameter(name, &environment_)) return types_.parameter(name);
        std::string_view bare = name.substr(0, 5) == "vesk." ? name.substr(5) : name;
        if (const Type* builtin = types_.builtinNamed(bare)) {
            if (arguments.empty()) return builtin;
        } else if (!hasClause && name.find(FLATTENED_MARKER) != std::string_view::npos) {
            if (const Type* known = unflattened(name)) return known;
        } else if (ClassDeclaration* declaration = found(name)) {
            return instantiate(*declaration, name, hasClause, arguments);
        }
        if (strictness_ == Strictness::Declared) {
            // A machine-made name always names what it names.
            if (types_.builtinNamed(bare))
                throw compileError(placeOf(name), "Type " + std::string(bare) + " has no type parameters");
            const TokenPtr place = placeOf(name);
            std::string hint;
            const std::size_t dot = name.find('.');
            if (dot != std::string_view::npos && isTypeParameter(name.substr(0, dot), &environment_))
                hint = ": a class inside of a type parameter's type cannot be named through it";
            else if (session_.mayBeShown(place))
                hint = nearMatchHintAt(session_, place, std::string(name), "type",
                                       [&] { return visibleTypeNames(session_, scope_); });
            CompilerException error = compileError(place, "Unknown type '" + std::string(name) + "'" + hint);
            if (mayBeRefused(name, scope_)) error.markAsConsequence();
            throw error;
        }
        if (hasClause) return types_.unknownGeneric(name, arguments);
        return types_.unknown(name);
    }

    ClassDeclaration* found(std::string_view name) {
        ClassDeclaration* second = nullptr;
        ClassDeclaration* first = findClass(session_, name, &environment_, &second);
        if (first && second && strictness_ == Strictness::Declared)
            throw compileError(placeOf(name), ambiguityOf(name, scope_));
        return first;
    }

    const Type* unflattened(std::string_view name) {
        if (const Type* known = types_.unflatten(name);
            known && (known->text == name || name.find('.') == std::string_view::npos))
            return known;
        // A short spelling: the base decides which package is meant.
        std::size_t marker = name.find(FLATTENED_MARKER);
        ClassDeclaration* base = findClass(session_, name.substr(0, marker), &environment_);
        if (!base) return nullptr;
        std::string qualified = base->qualifiedName + std::string(name.substr(marker));
        if (const Type* known = types_.unflatten(qualified); known && known->text == qualified) return known;
        // A name from another process: read it back, and believe it when it comes out the same.
        auto structured = structuredTextOfFlattened(qualified);
        if (!structured) return nullptr;
        const LookupEnvironment& top = session_.state().environments.front();
        TypeTextReader reader(session_, *structured, top, Strictness::Lenient, token_, nullptr);
        reader.depth_ = depth_;
        const Type* type = reader.read();
        return type->isConcrete && type->text == qualified ? type : nullptr;
    }

    // The instantiation with the arguments given and defaults for the rest; null when a default is missing, or a mistake
    // at a name of the text.
    const Type* complete(ClassDeclaration& declaration, std::vector<const Type*> arguments,
                         const std::optional<std::string_view>& mustSucceedAt = std::nullopt) {
        const auto& parameters = declaration.node->getTypeParams();
        const LookupEnvironment& inside = lookupEnvironment(session_, declaration.node->context().get());
        while (arguments.size() < parameters.size()) {
            const GenericTypeParam& parameter = parameters[arguments.size()];
            if (parameter.defaultType.empty() || gDefaultDepth > MAX_TYPE_DEPTH / 8) {
                if (!mustSucceedAt) return nullptr;
                throw compileError(placeOf(*mustSucceedAt), "Type parameter " + parameter.name + " of " +
                                                                declaration.qualifiedName + " has no default");
            }
            DepthGuard guard(gDefaultDepth);
            TypeTextReader reader(session_, parameter.defaultType, inside, strictness_, token_,
                                  declaration.node->context());
            const Type* value = reader.read();
            arguments.push_back(
                types_.substitute(reader.completed(value), {&declaration.typeParameterIndex, &arguments}));
        }
        return types_.classType(&declaration, arguments);
    }

    const Type* instantiate(ClassDeclaration& declaration, std::string_view name, bool hasClause,
                            const std::vector<const Type*>& arguments) {
        std::size_t expected = declaration.typeParameters.size(), given = arguments.size();
        if (expected == 0 && given == 0) return types_.classType(&declaration, {});
        bool isDeclared = strictness_ == Strictness::Declared;
        if (given == 0) {
            if (!hasClause && !isDeclared) return types_.classType(&declaration, {});
            if (hasClause || isDeclared) {
                const Type* whole = complete(declaration, {}, hasClause ? std::optional(name) : std::nullopt);
                if (whole) return whole;
                throw compileError(placeOf(name), "Generic class " + std::string(name) + " needs " +
                                                      std::to_string(expected) +
                                                      (expected == 1 ? " type argument" : " type arguments"));
            }
        }
        if (given <= expected) {
            const Type* whole = complete(declaration, arguments);
            if (whole) return whole;
        }
        if (isDeclared) {
            if (expected == 0)
                throw compileError(placeOf(name), "Type " + std::string(name) + " has no type parameters");
            throw compileError(placeOf(name), "Type " + std::string(name) + " expects " + std::to_string(expected) +
                                                  " type arguments (got " + std::to_string(given) + ")");
        }
        return types_.unknownGeneric(name, arguments);
    }

    CompileSession& session_;
    TypeTable& types_;
    std::string_view text_;
    const LookupEnvironment& environment_;
    Strictness strictness_;
    TokenPtr token_;
    ContextPtr scope_;
    std::size_t position_ = 0;
    int depth_ = 0;
    bool tooDeep_ = false;
};

// Resolutions this thread has made. Key: environment and text. An entry that names something unknown holds only while
// no further file is declared; all entries die with the session.
struct ResolutionCache {
    struct Key {
        std::uint32_t environment;
        std::string text;
    };
    struct View {
        std::uint32_t environment;
        std::string_view text;
    };
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(const View& key) const {
            return std::hash<std::string_view>()(key.text) ^ (key.environment * 0x9e3779b97f4a7c15ULL);
        }
        std::size_t operator()(const Key& key) const { return (*this)(View{key.environment, key.text}); }
    };
    struct Equal {
        using is_transparent = void;
        template <class A, class B>
        bool operator()(const A& a, const B& b) const {
            return a.environment == b.environment && a.text == b.text;
        }
    };
    struct Entry {
        const Type* type = nullptr;
        std::uint64_t epoch = 0;    // 0 = for ever
        bool isDeclarable = false;  // known to be free of mistakes as a declared type
    };
    std::uint32_t session = 0;
    std::unordered_map<Key, Entry, Hash, Equal> entries;
    Entry tooLong;  // the last resolution of a text that is not worth keeping
};
thread_local ResolutionCache gResolutions;
constexpr std::size_t MAX_CACHED_RESOLUTIONS = 1 << 16;
constexpr std::size_t MAX_CACHED_TEXT = 4096;

bool namesUnknown(const Type* type) {
    if (type->isConcrete) return false;
    if (type->kind == TypeKind::Unknown) return true;
    for (const Type* part : type->arguments)
        if (namesUnknown(part)) return true;
    return type->result && namesUnknown(type->result);
}

// Where a scope's names are looked up: the position of its record, and the scope for the rare case that it has none yet.
std::uint32_t environmentPosition(CompileSession& session, const Context* scope) {
    // The common case: the scope or one near it knows its record already.
    std::uint32_t serial = session.state().serial;
    for (const Context* at = scope; at; at = at->parent().get()) {
        const Context::State* own = at->stateIfAny();
        if (!own || !own->rare || !own->rare->decidesLookup()) continue;
        std::uint64_t known = own->rare->environment.load(std::memory_order_acquire);
        if (known >> 32 == serial) return static_cast<std::uint32_t>(known);
        break;
    }
    return lookupEnvironment(session, scope).position;
}

// The type that wrote this long text itself, where no type parameter in sight is called like a part of it. Types of
// functions have no short name, and a chain of requests that grows reads theirs again and again.
const Type* knownByLongText(const TypeTable& types, std::string_view text, const LookupEnvironment& environment) {
    const Type* known = types.withLongText(text);
    if (!known) return nullptr;
    for (std::string_view name : types.builtinNames())
        if (isTypeParameter(name, &environment)) return nullptr;
    return known;
}

// A cached resolution, made when there is none.
ResolutionCache::Entry& cachedResolution(CompileSession& session, std::string_view text, std::uint32_t position,
                                         const TokenPtr& token, const ContextPtr& scope) {
    CompileSession::State& state = session.state();
    ResolutionCache& cache = gResolutions;
    if (cache.session != state.serial) {
        cache.entries.clear();
        cache.session = state.serial;
    }
    auto found = cache.entries.find(ResolutionCache::View{position, text});
    if (found != cache.entries.end() &&
        (found->second.epoch == 0 || found->second.epoch == state.epoch.load(std::memory_order_relaxed)))
        return found->second;
    const Type* type = nullptr;
    std::uint64_t validFor = 0;
    {
        std::lock_guard lock(state.modelMutex);
        ensureLanguagePackage(session);
        const LookupEnvironment& environment = state.environments[position];
        if (const Type* known = knownByLongText(session.types(), text, environment))
            return cache.tooLong = {known, 0, true};
        type = TypeTextReader(session, text, environment, Strictness::Lenient, token, scope).read();
        if (namesUnknown(type)) validFor = state.epoch.load(std::memory_order_relaxed);
    }
    if (text.size() > MAX_CACHED_TEXT) return cache.tooLong = {type, validFor, false};
    if (cache.entries.size() >= MAX_CACHED_RESOLUTIONS) cache.entries.clear();
    return cache.entries
        .insert_or_assign(ResolutionCache::Key{position, std::string(text)},
                          ResolutionCache::Entry{type, validFor, false})
        .first->second;
}

}  // namespace

const Type* resolveType(std::string_view text, const ContextPtr& scope, const TypeEnvironment* environment) {
    CompileSession& session = CompileSession::current();
    const Type* type = nullptr;
    try {
        type =
            cachedResolution(session, trimView(text), environmentPosition(session, scope.get()), nullptr, scope).type;
    } catch (const CompilerException&) {
        type = session.types().unknown(trimView(text));  // `C<>` without defaults: a mistake where it is declared
    }
    return environment ? session.types().substitute(type, *environment) : type;
}

const Type* resolveDeclaredType(std::string_view text, const ContextPtr& scope, const TokenPtr& token,
                                const TypeEnvironment* environment) {
    CompileSession& session = CompileSession::current();
    text = trimView(text);
    std::uint32_t position = environmentPosition(session, scope.get());
    const ResolutionCache::Entry& known = cachedResolution(session, text, position, token, scope);
    const Type* type = known.type;
    if (!known.isDeclarable) {
        {
            std::lock_guard lock(session.modelMutex());
            type = TypeTextReader(session, text, session.state().environments[position], Strictness::Declared, token,
                                  scope)
                       .read();
        }
        // A raw name with defaults means another type here than elsewhere.
        ResolutionCache::Entry& again = cachedResolution(session, text, position, token, scope);
        if (again.type == type) again.isDeclarable = true;
    }
    return environment ? session.types().substitute(type, *environment) : type;
}

Str ClassLoader::resolveTypeName(const Str& type, const ContextPtr& context, const TokenPtr& token) {
    if (type.empty()) return type;
    CompileSession& session = CompileSession::current();
    return cachedResolution(session, trimView(type), environmentPosition(session, context.get()), token, context)
        .type->text;
}

}  // namespace vesk::compiler
