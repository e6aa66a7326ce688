// `veskc explain FILE:LINE[:COLUMN]`: how the generic calls at a place were resolved.
// The place names a line, or one call by the column of its name. A call inside a generic body is resolved once for each
// specialization of that body; each of them is told.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "driver/diagnostic_renderer.h"
#include "generics/resolution_report.h"

namespace vesk::compiler {

struct SourcePlace {
    std::string file;
    int line = 0;
    int column = 0;  // 0 = all of the line

    std::string text() const;
};

// "a.vk:12" and "a.vk:12:5"; nothing for other texts.
std::optional<SourcePlace> parseSourcePlace(const std::string& text);
// The reports of the calls at a place, in order of column, each once. `file` is normalized.
std::vector<const ResolutionReport*> reportsAt(const SourcePlace& place, const std::vector<ResolutionReport>& reports);
// All of them as text: the call's place, then what formatResolutionReport() says. Empty when there is no such call.
std::string explainCalls(const SourcePlace& place, const std::vector<ResolutionReport>& reports,
                         const DiagnosticRenderer& renderer);

}  // namespace vesk::compiler
