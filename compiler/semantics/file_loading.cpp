// Reading a file and declaring what is in it.
// Declaring looks at names only: types are resolved when they are first asked for, so files may import each other in
// circles and loading never goes deeper than one file.
#include <algorithm>
#include <unordered_set>

#include "generics/generic_specializer.h"
#include "host/ast_nodes.h"
#include "host/class_loader.h"
#include "host/source_manager.h"
#include "host/tree_generator.h"
#include "semantics/context_state.h"
#include "semantics/interactive_session.h"
#include "semantics/session_tables.h"
#include "semantics/type_flattening.h"
#include "syntax/interactive_chunk.h"
#include "syntax/scope_building.h"

namespace vesk::compiler {

namespace {

bool isBelow(const std::string& path, const std::string& folder) {
    return !folder.empty() && path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
           path[folder.size()] == '/';
}

std::string placeText(const TokenPtr& token) {
    return token ? token->getFilename() + ":" + std::to_string(token->getLine()) : "another file";
}

// A place for errors that concern a file as a whole.
TokenPtr fileToken(const std::string& path) {
    auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "", 1, 1);
    token->setFilename(path);
    return token;
}

const TokenPtr& nameTokenOf(const CallableDeclarationNode& node) {
    return node.nameToken() ? node.nameToken() : node.token();
}
const TokenPtr& nameTokenOf(const ClassNode& node) { return node.nameToken() ? node.nameToken() : node.token(); }

// Declares one parsed file.
class FileDeclarer {
public:
    FileDeclarer(CompileSession& session, FileDeclaration& file)
        : session_(session), state_(session.state()), file_(file), package_(state_.packageTable(file.package)) {}

    void declare() {
        const bool isChunk = isInteractiveChunk(file_.path);
        if (isChunk) package_.isLoaded = true;
        const auto isBefore = [](const FileDeclaration* a, const FileDeclaration* b) { return a->path < b->path; };
        package_.files.insert(std::upper_bound(package_.files.begin(), package_.files.end(), &file_, isBefore), &file_);
        for (const NodePtr& child : file_.node->getChildren()) {
            if (child->getKind() == NodeKind::Class) declareClass(std::static_pointer_cast<ClassNode>(child), nullptr);
            // The last function of a chunk stands for its statements.
            if (isChunk && child == file_.node->getChildren().back()) break;
            if (child->getKind() == NodeKind::Function) declareFunction(std::static_pointer_cast<FunctionNode>(child));
        }
    }

private:
    void report(const TokenPtr& token, std::string message) {
        session_.report(compileError(token, std::move(message)));
    }
    void reportTwice(const TokenPtr& token, std::string message, const TokenPtr& other) {
        CompilerException error = compileError(token, std::move(message));
        error.addNote({"the other declaration is here", other});
        session_.report(error);
    }

    void checkNative(const CallableDeclarationNode& node) {
        if (node.isNative() && !file_.isStandardLibrary)
            report(nameTokenOf(node), "Only the standard library may declare native functions");
    }

    ClassDeclaration* declareClass(const std::shared_ptr<ClassNode>& node, ClassDeclaration* outer) {
        const std::string& name = node->name();
        if (name.empty()) return nullptr;
        std::string prefix = outer ? outer->qualifiedName : file_.package;
        std::string qualified = prefix.empty() ? name : prefix + "." + name;
        if (!file_.isStandardLibrary && state_.types.builtinNamed(name))
            return report(nameTokenOf(*node), "'" + name + "' is the name of a built-in type"), nullptr;
        if (auto known = state_.classes.find(qualified); known != state_.classes.end()) {
            std::string message =
                "'" + qualified + "' is declared twice: here and at " + placeText(nameTokenOf(*known->second->node));
            return reportTwice(nameTokenOf(*node), std::move(message), nameTokenOf(*known->second->node)), nullptr;
        }
        ClassDeclaration& made = state_.classStorage.emplace_back();
        made.name = name;
        made.qualifiedName = qualified;
        made.package = file_.package;
        made.file = &file_;
        made.outer = outer;
        made.node = node;
        made.isInterface = node->isInterface();
        std::unordered_set<std::string_view> seen;
        for (const GenericTypeParam& parameter : node->getTypeParams()) {
            if (!seen.insert(parameter.name).second)
                report(parameter.token ? parameter.token : nameTokenOf(*node),
                       "Type parameter '" + parameter.name + "' is declared twice");
            made.typeParameters.push_back(parameter.name);
        }
        made.typeParameterIndex = TypeParameterIndex(made.typeParameters);
        state_.classes[qualified] = &made;
        if (outer) {
            outer->nested.push_back(&made);
            outer->nestedByName.try_emplace(made.name, &made);
        } else {
            file_.classes.push_back(&made);
            notePackageOf(name);
            package_.classes[name] = &made;
            if (auto same = package_.functions.find(name); same != package_.functions.end() && !same->second.empty())
                reportTwice(nameTokenOf(*node), "'" + name + "' is a function of this package already",
                            nameTokenOf(*same->second.front()->node));
        }
        node->context()->setEnclosingClassSelfType(selfTypeText(made));
        declareMembers(made);
        return &made;
    }

