// Super types, and the checks on declarations that need types but no bodies.
// Linking resolves the names behind `extends` and `implements` and finds circles. It walks the class graph with a list
// of its own, so that long chains of classes cost no stack.
#include <algorithm>
#include <cctype>
#include <deque>
#include <set>
#include <unordered_set>

#include "host/diagnostics.h"
#include "semantics/inheritance_growth.h"
#include "semantics/session_tables.h"
#include "semantics/type_place.h"
#include "syntax/interactive_chunk.h"

namespace vesk::compiler {

namespace {

using Linking = ClassDeclaration::Linking;

const TokenPtr& placeOf(const ClassDeclaration& declaration) {
    return declaration.node->nameToken() ? declaration.node->nameToken() : declaration.node->token();
}
const TokenPtr& placeOf(const CallableDeclarationNode& node) {
    return node.nameToken() ? node.nameToken() : node.token();
}

bool isRootClass(const ClassDeclaration& declaration) {
    return declaration.package == "vesk" && declaration.name == "Object" && !declaration.outer;
}

// Resolves what the class's header names into its record. Throws on mistakes.
void resolveSuperTypes(CompileSession& session, ClassDeclaration& declaration) {
    const ClassNode& node = *declaration.node;
    // A class's own type parameters stand in its scope; the header is looked up from inside.
    const ContextPtr& scope = node.context();
    auto tokenAt = [&](std::size_t index) {
        const TokenVec& tokens = node.superTokens();
        return index < tokens.size() && tokens[index] ? tokens[index] : placeOf(declaration);
    };
    std::size_t next = 0;
    declaration.superType = nullptr;
    declaration.interfaces.clear();
    if (!declaration.isInterface && !isRootClass(declaration))
        declaration.superType = session.types().builtin(TypeKind::Object);
    if (!node.superType().empty()) {
        TokenPtr token = tokenAt(next++);
        const Type* type = resolveDeclaredType(node.superType(), scope, token);
        bool isClass = type->kind == TypeKind::Class || type->kind == TypeKind::Object;
        if (!isClass) throw compileError(token, "Type " + type->structured + " cannot be extended");
        if (type->isInterface()) throw compileError(token, type->structured + " is an interface: write 'implements'");
        declaration.superType = type;
    }
    for (const std::string& text : node.interfaces()) {
        TokenPtr token = tokenAt(next++);
        const Type* type = resolveDeclaredType(text, scope, token);
        if (!type->isInterface()) throw compileError(token, "Type " + type->structured + " is not an interface");
        if (std::find(declaration.interfaces.begin(), declaration.interfaces.end(), type) !=
            declaration.interfaces.end())
            throw compileError(token, "Interface " + type->structured + " is named twice");
        declaration.interfaces.push_back(type);
    }
}

std::vector<ClassDeclaration*> directSupers(const ClassDeclaration& declaration) {
    std::vector<ClassDeclaration*> supers;
    if (declaration.superType && declaration.superType->declaration)
        supers.push_back(declaration.superType->declaration);
    for (const Type* interface : declaration.interfaces) supers.push_back(interface->declaration);
    return supers;
}

void noteHeight(ClassDeclaration& declaration, const std::vector<ClassDeclaration*>& supers) {
    for (const ClassDeclaration* super : supers) {
        declaration.height = std::max(declaration.height, super->height + 1);
        declaration.hasGenericInterface |= super->hasGenericInterface;
    }
    for (const Type* interface : declaration.interfaces)
        declaration.hasGenericInterface |= !interface->arguments.empty();
}

CompilerException cyclicInheritance(const ClassDeclaration& declaration) {
    return compileError(placeOf(declaration),
                        "Cyclic inheritance: class '" + declaration.qualifiedName + "' inherits from itself");
}

// Linking that is asked for while a header is resolved sees classes under way: its mistakes are not those of the classes.
class LinkingDepth {
public:
    LinkingDepth() { depth_++; }
    ~LinkingDepth() { depth_--; }
    LinkingDepth(const LinkingDepth&) = delete;
    LinkingDepth& operator=(const LinkingDepth&) = delete;
    bool isOutermost() const { return depth_ == 1; }

private:
    static thread_local int depth_;
};
thread_local int LinkingDepth::depth_ = 0;

struct LinkingStep {
    ClassDeclaration* declaration;
    std::vector<ClassDeclaration*> supers;
    std::size_t next = 0;
};

// What makes two methods of one name the same: their parameter types.
std::string parameterKey(const std::vector<const Type*>& types) {
    std::string key;
    for (const Type* type : types) {
        key += type->text;
        key += ';';
    }
    return key;
}

std::vector<const Type*> parameterTypesOf(const MethodDeclaration& method, const TypeEnvironment* environment) {
    std::vector<const Type*> types;
    for (const FunctionParam& parameter : method.node->getParams())
        types.push_back(resolveType(declaredParameterType(parameter), method.node->context(), environment));
    return types;
}

// Checks one file's declarations, going on behind each mistake.
class DeclarationChecker {
public:
    explicit DeclarationChecker(CompileSession& session) : session_(session) {}

