// Embedding the compiler: specializes the first generic call of a program's main function, tells what came of it, and then
// runs the program as the command would.
//
//     embedding FILE
#include <driver/commands.h>
#include <generics/generic_specializer.h>
#include <host/host_services.h>
#include <semantics/compile_session.h>

#include <cstdio>

using namespace vesk::compiler;

namespace {

// The first call of a generic function among the nodes of a tree, in source order; null when there is none.
std::shared_ptr<CallableExpressionNode> firstGenericCall(const NodePtr& node) {
    if (!node) return nullptr;
    auto call = std::dynamic_pointer_cast<CallableExpressionNode>(node);
    if (call && call->getContext()->isGenericFunction(call->getName())) return call;
    for (const NodePtr& child : node->getChildren()) {
        if (auto found = firstGenericCall(child)) return found;
    }
    return nullptr;
}

// Specializes that call of a program's main function and prints what it returns.
int specialize(const Str& path) {
    SessionOptions options;
    options.cache = CacheMode::Memory;
    options.programRoot = path.substr(0, path.rfind('/') + 1);
    CompileSession session(options);
    const ScopedCompileSession current(session);
    FileDeclaration* const file = session.loadFile(path);
    if (!file) return 2;
    const ScopedSpecializationUnit unit(path);
    for (const FunctionDeclaration* function : file->functions) {
        if (function->name != "main") continue;
        const auto call = firstGenericCall(function->node);
        if (!call) return 1;
        const Str symbol = ensureGenericFunctionSpecialization(call->getContext(), call->getName(),
                                                               call->getArguments(), call->getToken(), {});
        std::printf("%s -> %s\n", call->getName().c_str(), call->getContext()->getFunctionReturn(symbol).c_str());
        return 0;
    }
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    try {
        if (const int status = specialize(SourceManager::normalizePath(argv[1]))) return status;
    } catch (const CompilerException& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    std::fflush(stdout);
    return runCommandLine({"run", argv[1]});
}
