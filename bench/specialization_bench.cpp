// One specialization, stage by stage and as a whole, and a repeated call.
#include <benchmark/benchmark.h>

#include <sstream>

#include "driver/build_graph.h"
#include "generics/generic_specializer.h"
#include "generics/inference/binding_inference.h"
#include "generics/inference/body_rewriting.h"
#include "generics/source/declaration_blocks.h"
#include "generics/source/declaration_parser.h"
#include "generics/source/source_text_cache.h"
#include "host/class_loader.h"
#include "host/tokens.h"
#include "semantics/compile_session.h"
#include "semantics/typed_tree.h"

namespace vesk::compiler {
namespace {

const Str PATH = "/bench/main.vk";
const Str PICK =
    "def pick<T>(a: T, b: T, first: Bool) -> T:\n"
    "    r: T = b\n"
    "    if first:\n"
    "        r = a\n"
    "    return r\n";

Str programOf(std::size_t types, bool withCalls) {
    std::ostringstream text;
    text << PICK << "\n";
    for (std::size_t i = 0; i < types; i++) text << "class S" << i << ":\n    v: Int = 1\n\n";
    text << "def main() -> Void:\n    pass\n\n";
    for (std::size_t i = 0; withCalls && i < types; i++) {
        if (i % 50 == 0) text << "def use" << i << "() -> Void:\n";
        text << "    pick(S" << i << "(), S" << i << "(), true)\n";
    }
    return text.str();
}

// A session with one virtual file that is loaded, and this thread's specializer fresh.
class Program {
public:
    explicit Program(const Str& text) : session_({.cache = CacheMode::Memory}), scope_(session_) {
        resetGenericSpecializerSession();
        session_.addVirtualSource(PATH, text);
        file_ = session_.loadFile(PATH);
    }
    ~Program() { resetGenericSpecializerSession(); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    CompileSession& session() { return session_; }
    FileDeclaration& file() { return *file_; }
    const ContextPtr& context() { return file_->context; }
    TokenPtr token(const Str& text) {
        auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, text, 1, 1);
        token->setFilename(PATH);
        return token;
    }
    // The arguments of `pick(S<i>(), S<i>(), true)`.
    NodeVec arguments(std::size_t i) {
        const Str name = "S" + std::to_string(i);
        const auto object = [&] {
            return std::make_shared<CallableExpressionNode>(nullptr, name, NodeVec{}, context(), token(name));
        };
        return {object(), object(), std::make_shared<LiteralNode>(LiteralKind::Bool, "true", context(), token("true"))};
    }

private:
    CompileSession session_;
    ScopedCompileSession scope_;
    FileDeclaration* file_ = nullptr;
};

void scanHeaders(benchmark::State& state) {
    Program program(programOf(1000, true));
    const StrVec& lines = readSourceLinesCached(PATH);
    for (auto _ : state) {
        int found = 0;
        for (const Str& line : lines) found += isFunctionHeaderForName(line, "use950");
        benchmark::DoNotOptimize(found);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(lines.size()));
}
BENCHMARK(scanHeaders);

void reparseFunction(benchmark::State& state) {
    Program program(programOf(1, false));
    for (auto _ : state) benchmark::DoNotOptimize(parseFunctionFromFile(PATH, "pick", program.context()));
}
BENCHMARK(reparseFunction);

void inferBindings(benchmark::State& state) {
    Program program(programOf(1, false));
    const auto info = program.context()->getGenericFunction("pick");
    const TokenPtr token = program.token("pick");
    for (auto _ : state) {
        GenericBindingMap bindings;
        collectGenericBindingsFromType("T", "S0", {"T"}, bindings, program.context(), token);
        collectGenericBindingsFromType("T", "S0", {"T"}, bindings, program.context(), token);
        const StrVec arguments = orderedGenericArgs(info->typeParams, bindings, program.context(), token);
        validateGenericConstraints(info->typeParams, arguments, program.context(), token);
        benchmark::DoNotOptimize(arguments);
    }
}
BENCHMARK(inferBindings);

void rewriteBody(benchmark::State& state) {
    Program program(programOf(1, false));
    const StrVec names = {"T"}, arguments = {"S0"};
    for (auto _ : state) {
        state.PauseTiming();
        const auto node = parseFunctionFromFile(PATH, "pick", program.context());
        state.ResumeTiming();
        applyGenericBindingsToNode(node, names, arguments);
    }
}
BENCHMARK(rewriteBody);

constexpr std::size_t TYPES = 1000;

// New types each time: every call makes a specialization.
void specialize(benchmark::State& state) {
    std::unique_ptr<Program> program;
    std::unique_ptr<ScopedSpecializationUnit> unit;
    std::size_t next = TYPES;
    for (auto _ : state) {
        if (next == TYPES) {
            state.PauseTiming();
            unit.reset();
            program.reset();
            program = std::make_unique<Program>(programOf(TYPES, false));
            unit = std::make_unique<ScopedSpecializationUnit>(PATH);
            next = 0;
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(ensureGenericFunctionSpecialization(
            program->context(), "pick", program->arguments(next++), program->token("pick"), {}));
    }
}
BENCHMARK(specialize);

void checkSpecializedBody(benchmark::State& state) {
    Program program(programOf(1, false));
    const ScopedSpecializationUnit unit(PATH);
    const Str symbol =
        ensureGenericFunctionSpecialization(program.context(), "pick", program.arguments(0), program.token("pick"), {});
    FunctionInstance* instance = program.session().specializedInstance(symbol);
    for (auto _ : state) benchmark::DoNotOptimize(program.session().bodyOf(*instance));
}
BENCHMARK(checkSpecializedBody);

void repeatedCall(benchmark::State& state) {
    Program program(programOf(1, false));
    const ScopedSpecializationUnit unit(PATH);
    const NodeVec arguments = program.arguments(0);
    const TokenPtr token = program.token("pick");
    for (auto _ : state) {
        benchmark::DoNotOptimize(ensureGenericFunctionSpecialization(program.context(), "pick", arguments, token, {}));
    }
}
BENCHMARK(repeatedCall);

void repeatedMethodCall(benchmark::State& state) {
    Program program("class Box<T>:\n    def same<U>(value: U) -> U:\n        return value\n\n" + programOf(1, false));
    const ScopedSpecializationUnit unit(PATH);
    const NodeVec arguments = program.arguments(0);
    const TokenPtr token = program.token("same");
    const NodeVec one(arguments.begin(), arguments.begin() + 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            ensureGenericMethodSpecialization(program.context(), "Box<Int>", "same", one, token, false, {}));
    }
}
BENCHMARK(repeatedMethodCall);

// A whole unit with 1000 instantiations, from text to IL text.
void wholeUnit(benchmark::State& state) {
    const Str text = programOf(TYPES, true);
    for (auto _ : state) {
        Program program(text);
        TimeTrace trace;
        BuildGraph graph(program.session(), trace, BuildGraph::Reach::Program);
        graph.open(program.file());
        if (!graph.compile()) state.SkipWithError("the program has errors");
        auto units = graph.finish();
        std::ostringstream out;
        for (auto& unit : units) {
            if (unit.path == PATH) printIL(*unit.module, out);
        }
        benchmark::DoNotOptimize(out.str());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(TYPES));
}
BENCHMARK(wholeUnit)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vesk::compiler
