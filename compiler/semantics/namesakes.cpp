// Finding namesakes, and hiding the package that tells them apart.
#include "semantics/namesakes.h"

#include <cctype>
#include <set>

#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

// Generic code that needs no import: of the language, and of the lists that literals make.
constexpr const char* LIBRARY_PACKAGES[] = {"vesk", "vesk.collections"};

// Short names in capitals are what type parameters are called.
bool looksLikeTypeParameter(const std::string& name) {
    return name.size() <= 2 && name[0] >= 'A' && name[0] <= 'Z' &&
           (name.size() == 1 || std::isdigit(static_cast<unsigned char>(name[1])));
}

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

bool hasNamesakes(CompileSession& session, const std::vector<FileDeclaration*>& files) {
    std::set<std::string> typeParameters, packages(std::begin(LIBRARY_PACKAGES), std::end(LIBRARY_PACKAGES));
    for (const FileDeclaration* file : session.allFiles()) {
        if (file->isStandardLibrary) continue;
        addTypeParameters(*file, typeParameters);
        packages.insert(file->imports.begin(), file->imports.end());
    }
    for (const FileDeclaration* file : files) {
        if (!file->package.empty()) continue;
        for (const ClassDeclaration* declaration : file->classes) {
            const std::string& name = declaration->name;
            if (looksLikeTypeParameter(name) || typeParameters.contains(name)) return true;
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