    // Whether all is right.
    bool check(FileDeclaration& file) {
        for (const PackageLine& line : file.node->imports())
            if (!session_.packageExists(line.name))
                report(compileError(line.token, "Unknown package '" + line.name + "'"));
        for (ClassDeclaration* declaration : file.classes) checkClass(*declaration);
        std::set<std::string> names;
        for (FunctionDeclaration* function : file.functions) {
            checkSignature(*function->node);
            names.insert(function->name);
        }
        for (const std::string& name : names) checkOverloads(file.package, name);
        return isRight_;
    }

private:
    void report(const CompilerException& mistake) {
        isRight_ = false;
        session_.report(mistake);
    }

    template <class Work>
    bool guarded(Work work) {
        try {
            work();
            return true;
        } catch (const CompilerException& error) {
            report(error);
            return false;
        }
    }

    const Type* checkedType(const Str& text, const ContextPtr& scope, const TokenPtr& token) {
        const Type* type = resolveDeclaredType(text, scope, token);
        if (!type->arguments.empty() && type->isConcrete && !validated_.contains(type))
            validateTypeConstraints(type, placeOfWrittenType(token, text, text), validated_);
        return type;
    }

    // Constraints may name any parameter of the list, a default only those in front of its own.
    void checkDefault(const std::vector<GenericTypeParam>& parameters, const TypeParameterIndex& names,
                      std::size_t position, const TokenPtr& token) {
        const std::string& text = parameters[position].defaultType;
        std::string word;
        for (std::size_t i = 0; i <= text.size(); i++) {
            char c = i < text.size() ? text[i] : ' ';
            if (std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.') {
                word += c;
                continue;
            }
            const std::size_t named = names.positionOf(word);
            if (named != TypeParameterIndex::NONE && named >= position)
                throw compileError(token, "The default of type parameter " + parameters[position].name +
                                              " can only name earlier parameters, not " + word);
            word.clear();
        }
    }

    void checkTypeParameters(const std::vector<GenericTypeParam>& parameters, const ContextPtr& scope,
                             const TokenPtr& place) {
        const TypeParameterIndex names(parameters);
        for (std::size_t i = 0; i < parameters.size(); i++) {
            const GenericTypeParam& parameter = parameters[i];
            const TokenPtr& token = parameter.token ? parameter.token : place;
            if (!parameter.constraint.empty()) guarded([&] { checkedType(parameter.constraint, scope, token); });
            if (!parameter.defaultType.empty())
                guarded([&] {
                    checkDefault(parameters, names, i, token);
                    checkedType(parameter.defaultType, scope, parameter.defaultToken ? parameter.defaultToken : token);
                });
        }
    }

    // What an operator takes and answers is fixed by how it is written.
    void checkOperatorShape(const MethodDeclaration& method) {
        if (!method.name.starts_with("operator")) return;
        std::string op = method.name.substr(std::string_view("operator").size());
        if (op.empty() || std::isalnum(static_cast<unsigned char>(op[0])) || op[0] == '_') return;
        const MethodNode& node = *method.node;
        std::string shown = "'" + method.name + "'";
        if (method.isStatic) throw compileError(placeOf(node), shown + " cannot be static");
        std::size_t given = node.getParams().size();
        bool mayBeUnary = op == "-" || op == "+";
        std::size_t wanted = op == "[]=" ? 2 : 1;
        if (given != wanted && !(mayBeUnary && given == 0))
            throw compileError(placeOf(node), shown + " takes " + std::to_string(wanted) +
                                                  (wanted == 1 ? " parameter" : " parameters") +
                                                  (mayBeUnary ? " or none" : "") + ", not " + std::to_string(given));
        static const std::set<std::string> COMPARISONS{"==", "!=", "<", "<=", ">", ">="};
        if (!COMPARISONS.contains(op) || node.returnType().empty()) return;
        const Type* returned = resolveType(node.returnType(), node.context());
        if (returned->kind != TypeKind::Bool && returned->kind != TypeKind::Unknown)
            throw compileError(placeOf(node), shown + " returns Bool, not " + returned->structured);
    }

