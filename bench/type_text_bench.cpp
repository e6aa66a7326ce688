// Type texts and keys: the leaves of the specializer.
#include <benchmark/benchmark.h>

#include "generics/function_symbol.h"
#include "generics/typetext/symbol_mangling.h"
#include "generics/typetext/type_text.h"

namespace vesk::compiler {
namespace {

const Str NESTED = "vesk.collections.Map<String, vesk.collections.List<app.Box<Int>>>[]";

void parseTypeText(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(parseGenericTypeText(NESTED));
}
BENCHMARK(parseTypeText);

void substituteNothing(benchmark::State& state) {
    const StrVec names = {"T"}, arguments = {"Int"};
    for (auto _ : state) benchmark::DoNotOptimize(substituteGenericTypeParamsLocal(NESTED, names, arguments));
}
BENCHMARK(substituteNothing);

void substituteDeep(benchmark::State& state) {
    const StrVec names = {"K", "V"}, arguments = {"String", "app.Box<Int>"};
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            substituteTypeThroughout("vesk.collections.Map<K, vesk.collections.List<V>>[]", names, arguments));
    }
}
BENCHMARK(substituteDeep);

void hashText(benchmark::State& state) {
    const Str text(100, 'x');
    for (auto _ : state) benchmark::DoNotOptimize(fnv1a64Hex(text));
}
BENCHMARK(hashText);

void buildKeyAndSymbol(benchmark::State& state) {
    const StrVec typeArgs = {"app.S1"}, parameters = {"app.S1", "app.S1", "Bool"};
    for (auto _ : state) {
        const Str key = genericFunctionCacheKey("pick", typeArgs, parameters, "app.S1");
        benchmark::DoNotOptimize(genericFunctionSymbol("/home/me/app/main.vk", "pick", key));
    }
}
BENCHMARK(buildKeyAndSymbol);

}  // namespace
}  // namespace vesk::compiler