    static std::string selfTypeText(const ClassDeclaration& declaration) {
        std::string text = declaration.qualifiedName;
        for (std::size_t i = 0; i < declaration.typeParameters.size(); i++)
            text += (i ? ", " : "<") + declaration.typeParameters[i];
        return declaration.isGeneric() ? text + ">" : text;
    }

    void declareMembers(ClassDeclaration& owner) {
        std::unordered_map<std::string_view, TokenPtr> fieldPlaces;
        for (const NodePtr& child : owner.node->getChildren()) {
            if (child->getKind() == NodeKind::Class) {
                declareClass(std::static_pointer_cast<ClassNode>(child), &owner);
            } else if (child->getKind() == NodeKind::Field) {
                auto field = std::static_pointer_cast<FieldNode>(child);
                auto [place, isNew] = fieldPlaces.try_emplace(field->name(), field->token());
                if (!isNew)
                    reportTwice(field->token(), "Field '" + field->name() + "' is declared twice", place->second);
                auto made = std::make_unique<FieldDeclaration>();
                made->name = field->name();
                made->owner = &owner;
                made->isStatic = field->isStatic();
                if (made->isStatic) made->symbol = "vesk_s_" + owner.qualifiedName + "." + made->name;
                if (owner.isInterface && !made->isStatic) report(field->token(), "An interface cannot have fields");
                made->node = std::move(field);
                if (!made->isStatic) made->ordinal = owner.objectFields++;
                owner.fieldsByName[made->name].push_back(made.get());
                owner.fields.push_back(std::move(made));
            } else if (child->getKind() == NodeKind::Method) {
                declareMethod(owner, std::static_pointer_cast<MethodNode>(child));
            }
        }
    }

    void declareMethod(ClassDeclaration& owner, std::shared_ptr<MethodNode> node) {
        auto made = std::make_unique<MethodDeclaration>();
        made->name = node->name();
        made->owner = &owner;
        made->isStatic = node->isStatic();
        made->isNative = node->isNative();
        made->isConstructor = node->name() == "init" && !made->isStatic;
        made->isAbstract = !node->hasBody() && !made->isNative;
        made->node = std::move(node);
        const MethodNode& declared = *made->node;
        checkNative(declared);
        if (made->isGeneric() && made->isConstructor)
            report(nameTokenOf(declared), "A constructor cannot have type parameters");
        if (made->isGeneric() && made->isAbstract) report(nameTokenOf(declared), "A generic method needs a body");
        if (made->isAbstract && (made->isStatic || made->isConstructor))
            report(nameTokenOf(declared),
                   made->isConstructor ? "A constructor needs a body" : "A static method needs a body");
        if (made->isConstructor && owner.isInterface)
            report(nameTokenOf(declared), "An interface cannot have a constructor");
        owner.methodsByName[made->name].push_back(made.get());
        owner.methods.push_back(std::move(made));
    }

    // Before the first declaration of that name.
    void notePackageOf(const std::string& name) {
        if (!package_.classes.contains(name) && !package_.functions.contains(name))
            state_.packagesByName[name].push_back(&package_);
    }

