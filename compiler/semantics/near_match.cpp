// Near-match hints: "did you mean 'x'?".
#include "semantics/near_match.h"

#include <algorithm>
#include <cctype>
#include <unordered_map>

#include "generics/typetext/edit_distance.h"
#include "semantics/name_lookup.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

// Names longer than this are machine-made; comparing them is not worth the time.
constexpr std::size_t MAX_COMPARED_NAME = 64;

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
        if (std::max(name.size(), wanted.size()) - std::min(name.size(), wanted.size()) > limit) continue;
        // A slip in capital letters is the likeliest of all.
        bool differsInCase = name.size() == wanted.size() && lowered(name) == wantedLower;
        std::size_t distance = differsInCase ? 0 : editDistance(wanted, name, limit);
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

std::string nearMatchHintAt(CompileSession& session, const TokenPtr& place, const std::string& wanted,
                            std::string_view purpose, const std::function<std::vector<std::string>()>& visibleNames) {
    if (!place) return nearMatchHint(wanted, visibleNames());
    struct KnownHints {
        std::uint32_t session = 0;
        std::uint64_t epoch = 0;
        std::unordered_map<std::string, std::string> byPlace;
    };
    thread_local KnownHints gKnown;
    const std::uint32_t serial = session.state().serial;
    const std::uint64_t epoch = session.state().epoch.load(std::memory_order_relaxed);
    if (gKnown.session != serial || gKnown.epoch != epoch) gKnown = {serial, epoch, {}};
    const std::string key = place->getFilename() + "\n" + std::to_string(place->getLine()) + ":" +
                            std::to_string(place->getColumn()) + "\n" + wanted + "\n" + std::string(purpose);
    if (const auto known = gKnown.byPlace.find(key); known != gKnown.byPlace.end()) return known->second;
    // Looking at names may load files.
    std::string hint = nearMatchHint(wanted, visibleNames());
    gKnown.byPlace.emplace(key, hint);
    return hint;
}

}  // namespace vesk::compiler