    void checkSignature(const CallableDeclarationNode& node) {
        const ContextPtr& scope = node.context();
        for (const FunctionParam& parameter : node.getParams())
            guarded([&] {
                const TokenPtr& token = parameter.token ? parameter.token : placeOf(node);
                if (checkedType(parameter.type, scope, token)->isVoid())
                    throw compileError(token, "A parameter cannot have type Void");
            });
        if (!node.returnType().empty()) guarded([&] { checkedType(node.returnType(), scope, placeOfResult(node)); });
        checkTypeParameters(node.getTypeParams(), scope, placeOf(node));
        if (node.isNative() && !node.getTypeParams().empty() && node.returnType().empty())
            report(compileError(placeOf(node), "A native generic method needs a written return type"));
    }

    void reportPair(const TokenPtr& place, std::string message, const TokenPtr& other) {
        CompilerException error = compileError(place, std::move(message));
        error.addNote({"the other declaration is here", other});
        report(error);
    }

    // Plain functions of one name differ in their parameter types.
    void checkOverloads(const std::string& package, const std::string& name) {
        const auto& overloads = session_.functionsNamed(package, name);
        std::map<std::string, const FunctionDeclaration*> seen;
        for (const FunctionDeclaration* function : overloads) {
            if (function->generic) continue;
            std::vector<const Type*> types;
            for (const FunctionParam& parameter : function->node->getParams())
                types.push_back(resolveType(declaredParameterType(parameter), function->node->context()));
            auto [place, isNew] = seen.try_emplace(parameterKey(types), function);
            if (!isNew)
                reportPair(placeOf(*function->node),
                           "Function '" + name + "' is declared twice with the same parameter types",
                           placeOf(*place->second->node));
        }
    }

    void checkClass(ClassDeclaration& declaration) {
        bool isLinked = guarded([&] { session_.linkSuperTypes(declaration); });
        if (isLinked) checkHeaderEnds(session_, declaration);
        checkTypeParameters(declaration.node->getTypeParams(), declaration.node->context(), placeOf(declaration));
        if (isLinked) checkSuperConstraints(declaration);
        for (const auto& field : declaration.fields) {
            if (!guarded([&] { checkedType(field->node->type(), declaration.node->context(), field->node->token()); }))
                continue;
            const Type* type = resolveType(field->node->type(), declaration.node->context());
            if (type->isVoid()) report(compileError(field->node->token(), "A field cannot have type Void"));
            if (field->isStatic) checkStatic(declaration, type, field->node->token());
        }
        std::map<std::pair<std::string, std::string>, const MethodDeclaration*> seen;
        for (const auto& method : declaration.methods) {
            checkSignature(*method->node);
            guarded([&] { checkOperatorShape(*method); });
            std::vector<const Type*> types = parameterTypesOf(*method, nullptr);
            if (method->isStatic) {
                for (const Type* type : types)
                    checkStatic(declaration, type, placeOf(*method->node), method->node.get());
                if (!method->node->returnType().empty())
                    checkStatic(declaration, resolveType(method->node->returnType(), method->node->context()),
                                placeOf(*method->node), method->node.get());
            }
            if (method->isGeneric()) continue;
            auto [place, isNew] = seen.try_emplace({method->name, parameterKey(types)}, method.get());
            if (!isNew)
                reportPair(placeOf(*method->node),
                           "Method '" + method->name + "' is declared twice with the same parameter types",
                           placeOf(*place->second->node));
        }
        if (isLinked) checkInterfaces(declaration);
        if (isLinked) checkOverrides(declaration);
        for (ClassDeclaration* nested : declaration.nested) checkClass(*nested);
    }

