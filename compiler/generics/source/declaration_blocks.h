// Line scanners that cut one declaration out of a file by indentation, and the record of a file's header lines.
// A declaration is its annotation lines, a header that runs to a colon outside brackets, and the lines below it that are
// indented deeper. No scanner throws; an index that is out of range comes back as it was.
#pragma once

#include <string_view>

#include "host/model_records.h"

namespace vesk::compiler {

// What stands at the top of a source file.
struct SourceModuleHeader {
    Str packageName;
    std::unordered_set<Str> importedPackages;
};

// Width of the blanks a line begins with: a space counts 1, a tab 4.
int indentationWidth(const Str& line);
// True for a trimmed line that is empty or belongs to a comment: such lines never begin or end a block.
bool isNonCodeLine(const Str& trimmed);

// True when the line's first "def " is followed by exactly this name.
bool isFunctionHeaderForName(const Str& line, const Str& name);
// The plain name that a line is a header for; "" where it is none.
std::string_view functionNameInHeader(std::string_view line);
// The line that holds the header's closing colon; `start` when there is none.
int findHeaderEndIndex(const StrVec& lines, int start);
// One past the last line of the body below the header's last line.
int findIndentedBlockEnd(const StrVec& lines, int headerEnd);
// The first line of the declaration, with the annotations above its header.
int extendBlockStartForAnnotations(const StrVec& lines, int start);
// The leading comment, blank, package and import lines of a file, as written.
StrVec collectOrderedModulePreludeLines(const StrVec& lines);

// An unreadable file has an empty header.
SourceModuleHeader readSourceModuleHeader(const Str& path);
SourceModuleHeader sourceModuleHeaderOf(std::string_view text);
void applySourceModuleHeader(const SourceModuleHeader& header, const ContextPtr& context);
// To every scope of a tree.
void applySourceModuleHeaderToNode(const SourceModuleHeader& header, const NodePtr& node);
void applyCompileUnitToNode(const Str& unitFile, const NodePtr& node);

}  // namespace vesk::compiler
