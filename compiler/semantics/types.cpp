// The table of interned types. Composite types are found by kind, declaration and the addresses of their parts.
#include "semantics/types.h"

#include <algorithm>
#include <array>
#include <deque>
#include <shared_mutex>
#include <span>
#include <unordered_set>

#include "semantics/declarations.h"
#include "semantics/type_flattening.h"

namespace vesk::compiler {

namespace {

struct BuiltinName {
    std::string_view name;
    TypeKind kind;
};
constexpr BuiltinName BUILTIN_NAMES[] = {
    {"Void", TypeKind::Void},
    {"Bool", TypeKind::Bool},
    {"Byte", TypeKind::Byte},
    {"SByte", TypeKind::SByte},
    {"Short", TypeKind::Short},
    {"UShort", TypeKind::UShort},
    {"Int", TypeKind::Int},
    {"UInt", TypeKind::UInt},
    {"Long", TypeKind::Long},
    {"ULong", TypeKind::ULong},
    {"Float", TypeKind::Float},
    {"Double", TypeKind::Double},
    {"String", TypeKind::String},
    {"Object", TypeKind::Object},
    {"Null", TypeKind::Null},
    {"Number", TypeKind::Number},
    {"AbstractInt", TypeKind::AbstractInt},
    {"AbstractFloat", TypeKind::AbstractFloat},
};
constexpr std::size_t BUILTIN_COUNT = static_cast<std::size_t>(TypeKind::AbstractFloat) + 1;

// What a composite type is made of.
struct CompositeKey {
    TypeKind kind;
    const ClassDeclaration* declaration;
    std::span<const Type* const> arguments;
    const Type* result = nullptr;
    std::string_view spelling = {};  // of unknown generic names
};

CompositeKey keyOf(const Type* type) {
    const bool isUnknown = type->kind == TypeKind::Unknown;
    return {type->kind, isUnknown ? nullptr : type->declaration, type->arguments, type->result,
            isUnknown ? std::string_view(type->structured).substr(0, type->structured.find('<')) : std::string_view()};
}

// The types themselves are the keys; they are looked up by their parts.
struct CompositeHash {
    using is_transparent = void;
    std::size_t operator()(const Type* type) const { return (*this)(keyOf(type)); }
    std::size_t operator()(const CompositeKey& key) const {
        std::size_t hash = static_cast<std::size_t>(key.kind) * 0x9e3779b97f4a7c15ULL;
        auto mix = [&hash](const void* pointer) {
            hash = (hash ^ reinterpret_cast<std::size_t>(pointer)) * 0xff51afd7ed558ccdULL;
            hash ^= hash >> 31;
        };
        mix(key.declaration);
        for (const Type* argument : key.arguments) mix(argument);
        mix(key.result);
        return key.spelling.empty() ? hash : hash ^ std::hash<std::string_view>()(key.spelling);
    }
};

struct CompositeEqual {
    using is_transparent = void;
    bool operator()(const Type* a, const Type* b) const { return a == b; }
    bool operator()(const CompositeKey& a, const Type* type) const {
        const CompositeKey b = keyOf(type);
        return a.kind == b.kind && a.declaration == b.declaration && a.result == b.result && a.spelling == b.spelling &&
               std::equal(a.arguments.begin(), a.arguments.end(), b.arguments.begin(), b.arguments.end());
    }
    bool operator()(const Type* type, const CompositeKey& key) const { return (*this)(key, type); }
};

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};
template <class Value>
using TextMap = std::unordered_map<std::string, Value, TextHash, std::equal_to<>>;

// Types that keep growing would double their text at each step; what people read is cut off instead.
constexpr std::size_t MAX_STRUCTURED_TEXT = 2048;

std::string joinStructured(const std::vector<const Type*>& types) {
    std::size_t length = 0;
    for (const Type* type : types) length += type->structured.size() + 2;
    if (length > MAX_STRUCTURED_TEXT) return "...";
    std::string out;
    for (const Type* type : types) {
        if (!out.empty()) out += ", ";
        out += type->structured;
    }
    return out;
}

// The length of a composite's text from those of its parts, with two bytes around each.
std::uint32_t wholeLengthOf(std::size_t own, const std::vector<const Type*>& parts, const Type* result = nullptr) {
    std::size_t length = own + (result ? result->wholeLength : 0);
    for (const Type* part : parts) length += part->wholeLength + 2;
    return static_cast<std::uint32_t>(std::min<std::size_t>(length, Type::MAX_WHOLE_LENGTH));
}

std::string joinTexts(const std::vector<const Type*>& types) {
    std::string out;
    for (const Type* type : types) {
        if (!out.empty()) out += ", ";
        out += type->text;
    }
    return out;
}

bool allConcrete(const std::vector<const Type*>& types) {
    for (const Type* type : types)
        if (!type->isConcrete) return false;
    return true;
}

bool allAbsolute(const std::vector<const Type*>& types) {
    for (const Type* type : types)
        if (!type->isAbsolute) return false;
    return true;
}

std::string_view shortName(std::string_view qualified) {
    std::size_t dot = qualified.rfind('.');
    return dot == std::string_view::npos ? qualified : qualified.substr(dot + 1);
}

}  // namespace

