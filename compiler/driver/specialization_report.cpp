// Gathering and printing specializations.
#include "driver/specialization_report.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

#include "generics/generic_specializer.h"
#include "generics/typetext/type_text.h"
#include "host/tokens.h"

namespace vesk::compiler {
namespace {

std::string originName(ResolutionOrigin origin) {
    switch (origin) {
        case ResolutionOrigin::CurrentUnit:
        case ResolutionOrigin::Unit: return "unit";
        case ResolutionOrigin::NewBundle: return "new bundle";
        case ResolutionOrigin::StoredBundle: return "bundle";
        case ResolutionOrigin::Native: return "native";
        case ResolutionOrigin::SessionCache: return "cache";
    }
    return {};
}

std::string nameOf(const ResolutionReport& report) {
    StrVec typeArgs;
    for (const ResolutionReport::TypeArgument& argument : report.typeArguments) typeArgs.push_back(argument.type);
    Str name = report.method;
    if (!report.owner.empty())
        name = shortTypeNameLocal(parseGenericTypeText(structuredTypeText(report.owner)).base) + "." + name;
    return specializationDisplayName(name, typeArgs);
}

std::string signatureOf(const ResolutionReport& report) {
    std::string text = "(";
    for (const ResolutionReport::Candidate& candidate : report.candidates) {
        if (!candidate.isChosen) continue;
        for (std::size_t i = 0; i < candidate.paramTypes.size(); i++)
            text += (i ? ", " : "") + structuredTypeText(candidate.paramTypes[i]);
    }
    return text + ") -> " + structuredTypeText(report.returnType);
}

// Where a specialization was made, rather than found again.
bool isMaking(ResolutionOrigin origin) {
    return origin == ResolutionOrigin::CurrentUnit || origin == ResolutionOrigin::NewBundle ||
           origin == ResolutionOrigin::StoredBundle;
}

SpecializationEntry entryFor(CompileSession& session, const ResolutionReport& report) {
    SpecializationEntry entry;
    entry.name = nameOf(report);
    entry.symbol = report.symbol;
    entry.owner = structuredTypeText(report.owner);
    entry.signature = signatureOf(report);
    entry.origin = originName(report.origin);
    entry.sourcePath = report.sourcePath;
    entry.nanoseconds = report.nanoseconds;
    TokenPtr place = report.token;
    if (const FunctionInstance* instance = session.specializedInstance(report.symbol)) {
        if (instance->requestToken) place = instance->requestToken;
        if (instance->requester) entry.requester = instance->requester->shownName();
    }
    if (!place) return entry;
    entry.requestFile = place->getFilename();
    entry.requestLine = place->getLine();
    entry.requestColumn = place->getColumn();
    return entry;
}

std::string requestPlace(const SpecializationEntry& entry, const DiagnosticRenderer& renderer) {
    return renderer.shownPath(entry.requestFile) + ":" + std::to_string(entry.requestLine) + ":" +
           std::to_string(entry.requestColumn);
}

}  // namespace

std::vector<SpecializationEntry> specializationsOf(CompileSession& session,
                                                   const std::vector<ResolutionReport>& reports) {
    struct Found {
        const ResolutionReport* report;
        std::size_t requests;
    };
    std::map<std::string, Found> bySymbol;
    for (const ResolutionReport& report : reports) {
        if (report.failed || report.symbol.empty()) continue;
        const auto [place, isNew] = bySymbol.try_emplace(report.symbol, Found{&report, 0});
        place->second.requests++;
        if (!isNew && !isMaking(place->second.report->origin) && isMaking(report.origin))
            place->second.report = &report;
    }
    std::vector<SpecializationEntry> entries;
    for (const auto& [symbol, found] : bySymbol) {
        entries.push_back(entryFor(session, *found.report));
        entries.back().requests = found.requests;
    }
    std::sort(entries.begin(), entries.end(), [](const SpecializationEntry& a, const SpecializationEntry& b) {
        return std::tie(a.name, a.symbol) < std::tie(b.name, b.symbol);
    });
    return entries;
}

std::string specializationsAsText(const std::vector<SpecializationEntry>& entries, const DiagnosticRenderer& renderer) {
    std::string text;
    for (const SpecializationEntry& entry : entries) {
        text += entry.name + " " + entry.signature + "\n";
        text += "    symbol " + entry.symbol + "\n";
        text += "    requested at " + requestPlace(entry, renderer);
        if (!entry.requester.empty()) text += " by " + entry.requester;
        if (entry.requests > 1) text += ", " + std::to_string(entry.requests) + " times";
        text += "\n    from " + entry.origin;
        if (!entry.sourcePath.empty()) text += " " + renderer.shownPath(entry.sourcePath);
        text += ", " + std::to_string(entry.nanoseconds / 1000) + " us\n";
    }
    return text;
}

std::string specializationsAsJson(const std::vector<SpecializationEntry>& entries, const DiagnosticRenderer& renderer) {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const SpecializationEntry& entry : entries) {
        all.push_back({{"name", entry.name},
                       {"symbol", entry.symbol},
                       {"owner", entry.owner},
                       {"signature", entry.signature},
                       {"origin", entry.origin},
                       {"source", renderer.displayPath(entry.sourcePath)},
                       {"requester", entry.requester},
                       {"file", renderer.displayPath(entry.requestFile)},
                       {"line", entry.requestLine},
                       {"column", entry.requestColumn},
                       {"requests", entry.requests},
                       {"nanoseconds", entry.nanoseconds}});
    }
    return all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string specializationCountLines() {
    const SpecializationCounts& counts = specializationCounts();
    std::string text;
    const auto add = [&](const char* what, std::size_t count) {
        text += std::string(what) + ": " + std::to_string(count) + "\n";
    };
    add("generic methods specialized", counts.methodsSpecialized);
    add("generic methods from bundles", counts.methodsFromBundles);
    add("generic methods from the unit", counts.methodsFromUnits);
    add("generic methods from caches", counts.methodsFromCaches);
    add("native generic methods", counts.nativeMethods);
    add("generic functions specialized", counts.functionsSpecialized);
    add("generic functions found again", counts.functionsFound);
    return text;
}

}  // namespace vesk::compiler
