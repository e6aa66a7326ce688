// Chains of requests and their bounds: 200 requests in a row, and 10,000 specializations of one unit that grow.
//
// A specialization grows when its own declaration stands before it in its chain with type arguments that its own hold,
// whole or with more in between: f<P<T, T>> asked for, over any number of steps, by f<T>. By Kruskal's theorem every chain
// without end has such a pair, so what never grows ends by itself, and what grows is counted in breadth as well as in depth.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "semantics/compile_session.h"

namespace vesk::compiler {

inline constexpr std::size_t MAX_GROWING_SPECIALIZATIONS = 10000;

// The specializations that grow, by the file in which their chain began.
struct GrowthTable {
    std::mutex mutex;
    std::unordered_map<std::string, std::unordered_set<std::uint64_t>> growing;
    std::atomic<bool> hasEnded = false;  // some bound is reached: growing bodies are left alone
};

// True when `larger` holds `smaller` within it, whole or with more in between, and is not the same.
bool properlyHolds(const std::vector<const Type*>& larger, const std::vector<const Type*>& smaller);

// Counts a specialization whose chain is known. Throws where one too many grows.
void admitRequest(CompileSession& session, FunctionInstance& made);
// What stands for a member of an instantiation in chains: its declaration and the arguments of its class.
void identifyMember(FunctionInstance& member);
// Takes over requester, place and identity of the specialization that a driver is making on this thread; false outside of
// drivers.
bool takeRequestUnderWay(FunctionInstance& made);
// The same of a registration without a record: of the specialization under way, else of the place that asks.
struct RequestPlace {
    FunctionInstance* requester = nullptr;
    TokenPtr token;
    int depth = 0;
};
RequestPlace requestUnderWay();
// A member that no call names but that the code of `user` holds, for example through the table of a class.
void noteImplicitRequest(CompileSession& session, FunctionInstance& member, FunctionInstance* user);

}  // namespace vesk::compiler
