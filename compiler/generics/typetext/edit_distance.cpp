// Three rows of the table of distances are enough; a row that is past the limit everywhere ends the work.
#include "generics/typetext/edit_distance.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace vesk::compiler {

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

}  // namespace vesk::compiler