    // Static members belong to the class, not to its instantiations.
    void checkStatic(const ClassDeclaration& owner, const Type* type, const TokenPtr& token,
                     const MethodNode* method = nullptr) {
        if (type->isConcrete || !owner.isGeneric()) return;
        if (type->kind == TypeKind::Parameter) {
            bool isOwners = owner.typeParameterIndex.contains(type->text);
            bool isMethods =
                method && std::any_of(method->getTypeParams().begin(), method->getTypeParams().end(),
                                      [&](const GenericTypeParam& parameter) { return parameter.name == type->text; });
            if (isOwners && !isMethods)
                report(compileError(
                    token, "A static member cannot name the type parameter '" + type->text + "' of its class"));
            return;
        }
        for (const Type* part : type->arguments) checkStatic(owner, part, token, method);
        if (type->result) checkStatic(owner, type->result, token, method);
    }

    void checkSuperConstraints(const ClassDeclaration& declaration) {
        guarded([&] {
            if (declaration.superType) validateTypeConstraints(declaration.superType, placeOf(declaration), validated_);
            for (const Type* interface : declaration.interfaces)
                validateTypeConstraints(interface, placeOf(declaration), validated_);
        });
    }

    // One generic interface is implemented with one list of type arguments.
    void checkInterfaces(const ClassDeclaration& declaration) {
        if (declaration.interfaces.empty() || !declaration.hasGenericInterface) return;
        std::vector<const Type*> ownArguments;
        for (const std::string& name : declaration.typeParameters)
            ownArguments.push_back(session_.types().parameter(name));
        const Type* self = session_.types().classType(const_cast<ClassDeclaration*>(&declaration), ownArguments);
        std::unordered_map<const ClassDeclaration*, const Type*> seen;
        if (ancestryOf(self)) return;  // without contradictions
        for (const Type* super : std::vector<const Type*>(lineageOf(self))) {
            if (!super->isInterface() || super->arguments.empty()) continue;
            const Type* first = seen.try_emplace(super->declaration, super).first->second;
            if (first == super) continue;
            report(compileError(placeOf(declaration), declaration.name + " would be both " + first->structured +
                                                          " and " + super->structured));
            return;
        }
    }

    // What a class has of one name, by parameters.
    using Overloads = std::map<std::string, const MethodDeclaration*>;
    // The overloads of each name, of those methods that fit.
    template <class Fits>
    static std::map<std::string_view, Overloads> ownMethods(const ClassDeclaration& declaration, Fits fits) {
        std::map<std::string_view, Overloads> own;
        for (const auto& method : declaration.methods)
            if (fits(*method)) own[method->name][parameterKey(parameterTypesOf(*method, nullptr))] = method.get();
        return own;
    }

    // An overriding method returns what the overridden one returns, or a sub type of it, and is no less visible.
    void checkOverrides(const ClassDeclaration& declaration) {
        std::vector<const Type*> ownArguments;
        for (const std::string& name : declaration.typeParameters)
            ownArguments.push_back(session_.types().parameter(name));
        const Type* self = session_.types().classType(const_cast<ClassDeclaration*>(&declaration), ownArguments);
        checkStaticBesideInherited(declaration, self);
        auto own = ownMethods(declaration, [](const MethodDeclaration& method) {
            return !method.isStatic && !method.isConstructor && !method.isGeneric();
        });
        for (const auto& [name, overloads] : own) checkOverridesNamed(name, overloads, self);
    }

    // Goes from declaring type to declaring type. A method goes no further than one that overrides too: that one has been
    // held against all above it.
    void checkOverridesNamed(std::string_view name, const Overloads& own, const Type* self) {
        struct Step {
            const Type* super;
            Overloads own;
        };
        std::deque<Step> steps;
        std::set<std::pair<const Type*, const MethodDeclaration*>> seen;
        auto goOnTo = [&](const std::vector<const Type*>& supers, const Overloads& rest) {
            for (const Type* super : supers) {
                Overloads unseen;
                for (const auto& [key, method] : rest)
                    if (seen.emplace(super, method).second) unseen.emplace(key, method);
                if (!unseen.empty()) steps.push_back({super, std::move(unseen)});
            }
        };
        goOnTo(declaringAbove(self, name), own);
        for (; !steps.empty(); steps.pop_front()) {
            Step& step = steps.front();
            checkOverridesOf(step.super, name, step.own);
            if (!step.own.empty()) goOnTo(declaringAbove(step.super, name), step.own);
        }
    }

