// Finding the reports of a place and printing them.
#include "driver/explain.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <tuple>

#include "host/source_manager.h"
#include "host/tokens.h"

namespace vesk::compiler {
namespace {

// A number from 1 that is the whole of a text.
std::optional<int> wholeNumber(const std::string& text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 1) return std::nullopt;
    return number;
}

// What tells two resolutions of one call apart: the same body is looked at more than once (to infer its return type, and to
// compile it), with the same result.
auto identityOf(const ResolutionReport& report) {
    return std::tuple(report.token->getColumn(), report.owner, report.method, report.argumentTypes, report.symbol,
                      report.error);
}

std::string withPathsShown(std::string text, const ResolutionReport& report, const DiagnosticRenderer& renderer) {
    std::set<std::string> paths{report.sourcePath};
    for (const auto& candidate : report.candidates) paths.insert(candidate.declaration.sourceFile);
    for (const std::string& path : paths) {
        const std::string shown = renderer.shownPath(path);
        if (path.empty() || shown == path) continue;
        for (std::size_t at = text.find(path); at != std::string::npos; at = text.find(path, at + shown.size()))
            text.replace(at, path.size(), shown);
    }
    return renderer.displayMessage(text);
}

}  // namespace

std::string SourcePlace::text() const {
    return file + ":" + std::to_string(line) + (column > 0 ? ":" + std::to_string(column) : "");
}

std::optional<SourcePlace> parseSourcePlace(const std::string& text) {
    const std::size_t last = text.rfind(':');
    if (last == std::string::npos || last == 0) return std::nullopt;
    const std::optional<int> lastNumber = wholeNumber(text.substr(last + 1));
    if (!lastNumber) return std::nullopt;
    const std::size_t before = text.rfind(':', last - 1);
    if (before != std::string::npos && before > 0) {
        if (const std::optional<int> line = wholeNumber(text.substr(before + 1, last - before - 1)))
            return SourcePlace{text.substr(0, before), *line, *lastNumber};
    }
    return SourcePlace{text.substr(0, last), *lastNumber, 0};
}

std::vector<const ResolutionReport*> reportsAt(const SourcePlace& place, const std::vector<ResolutionReport>& reports) {
    std::multimap<int, const ResolutionReport*> byColumn;
    for (const ResolutionReport& report : reports) {
        if (!report.token || report.token->getLine() != place.line) continue;
        if (SourceManager::normalizePath(report.token->getFilename()) != place.file) continue;
        const int start = report.token->getColumn();
        const int end = start + static_cast<int>(std::max<std::size_t>(report.token->getText().size(), 1));
        if (place.column > 0 && (place.column < start || place.column >= end)) continue;
        const bool isKnown = std::any_of(byColumn.begin(), byColumn.end(), [&](const auto& entry) {
            return identityOf(*entry.second) == identityOf(report);
        });
        if (!isKnown) byColumn.emplace(start, &report);
    }
    std::vector<const ResolutionReport*> found;
    found.reserve(byColumn.size());
    for (const auto& entry : byColumn) found.push_back(entry.second);
    return found;
}

std::string explainCalls(const SourcePlace& place, const std::vector<ResolutionReport>& reports,
                         const DiagnosticRenderer& renderer) {
    std::string text;
    for (const ResolutionReport* report : reportsAt(place, reports)) {
        if (!text.empty()) text += "\n";
        text += SourcePlace{renderer.shownPath(place.file), place.line, report->token->getColumn()}.text() + ": ";
        text += withPathsShown(formatResolutionReport(*report), *report, renderer);
    }
    return text;
}

}  // namespace vesk::compiler