struct TypeTable::State {
    mutable std::shared_mutex mutex;
    std::deque<Type> storage;
    std::array<Type*, BUILTIN_COUNT> builtins{};
    std::unordered_set<const Type*, CompositeHash, CompositeEqual> composites;
    TextMap<const Type*> parameters, unknowns;
    TextMap<const Type*> flattened;
    TextMap<const Type*> flattenedShort;  // null where two packages share the name
    // The keys are the types' own texts: these can be of any length.
    std::unordered_map<std::string_view, const Type*> longTexts;

    // Finds or makes a composite; `fill` writes the texts of a new one.
    template <class Fill>
    const Type* intern(const CompositeKey& key, Fill fill) {
        {
            std::shared_lock lock(mutex);
            if (auto found = composites.find(key); found != composites.end()) return *found;
        }
        Type made;
        made.kind = key.kind;
        made.declaration = const_cast<ClassDeclaration*>(key.declaration);
        made.arguments.assign(key.arguments.begin(), key.arguments.end());
        made.result = key.result;
        fill(made);
        made.structured.shrink_to_fit();
        made.text.shrink_to_fit();
        std::unique_lock lock(mutex);
        if (auto found = composites.find(key); found != composites.end()) return *found;
        const Type* kept = &storage.emplace_back(std::move(made));
        composites.insert(kept);
        if (kept->kind == TypeKind::Class && !kept->arguments.empty() && kept->isConcrete) {
            flattened.emplace(kept->text, kept);
            auto [shortPlace, isFirst] = flattenedShort.try_emplace(std::string(shortName(kept->text)), kept);
            if (!isFirst && shortPlace->second != kept) shortPlace->second = nullptr;
        } else if (kept->isAbsolute && kept->text.size() >= MIN_KEPT_TEXT) {
            longTexts.emplace(kept->text, kept);
        }
        return kept;
    }

    const Type* named(TextMap<const Type*>& table, std::string_view name, TypeKind kind) {
        {
            std::shared_lock lock(mutex);
            if (auto found = table.find(name); found != table.end()) return found->second;
        }
        std::unique_lock lock(mutex);
        auto [place, isNew] = table.try_emplace(std::string(name), nullptr);
        if (isNew) {
            Type& made = storage.emplace_back();
            made.kind = kind;
            made.structured = made.text = name;
            made.wholeLength = wholeLengthOf(name.size(), {});
            made.isConcrete = false;
            place->second = &made;
        }
        return place->second;
    }
};

bool Type::isSignedInteger() const {
    return kind == TypeKind::SByte || kind == TypeKind::Short || kind == TypeKind::Int || kind == TypeKind::Long;
}

bool Type::isInterface() const { return kind == TypeKind::Class && declaration && declaration->isInterface; }

