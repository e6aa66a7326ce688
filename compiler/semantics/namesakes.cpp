// Finding namesakes, and hiding the package that tells them apart.
#include "semantics/namesakes.h"

#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

// What type parameters are called in the packages of the library: looking would take loading all of their files.
const std::map<std::string, std::set<std::string>> LIBRARY_TYPE_PARAMETERS = {
    {"vesk", {"T"}},
    {"vesk.collections", {"A", "B", "K", "R", "T", "U", "V", "W"}},
    {"vesk.data", {"E", "TId"}},
    {"vesk.math", {"T", "U"}},
};

void addTypeParameters(const FileDeclaration& file, std::set<std::string>& names) {
    for (const FunctionDeclaration* function : file.functions)
        for (const GenericTypeParam& parameter : function->node->getTypeParams()) names.insert(parameter.name);
    for (const ClassDeclaration* declaration : file.classes) {
        names.insert(declaration->typeParameters.begin(), declaration->typeParameters.end());
        for (const auto& method : declaration->methods)
            for (const GenericTypeParam& parameter : method->node->getTypeParams()) names.insert(parameter.name);
    }
}

bool declares(CompileSession& session, const std::string& package, const std::string& name) {
    std::lock_guard lock(session.modelMutex());
    const PackageTable& table = session.state().packageWith(session, package, name);
    return table.classes.find(name) != table.classes.end();
}

}  // namespace

std::set<std::string> declaredTypeParameters(const FileDeclaration& file) {
    std::set<std::string> names;
    addTypeParameters(file, names);
    return names;
}

const std::map<std::string, std::set<std::string>>& libraryTypeParameters() { return LIBRARY_TYPE_PARAMETERS; }

bool hasNamesakes(CompileSession& session, const std::vector<FileDeclaration*>& files) {
    std::set<std::string> typeParameters, packages;
    for (const FileDeclaration* file : session.allFiles()) {
        if (file->isStandardLibrary) continue;
        typeParameters.merge(declaredTypeParameters(*file));
        packages.insert(file->imports.begin(), file->imports.end());
    }
    for (const std::string& package : packages)
        if (const auto known = LIBRARY_TYPE_PARAMETERS.find(package); known != LIBRARY_TYPE_PARAMETERS.end())
            typeParameters.insert(known->second.begin(), known->second.end());
    packages.insert("vesk");
    for (const FileDeclaration* file : files) {
        if (!file->package.empty()) continue;
        for (const ClassDeclaration* declaration : file->classes) {
            const std::string& name = declaration->name;
            if (typeParameters.contains(name)) return true;
            for (const std::string& package : packages)
                if (declares(session, package, name)) return true;
        }
    }
    return false;
}

std::string withoutStandInPackage(const CompileSession& session, std::string text) {
    const std::string& package = session.options().defaultPackage;
    if (package.empty()) return text;
    const std::string prefix = package + ".";
    for (std::size_t at = text.find(prefix); at != std::string::npos; at = text.find(prefix, at))
        text.erase(at, prefix.size());
    return text;
}

}  // namespace vesk::compiler
