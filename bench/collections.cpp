// The steps of collections.vk with the containers of the C++ standard library: collections STEP TIMES.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

constexpr int COUNT = 1000000;

std::vector<std::int32_t> scattered() {
    std::vector<std::int32_t> xs;
    std::uint32_t x = 12345;
    for (int i = 0; i < COUNT; i++) {
        x = x * 1664525u + 1013904223u;
        xs.push_back(std::int32_t(x / 2));
    }
    return xs;
}

// Keeps a value that the optimizer would find unused.
template <class T>
void keep(T& value) {
    asm volatile("" : "+m"(value));
}

std::int64_t append(int times) {
    std::int64_t sum = 0;
    for (int t = 0; t < times; t++) {
        std::vector<std::int32_t> xs;
        for (int i = 0; i < COUNT; i++) xs.push_back(i);
        keep(xs);
        sum += std::int64_t(xs.size());
    }
    return sum;
}

std::int64_t index(int times) {
    std::vector<std::int32_t> xs = scattered();
    std::int64_t sum = 0;
    for (int t = 0; t < times; t++) {
        for (std::size_t i = 0; i < xs.size(); i++) {
            sum += xs.at(i);
            xs.at(i) = t;
        }
        keep(xs);
    }
    return sum;
}

std::int64_t iterate(int times) {
    std::vector<std::int32_t> xs = scattered();
    std::int64_t sum = 0;
    for (int t = 0; t < times; t++) {
        for (std::int32_t x : xs) sum += x;
        // A change, so that one pass cannot stand for all.
        xs[static_cast<std::size_t>(t)] = t;
        keep(xs);
    }
    return sum;
}

std::int64_t lookup(int times) {
    std::vector<std::int32_t> keys = scattered();
    std::unordered_map<std::int32_t, std::int32_t> map;
    for (int i = 0; i < COUNT; i++) map[keys[std::size_t(i)]] = i;
    std::int64_t sum = 0;
    for (int t = 0; t < times; t++) {
        for (int i = 0; i < COUNT; i++) sum += map.at(keys[std::size_t(i)]);
    }
    return sum;
}

std::int64_t sort(int times) {
    std::vector<std::int32_t> xs = scattered();
    std::int64_t sum = 0;
    for (int t = 0; t < times; t++) {
        std::vector<std::int32_t> ys = xs;
        std::stable_sort(ys.begin(), ys.end());
        sum += ys[std::size_t(t)];
    }
    return sum;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) return 2;
    std::string_view step = arguments[1];
    int times = std::atoi(arguments[2]);
    auto* run = step == "append"    ? append
                : step == "index"   ? index
                : step == "iterate" ? iterate
                : step == "lookup"  ? lookup
                                    : sort;
    std::printf("%lld\n", static_cast<long long>(run(times)));
}
