// Following a generated file's header to the user's file that asked for it. In the files of people such a line is a comment.
#include <algorithm>

#include "generics/bundles/bundle_manifest.h"
#include "generics/bundles/bundle_paths.h"
#include "generics/generic_specializer.h"
#include "generics/source/declaration_parser.h"
#include "generics/source/source_text_cache.h"
#include "generics/typetext/trimming.h"
#include "generics/typetext/type_text.h"
#include "host/context.h"
#include "host/source_manager.h"
#include "host/tokens.h"

namespace vesk::compiler {

namespace {

constexpr std::string_view CALLER_LINE = "# @vesk-generic-caller-source-unit ";
// The caller that the header lines of a text name, "" when they name none.
Str namedCaller(std::string_view text) {
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string_view line = quickTrimView(text.substr(start, end - start));
        if (line.starts_with(CALLER_LINE)) return Str(quickTrimView(line.substr(CALLER_LINE.size())));
        const bool isHeader =
            line.empty() || line.front() == '#' || line.starts_with("package ") || line.starts_with("import ");
        if (!isHeader) break;
        start = end + 1;
    }
    return {};
}

// What the header of one file said, valid while the file's text is the same object. Looked up for every key, symbol and
// path; lives as long as the thread.
struct KnownHeader {
    std::shared_ptr<const Str> text;
    Str caller;
};
thread_local std::unordered_map<Str, KnownHeader> gKnownHeaders;

Str callerNamedBy(const Str& path, const std::shared_ptr<const Str>& text) {
    if (!text) return {};
    KnownHeader& known = gKnownHeaders[path];
    if (known.text != text) {
        known.caller = namedCaller(*text);
        known.text = text;
    }
    return known.caller;
}

// The unit that the driver works for. As long as calls come from the scope of one loaded file, the header that they found
// first counts: the file is not asked for again at each of them.
struct UnitUnderWay {
    std::weak_ptr<Context> scope;  // of the unit's file
    Str unit, caller;
    std::shared_ptr<const Str> text;
};
thread_local UnitUnderWay gUnitUnderWay;
thread_local int gCallsUnderWay = 0;

Str followCallers(Str unit, std::shared_ptr<const Str> text) {
    for (StrVec visited;;) {
        Str named = callerNamedBy(unit, text);
        if (named.empty() || named == unit || !isKeptGenericMethodBundle(unit)) return unit;
        visited.push_back(std::move(unit));
        unit = std::move(named);
        if (std::find(visited.begin(), visited.end(), unit) != visited.end()) return unit;
        text = sourceTextSnapshot(unit);
    }
}

}  // namespace

ScopedCallerUnits::ScopedCallerUnits() { gCallsUnderWay++; }

ScopedCallerUnits::~ScopedCallerUnits() { gCallsUnderWay--; }

Str genericMethodCallerSourceUnit(const ContextPtr& context, const TokenPtr& token) {
    Str unit = context ? context->getCompileUnitFile() : Str();
    if (unit.empty() && token) unit = token->getFilename();
    if (unit.empty()) return unit;
    const ContextPtr scope = gCallsUnderWay > 0 ? genericDeclarationParentContext(context) : nullptr;
    UnitUnderWay& known = gUnitUnderWay;
    if (scope && known.unit == unit && known.scope.lock() == scope) return known.caller;
    std::shared_ptr<const Str> text = sourceTextSnapshot(unit);
    Str caller = followCallers(unit, text);
    if (scope) known = {scope, std::move(unit), caller, std::move(text)};
    return caller;
}

std::shared_ptr<const GenericMethodBundleManifest> manifestOfUnitUnderWay(const Str& unit) {
    const UnitUnderWay& known = gUnitUnderWay;
    const bool isKnown = gCallsUnderWay > 0 && known.unit == unit && !known.scope.expired();
    return isKnown ? genericMethodBundleManifestOf(unit, known.text) : currentGenericMethodBundleManifest(unit);
}

bool isSameSourceUnit(const Str& a, const Str& b) {
    if (a == b) return true;
    const Str trimmedA = quickTrimCopy(a), trimmedB = quickTrimCopy(b);
    if (trimmedA.empty() || trimmedB.empty()) return trimmedA == trimmedB;
    return SourceManager::normalizePath(trimmedA) == SourceManager::normalizePath(trimmedB);
}

}  // namespace vesk::compiler