    void declareFunction(std::shared_ptr<FunctionNode> node) {
        const std::string& name = node->name();
        if (name.empty()) return;
        checkNative(*node);
        FunctionDeclaration& made = state_.functionStorage.emplace_back();
        made.name = name;
        made.qualifiedName = file_.package.empty() ? name : file_.package + "." + name;
        made.file = &file_;
        made.node = std::move(node);
        if (!made.node->getTypeParams().empty()) made.generic = genericInfo(made);
        notePackageOf(name);
        std::vector<FunctionDeclaration*>& overloads = package_.functions[name];
        checkSharedNames(made, overloads);
        file_.functions.push_back(&made);
        if (made.generic) package_.genericNames.insert(name);
        // They come in order but for a package's files, of which a few may come late.
        auto place = std::upper_bound(overloads.begin(), overloads.end(), &made,
                                      [](const FunctionDeclaration* a, const FunctionDeclaration* b) {
                                          if (a->file != b->file) return a->file->path < b->file->path;
                                          return a->node->token()->getLine() < b->node->token()->getLine();
                                      });
        std::size_t position = static_cast<std::size_t>(place - overloads.begin());
        overloads.insert(place, &made);
        for (std::size_t i = position; i < overloads.size(); i++) overloads[i]->overloadIndex = i + 1;
    }

    void checkSharedNames(const FunctionDeclaration& made, const std::vector<FunctionDeclaration*>& overloads) {
        const TokenPtr& place = nameTokenOf(*made.node);
        if (auto same = package_.classes.find(made.name); same != package_.classes.end())
            reportTwice(place, "'" + made.name + "' is a class of this package already",
                        nameTokenOf(*same->second->node));
        if (!made.generic && !package_.genericNames.contains(made.name)) return;
        for (const FunctionDeclaration* other : overloads) {
            if (!made.generic && !other->generic) continue;
            const TokenPtr& otherPlace = nameTokenOf(*other->node);
            reportTwice(place,
                        "Generic function '" + made.name +
                            "' shares its name with another function of its package: declared at " + placeText(place) +
                            " and at " + placeText(otherPlace),
                        otherPlace);
            break;
        }
    }

    static std::shared_ptr<const GenericFunctionInfo> genericInfo(const FunctionDeclaration& function) {
        auto info = std::make_shared<GenericFunctionInfo>();
        const FunctionNode& node = *function.node;
        info->sourceFile = function.file->path;
        info->name = function.name;
        info->declarationLine = node.token() ? node.token()->getLine() : 0;
        info->typeParams = node.getTypeParams();
        info->paramCount = node.getParams().size();
        info->returnType = node.returnType();
        info->nextCodeLine = node.nextCodeLine();
        if (info->returnType.empty() && !node.hasBody()) info->returnType = "Void";
        for (std::size_t i = 0; i < info->paramCount; i++) {
            const FunctionParam& parameter = node.getParams()[i];
            info->paramNames.push_back(parameter.name);
            info->paramTypes.push_back(declaredParameterType(parameter));
            info->paramHasDefault.push_back(parameter.hasDefault);
            info->passingModes.push_back(parameter.passingMode);
            info->defaultValueTokens.push_back(parameter.defaultValueTokens);
            if (parameter.isVariadic) {
                info->isVariadic = true;
                info->variadicIndex = static_cast<int>(i);
            }
            if (parameter.isNamedVariadic) {
                info->isNamedVariadic = true;
                info->namedVariadicIndex = static_cast<int>(i);
            }
        }
        return info;
    }

    CompileSession& session_;
    CompileSession::State& state_;
    FileDeclaration& file_;
    PackageTable& package_;
};

// Parses a text into a file of its own scope; mistakes are reported.
std::unique_ptr<FileDeclaration> parseFile(CompileSession& session, const std::string& path, const std::string& text) {
    auto file = std::make_unique<FileDeclaration>();
    file->path = path;
    file->isStandardLibrary = isBelow(path, session.state().standardLibrary);
    file->isGenerated = isGenericMethodBundlePath(path) && isKeptGenericMethodBundle(path);
    file->context = std::make_shared<Context>(session.rootContext());
    file->context->state().isShared = true;
    file->context->setCompileUnitFile(path);
    if (isInteractiveChunk(path)) beginChunk(session, *file);
    std::vector<CompilerException> errors;
    NodePtr tree;
    try {
        TreeGenerator generator(path, std::make_shared<Tokenizer>(text, path), file->context, false);
        generator.collectErrors(&errors);
        tree = generator.generateTree();
    } catch (const CompilerException& error) {
        errors.push_back(error);
    }
    for (const CompilerException& error : errors) session.report(error);
    file->refusals = std::move(errors);
    file->node = std::dynamic_pointer_cast<FileNode>(tree);
    if (!file->node) file->node = std::make_shared<FileNode>(path, file->context);
    if (!file->node->package().name.empty()) file->package = file->node->package().name;
    if (file->package.empty() && !file->isStandardLibrary) file->package = session.options().defaultPackage;
    const RefusedNames& refused = file->node->refusedNames();
    if (!refused.empty()) session.state().refusedNames[file->package].insert(refused.begin(), refused.end());
    std::unordered_set<std::string> imported(file->imports.begin(), file->imports.end());
    for (const PackageLine& line : file->node->imports())
        if (imported.insert(line.name).second) file->imports.push_back(line.name);
    setDeclaringFile(file->context, path);
    return file;
}

}  // namespace