unsigned Type::bitWidth() const {
    switch (kind) {
        case TypeKind::Bool:
        case TypeKind::Byte:
        case TypeKind::SByte: return 8;
        case TypeKind::Short:
        case TypeKind::UShort: return 16;
        case TypeKind::Int:
        case TypeKind::UInt:
        case TypeKind::Float: return 32;
        default: return 64;
    }
}

TypeTable::TypeTable() : state_(std::make_unique<State>()) {
    for (const BuiltinName& builtin : BUILTIN_NAMES) {
        Type& made = state_->storage.emplace_back();
        made.kind = builtin.kind;
        made.structured = made.text = builtin.name;
        made.wholeLength = static_cast<std::uint32_t>(builtin.name.size());
        made.isAbsolute = true;
        state_->builtins[static_cast<std::size_t>(builtin.kind)] = &made;
    }
    Type& unknownType = state_->storage.emplace_back();
    unknownType.isConcrete = false;
    state_->builtins[static_cast<std::size_t>(TypeKind::Unknown)] = &unknownType;
}

TypeTable::~TypeTable() = default;

const Type* TypeTable::builtin(TypeKind kind) const { return state_->builtins[static_cast<std::size_t>(kind)]; }

std::vector<std::string_view> TypeTable::builtinNames() const {
    std::vector<std::string_view> names;
    for (const BuiltinName& known : BUILTIN_NAMES) names.push_back(known.name);
    return names;
}

const Type* TypeTable::builtinNamed(std::string_view name) const {
    if (name.size() < 3 || name.size() > 13) return nullptr;
    for (const BuiltinName& known : BUILTIN_NAMES)
        if (known.name == name) return builtin(known.kind);
    return nullptr;
}

void TypeTable::setBuiltinDeclaration(std::string_view name, ClassDeclaration* declaration) {
    const Type* type = builtinNamed(name);
    if (type) state_->builtins[static_cast<std::size_t>(type->kind)]->declaration = declaration;
}

const Type* TypeTable::classType(ClassDeclaration* declaration, const std::vector<const Type*>& arguments) {
    const bool isBare = arguments.empty();
    if (isBare) {
        if (const Type* known = knownAt(declaration->knownType)) return known;
        if (declaration->outer == nullptr && declaration->package == "vesk")
            if (const Type* known = builtinNamed(declaration->name)) return known;
    }
    const bool isRaw = isBare && declaration->isGeneric();
    const Type* type = state_->intern({TypeKind::Class, declaration, arguments}, [&](Type& made) {
        const std::string& base = declaration->qualifiedName;
        made.wholeLength = wholeLengthOf(base.size(), made.arguments);
        made.isConcrete = !isRaw && allConcrete(made.arguments);
        if (made.arguments.empty()) {
            made.structured = made.text = base;
            return;
        }
        made.isAbsolute = made.isConcrete;
        made.structured = base + "<" + joinStructured(made.arguments) + ">";
        made.text =
            made.isConcrete ? flattenedName(base, made.arguments) : base + "<" + joinTexts(made.arguments) + ">";
    });
    if (isBare) makeKnownAt(declaration->knownType, type);
    return type;
}

const Type* TypeTable::array(const Type* element) {
    return state_->intern({TypeKind::Array, nullptr, {&element, 1}}, [&](Type& made) {
        bool parentheses = element->kind == TypeKind::Function;
        made.isConcrete = element->isConcrete;
        made.isAbsolute = element->isAbsolute;
        made.wholeLength = wholeLengthOf(parentheses ? 2 : 0, made.arguments);
        made.structured = (parentheses ? "(" + element->structured + ")" : element->structured) + "[]";
        made.text = (parentheses ? "(" + element->text + ")" : element->text) + "[]";
    });
}

