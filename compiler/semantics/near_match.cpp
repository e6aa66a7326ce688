// Near-match hints: "did you mean 'x'?".
#include <algorithm>
#include <cctype>

#include "semantics/name_lookup.h"

namespace vesk::compiler {

namespace {

// Names longer than this are machine-made; comparing them is not worth the time.
constexpr std::size_t MAX_COMPARED_NAME = 64;

// Edits (insert, delete, replace, swap neighbours) between two names, or `limit` + 1 when there are more.
std::size_t editDistance(std::string_view a, std::string_view b, std::size_t limit) {
    if (a.size() > b.size()) std::swap(a, b);
    if (b.size() - a.size() > limit) return limit + 1;
    std::vector<std::size_t> beforeLast(a.size() + 1), last(a.size() + 1), row(a.size() + 1);
    for (std::size_t i = 0; i <= a.size(); i++) last[i] = i;
    for (std::size_t j = 1; j <= b.size(); j++) {
        row[0] = j;
        std::size_t best = j;
        for (std::size_t i = 1; i <= a.size(); i++) {
            row[i] = std::min({last[i] + 1, row[i - 1] + 1, last[i - 1] + (a[i - 1] != b[j - 1] ? 1u : 0u)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[i] = std::min(row[i], beforeLast[i - 2] + 1);
            best = std::min(best, row[i]);
        }
        if (best > limit) return limit + 1;
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last[a.size()];
}

std::string lowered(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

}  // namespace

std::string nearestName(std::string_view wanted, const std::vector<std::string>& names) {
    if (wanted.empty() || wanted.size() > MAX_COMPARED_NAME) return {};
    std::size_t limit = std::max<std::size_t>(1, wanted.size() / 3);
    std::string wantedLower = lowered(wanted), found;
    for (const std::string& name : names) {
        if (name.empty() || name == wanted || name.size() > MAX_COMPARED_NAME) continue;
        // A slip in capital letters is the likeliest of all.
        std::size_t distance = lowered(name) == wantedLower ? 0 : editDistance(wanted, name, limit);
        // A hint that shares no letter helps nobody.
        if (distance > limit || distance >= std::max(name.size(), wanted.size())) continue;
        // `limit` is the best distance so far; of equally near names the first by text wins.
        if (!found.empty() && distance == limit && name >= found) continue;
        found = name;
        limit = distance;
    }
    return found;
}

std::string nearMatchHint(std::string_view wanted, const std::vector<std::string>& names) {
    std::string near = nearestName(wanted, names);
    return near.empty() ? "" : " (did you mean '" + near + "'?)";
}

}  // namespace vesk::compiler