    static std::vector<const Type*> declaringAbove(const Type* type, std::string_view name) {
        if (ancestryOf(type)) return nearestDeclaringAbove(type, MemberKind::Method, name);
        std::vector<const Type*> all = allDeclaring(type, MemberKind::Method, name);
        std::erase(all, type);
        return all;
    }

    // A static method cannot stand in the place of an inherited one, nor the other way round.
    void checkStaticBesideInherited(const ClassDeclaration& declaration, const Type* self) {
        const Type* super = directSuperClass(self);
        if (!super) return;
        auto own = ownMethods(
            declaration, [](const MethodDeclaration& method) { return !method.isConstructor && !method.isGeneric(); });
        for (auto& [name, overloads] : own)
            for (const Type* at = super; at && !overloads.empty(); at = directSuperClass(at)) {
                at = classDeclaring(at, MemberKind::Method, name);
                if (!at) break;
                checkStaticBesideThoseOf(at, name, overloads);
            }
    }

    // Takes out those that it has compared.
    void checkStaticBesideThoseOf(const Type* super, std::string_view name, Overloads& own) {
        TypeEnvironment environment = environmentOf(super);
        for (const MethodDeclaration* inherited : declarationOf(super)->methodsNamed(name)) {
            if (inherited->isConstructor || inherited->isGeneric() ||
                inherited->node->visibility() == MemberVisibility::Private)
                continue;
            auto found = own.find(parameterKey(parameterTypesOf(*inherited, &environment)));
            if (found == own.end()) continue;
            if (found->second->isStatic != inherited->isStatic)
                reportPair(placeOf(*found->second->node),
                           "Method '" + inherited->name + "' is " + (inherited->isStatic ? "not " : "") +
                               "static, but the inherited one with these parameters is" +
                               (inherited->isStatic ? "" : " not"),
                           placeOf(*inherited->node));
            own.erase(found);
        }
    }

    // Holds the methods against those that one super type declares. Takes out those that it declares with a result that has
    // itself been held against those above.
    void checkOverridesOf(const Type* super, std::string_view name, Overloads& own) {
        TypeEnvironment environment = environmentOf(super);
        std::set<std::string> held;
        for (const MethodDeclaration* inherited : declarationOf(super)->methodsNamed(name)) {
            if (!takesPartInDispatch(*inherited)) continue;
            auto found = own.find(parameterKey(parameterTypesOf(*inherited, &environment)));
            if (found == own.end()) continue;
            checkOverride(*found->second, *inherited, environment);
            const bool hasWrittenResult = !inherited->node->returnType().empty() || !inherited->node->hasBody();
            if (hasWrittenResult || !super->isInterface()) held.insert(found->first);
        }
        for (const std::string& key : held) own.erase(key);
    }

    void checkOverride(const MethodDeclaration& method, const MethodDeclaration& inherited,
                       const TypeEnvironment& environment) {
        if (method.node->visibility() == MemberVisibility::Private &&
            inherited.node->visibility() != MemberVisibility::Private)
            reportPair(placeOf(*method.node), "Method '" + method.name + "' is less visible than the one it overrides",
                       placeOf(*inherited.node));
        auto returnTypeOf = [](const MethodDeclaration& each, const TypeEnvironment* environmentOfEach) -> const Type* {
            if (!each.node->returnType().empty())
                return resolveType(each.node->returnType(), each.node->context(), environmentOfEach);
            return each.node->hasBody() ? nullptr : CompileSession::current().types().builtin(TypeKind::Void);
        };
        const Type* returned = returnTypeOf(method, nullptr);
        const Type* expected = returnTypeOf(inherited, &environment);
        if (!returned || !expected || returned == expected || returned->kind == TypeKind::Unknown ||
            expected->kind == TypeKind::Unknown)
            return;
        bool isNarrower = expected->isReference() && returned->isReference() && returned->kind != TypeKind::Nullable &&
                          isAssignable(expected, returned);
        if (!isNarrower)
            reportPair(placeOf(*method.node),
                       "Method '" + method.name + "' returns " + returned->structured +
                           ", but the one it overrides returns " + expected->structured,
                       placeOf(*inherited.node));
    }