const Type* TypeTable::nullable(const Type* type) {
    if (type->kind == TypeKind::Nullable || type->kind == TypeKind::Null || type->kind == TypeKind::Void) return type;
    return state_->intern({TypeKind::Nullable, nullptr, {&type, 1}}, [&](Type& made) {
        bool parentheses = type->kind == TypeKind::Function;
        made.isConcrete = type->isConcrete;
        made.isAbsolute = type->isAbsolute;
        made.wholeLength = wholeLengthOf(parentheses ? 2 : 0, made.arguments);
        made.structured = (parentheses ? "(" + type->structured + ")" : type->structured) + "?";
        made.text = (parentheses ? "(" + type->text + ")" : type->text) + "?";
    });
}

const Type* TypeTable::function(const std::vector<const Type*>& parameters, const Type* result) {
    return state_->intern({TypeKind::Function, nullptr, parameters, result}, [&](Type& made) {
        made.isConcrete = allConcrete(made.arguments) && result->isConcrete;
        made.isAbsolute = allAbsolute(made.arguments) && result->isAbsolute;
        made.wholeLength = wholeLengthOf(4, made.arguments, result);
        made.structured = "(" + joinStructured(made.arguments) + ") -> " + result->structured;
        if (made.structured.size() > 2 * MAX_STRUCTURED_TEXT) made.structured = "(...) -> ...";
        made.text = "(" + joinTexts(made.arguments) + ") -> " + result->text;
    });
}

const Type* TypeTable::parameter(std::string_view name) {
    return state_->named(state_->parameters, name, TypeKind::Parameter);
}

const Type* TypeTable::unknown(std::string_view spelling) {
    if (spelling.empty()) return builtin(TypeKind::Unknown);
    return state_->named(state_->unknowns, spelling, TypeKind::Unknown);
}

const Type* TypeTable::unknownGeneric(std::string_view base, const std::vector<const Type*>& arguments) {
    return state_->intern({TypeKind::Unknown, nullptr, arguments, nullptr, base}, [&](Type& made) {
        made.isConcrete = false;
        made.wholeLength = wholeLengthOf(base.size(), made.arguments);
        made.structured = std::string(base) + "<" + joinStructured(made.arguments) + ">";
        made.text = std::string(base) + "<" + joinTexts(made.arguments) + ">";
    });
}

const Type* TypeEnvironment::argumentFor(std::string_view name) const {
    if (!names || !arguments || hidden.contains(name)) return nullptr;
    const std::size_t position = names->positionOf(name);
    return position < arguments->size() ? (*arguments)[position] : nullptr;
}

const Type* TypeTable::substitute(const Type* type, const TypeEnvironment& environment) {
    if (!type || type->isConcrete || !environment.names) return type;
    if (type->kind == TypeKind::Parameter) {
        const Type* argument = environment.argumentFor(type->text);
        return argument ? argument : type;
    }
    if (type->arguments.empty() && !type->result) return type;
    std::vector<const Type*> parts;
    parts.reserve(type->arguments.size());
    for (const Type* part : type->arguments) parts.push_back(substitute(part, environment));
    const Type* result = type->result ? substitute(type->result, environment) : nullptr;
    if (parts == type->arguments && result == type->result) return type;
    switch (type->kind) {
        case TypeKind::Class: return classType(type->declaration, parts);
        case TypeKind::Array: return array(parts[0]);
        case TypeKind::Nullable: return nullable(parts[0]);
        case TypeKind::Function: return function(parts, result);
        default: return unknownGeneric(type->text.substr(0, type->text.find('<')), parts);
    }
}

const Type* TypeTable::unflatten(std::string_view text) const {
    std::shared_lock lock(state_->mutex);
    if (auto found = state_->flattened.find(text); found != state_->flattened.end()) return found->second;
    auto found = state_->flattenedShort.find(text);
    return found == state_->flattenedShort.end() ? nullptr : found->second;
}

const Type* TypeTable::withLongText(std::string_view text) const {
    if (text.size() < MIN_KEPT_TEXT) return nullptr;
    std::shared_lock lock(state_->mutex);
    auto found = state_->longTexts.find(text);
    return found == state_->longTexts.end() ? nullptr : found->second;
}

const Type* withoutNull(const Type* type) {
    return type && type->kind == TypeKind::Nullable ? type->arguments[0] : type;
}

}  // namespace vesk::compiler