const std::vector<FieldDeclaration*>& ClassDeclaration::fieldsNamed(std::string_view wanted) const {
    static const std::vector<FieldDeclaration*> NONE;
    auto found = fieldsByName.find(wanted);
    return found == fieldsByName.end() ? NONE : found->second;
}

const std::vector<MethodDeclaration*>& ClassDeclaration::methodsNamed(std::string_view wanted) const {
    static const std::vector<MethodDeclaration*> NONE;
    auto found = methodsByName.find(wanted);
    return found == methodsByName.end() ? NONE : found->second;
}

std::string declaredParameterType(const FunctionParam& param) {
    auto isMade = [&](std::string_view base) {
        return param.type.compare(0, base.size(), base) == 0 && param.type.size() > base.size() &&
               (param.type[base.size()] == '<' ||
                param.type.compare(base.size(), FLATTENED_MARKER.size(), FLATTENED_MARKER) == 0);
    };
    if (param.isVariadic && !isMade("vesk.collections.ArrayList"))
        return "vesk.collections.ArrayList<" + param.type + ">";
    if (param.isNamedVariadic && !isMade("vesk.collections.Map"))
        return "vesk.collections.Map<String, " + param.type + ">";
    return param.type;
}

FileDeclaration* CompileSession::loadedFile(const std::string& path) const {
    std::lock_guard lock(state_->modelMutex);
    auto found = state_->files.find(SourceManager::normalizePath(path));
    return found == state_->files.end() ? nullptr : found->second.get();
}

FileDeclaration* CompileSession::loadFile(const std::string& path) {
    std::string normal = SourceManager::normalizePath(path);
    if (FileDeclaration* known = loadedFile(normal)) return known;
    ScopedCompileSession scope(*this);
    std::shared_ptr<const Str> text = SourceManager::contents(normal);
    if (!text) {
        std::lock_guard lock(state_->modelMutex);
        if (state_->unreadable.insert(normal).second) report(compileError(fileToken(normal), "cannot read the file"));
        return nullptr;
    }
    // Several threads may parse the same file at once; the first to be done declares it.
    std::unique_ptr<FileDeclaration> parsed = parseFile(*this, normal, *text);
    if (!parsed->isStandardLibrary) ensureLanguagePackage(*this);
    std::lock_guard lock(state_->modelMutex);
    auto [place, isNew] = state_->files.try_emplace(normal, nullptr);
    if (isNew) {
        place->second = std::move(parsed);
        FileDeclaration* file = place->second.get();
        state_->filesToCheck.push_back(file);
        state_->declareFile(*this, *file);
        return file;
    }
    return place->second.get();
}

void CompileSession::State::declareFile(CompileSession& session, FileDeclaration& file) {
    FileDeclarer(session, file).declare();
    epoch++;
}

std::vector<FileDeclaration*> CompileSession::allFiles() const {
    std::lock_guard lock(state_->modelMutex);
    std::vector<FileDeclaration*> all;
    for (const auto& [path, file] : state_->files) all.push_back(file.get());
    std::sort(all.begin(), all.end(),
              [](const FileDeclaration* a, const FileDeclaration* b) { return a->path < b->path; });
    return all;
}

void ClassLoader::loadFileIntoContext(const Str& path, const ContextPtr& context) {
    CompileSession& session = CompileSession::current();
    FileDeclaration* file = session.loadFile(path);
    if (!file)
        throw CompilerException(fileToken(path), "cannot read the file", CompilerErrorKind::DeclarationLoad, {}, {});
    if (!context) return;
    context->setPackageName(file->package);
    for (const std::string& package : file->imports) context->addImportedPackageLocal(package);
    setDeclaringFile(context, file->path);
}

void ClassLoader::preloadSourceDeclarations(const Str& path, const ContextPtr&) {
    if (!CompileSession::current().loadFile(path))
        throw CompilerException(fileToken(path), "cannot read the file", CompilerErrorKind::DeclarationLoad, {}, {});
}

}  // namespace vesk::compiler