    CompileSession& session_;
    bool isRight_ = true;
    std::unordered_set<const Type*> validated_;  // types whose constraints have been looked at
};

}  // namespace

bool takesPartInDispatch(const MethodDeclaration& method) {
    return !method.isStatic && !method.isConstructor && !method.isGeneric() &&
           method.node->visibility() != MemberVisibility::Private;
}

void CompileSession::linkSuperTypes(ClassDeclaration& declaration) {
    std::lock_guard lock(state_->modelMutex);
    if (declaration.linking == Linking::Done) return;
    ScopedCompileSession scope(*this);
    // A class that could not be linked can be after a further file has been declared.
    const LinkingDepth depth;
    const std::uint64_t epoch = state_->epoch;
    auto throwKnownMistake = [&](const ClassDeclaration& each) {
        auto known = state_->linkingFailures.find(&each);
        if (known != state_->linkingFailures.end() && known->second.epoch == state_->epoch) throw known->second.mistake;
    };
    throwKnownMistake(declaration);
    std::vector<LinkingStep> path;
    auto enter = [&](ClassDeclaration* each) {
        each->linking = Linking::UnderWay;
        path.push_back({each, {}, 0});
        resolveSuperTypes(*this, *each);
        path.back().supers = directSupers(*each);
    };
    auto fail = [&](ClassDeclaration& each, const CompilerException& mistake) {
        each.linking = Linking::Failed;
        each.superType = nullptr;
        each.interfaces.clear();
        if (depth.isOutermost()) state_->linkingFailures.insert_or_assign(&each, State::LinkingFailure{mistake, epoch});
    };
    try {
        enter(&declaration);
        while (!path.empty()) {
            LinkingStep& step = path.back();
            if (step.next == step.supers.size()) {
                checkLineageLength(*this, *step.declaration);
                step.declaration->linking = Linking::Done;
                noteHeight(*step.declaration, step.supers);
                path.pop_back();
                continue;
            }
            ClassDeclaration* super = step.supers[step.next++];
            if (super->linking == Linking::UnderWay) {
                // Each class of the circle has a mistake of its own; those that lead into it share its first one's.
                while (path.back().declaration != super) {
                    fail(*path.back().declaration, cyclicInheritance(*path.back().declaration));
                    path.pop_back();
                }
                throw cyclicInheritance(*super);
            }
            if (super->linking == Linking::Failed) throwKnownMistake(*super);
            if (super->linking != Linking::Done) enter(super);
        }
    } catch (const CompilerException& mistake) {
        for (LinkingStep& step : path) fail(*step.declaration, mistake);
        throw;
    }
}

void CompileSession::checkDeclarations(FileDeclaration& file) {
    std::lock_guard lock(state_->modelMutex);
    if (!state_->checkedFiles.insert(file.path).second) return;
    ScopedCompileSession scope(*this);
    const bool isRight = DeclarationChecker(*this).check(file);
    // An interactive session drops its mistakes: whoever uses the file next is to hear of them too.
    if (!isRight) state_->checkedFiles.erase(file.path);
}

void CompileSession::checkLoadedDeclarations() {
    // Whoever asks meanwhile waits: then nothing is open.
    std::lock_guard lock(state_->modelMutex);
    std::vector<FileDeclaration*> mistaken;  // to be told again
    // Looking up what headers name may load further files.
    while (!state_->filesToCheck.empty()) {
        std::vector<FileDeclaration*> files;
        files.swap(state_->filesToCheck);
        std::sort(files.begin(), files.end(),
                  [](const FileDeclaration* a, const FileDeclaration* b) { return a->path < b->path; });
        for (FileDeclaration* file : files) {
            const bool isProgramText =
                !file->isStandardLibrary && !file->isGenerated && !isInteractiveChunk(file->path);
            if (!isProgramText) continue;
            checkDeclarations(*file);
            if (!state_->checkedFiles.contains(file->path)) mistaken.push_back(file);
        }
    }
    state_->filesToCheck = std::move(mistaken);
}

}  // namespace vesk::compiler
