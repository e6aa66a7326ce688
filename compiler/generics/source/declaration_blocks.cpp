// The line scanners. Each is a single pass; white space is that of the "C" locale.
#include "generics/source/declaration_blocks.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "generics/source/source_text_cache.h"
#include "generics/typetext/trimming.h"
#include "host/ast_nodes.h"
#include "host/context.h"

namespace vesk::compiler {

namespace {

constexpr std::string_view DEF = "def ", PACKAGE = "package ", IMPORT = "import ";
constexpr int TAB_WIDTH = 4;

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool isCommentOrBlank(std::string_view trimmed) {
    return trimmed.empty() || trimmed.front() == '#' || trimmed.starts_with("/*") || trimmed.front() == '*';
}

bool isIndexOf(const StrVec& lines, int index) { return index >= 0 && static_cast<std::size_t>(index) < lines.size(); }

// Visits every scope of a tree, outer ones first, else branches included and without recursion. Most nodes share their
// parent's scope, which is then not visited again.
template <class Visit>
void visitScopes(const NodePtr& root, Visit visit) {
    if (!root) return;
    struct Pending {
        const AbstractNode* node;
        const Context* parentScope;
    };
    std::vector<Pending> pending{{root.get(), nullptr}};
    while (!pending.empty()) {
        const auto [node, parentScope] = pending.back();
        pending.pop_back();
        const ContextPtr& context = node->context();
        if (context && context.get() != parentScope) visit(context);
        const auto push = [&](const NodePtr& child) {
            if (child) pending.push_back({child.get(), context.get()});
        };
        if (node->getKind() == NodeKind::If) push(static_cast<const IfNode*>(node)->getElseBranch());
        const NodeVec& children = node->getChildren();
        for (auto child = children.rbegin(); child != children.rend(); ++child) push(*child);
    }
}

}  // namespace

int indentationWidth(const Str& line) {
    int width = 0;
    for (const char c : line) {
        if (c == ' ') {
            width++;
        } else if (c == '\t') {
            width += TAB_WIDTH;
        } else {
            break;
        }
    }
    return width;
}

bool isNonCodeLine(const Str& trimmed) { return isCommentOrBlank(trimmed); }

namespace {

// What stands behind the first "def " of a line and its blanks; nothing where that is the end of another word.
std::optional<std::string_view> behindDef(std::string_view line) {
    const std::size_t def = line.find(DEF);
    if (def == std::string_view::npos) return std::nullopt;
    if (def > 0 && (line[def - 1] == '_' || std::isalnum(static_cast<unsigned char>(line[def - 1]))))
        return std::nullopt;
    line.remove_prefix(def + DEF.size());
    while (!line.empty() && isSpace(line.front())) line.remove_prefix(1);
    return line;
}

bool endsFunctionName(char c) { return c == '(' || c == '<' || isSpace(c); }

}  // namespace

bool isFunctionHeaderForName(const Str& line, const Str& name) {
    const std::optional<std::string_view> rest = behindDef(line);
    return rest && rest->starts_with(name) && (rest->size() == name.size() || endsFunctionName((*rest)[name.size()]));
}

std::string_view functionNameInHeader(std::string_view line) {
    const std::string_view rest = behindDef(line).value_or(std::string_view());
    return rest.substr(
        0, static_cast<std::size_t>(std::find_if(rest.begin(), rest.end(), endsFunctionName) - rest.begin()));
}

int findHeaderEndIndex(const StrVec& lines, int start) {
    if (!isIndexOf(lines, start)) return start;
    long depth = 0;
    for (std::size_t i = static_cast<std::size_t>(start); i < lines.size(); i++) {
        if (isCommentOrBlank(quickTrimView(lines[i]))) continue;
        for (const char c : lines[i]) {
            if (c == '(' || c == '[' || c == '<') depth++;
            if (c == ')' || c == ']' || c == '>') depth = std::max(depth - 1, 0L);
            if (c == ':' && depth == 0) return static_cast<int>(i);
        }
    }
    return start;
}

int findIndentedBlockEnd(const StrVec& lines, int headerEnd) {
    if (!isIndexOf(lines, headerEnd)) return headerEnd;
    const int base = indentationWidth(lines[static_cast<std::size_t>(headerEnd)]);
    for (std::size_t i = static_cast<std::size_t>(headerEnd) + 1; i < lines.size(); i++) {
        if (isCommentOrBlank(quickTrimView(lines[i]))) continue;
        if (indentationWidth(lines[i]) <= base) return static_cast<int>(i);
    }
    return static_cast<int>(lines.size());
}

int extendBlockStartForAnnotations(const StrVec& lines, int start) {
    if (!isIndexOf(lines, start)) return start;
    const int base = indentationWidth(lines[static_cast<std::size_t>(start)]);
    int candidate = start;
    for (int i = start - 1; i >= 0; i--) {
        const Str& line = lines[static_cast<std::size_t>(i)];
        const std::string_view trimmed = quickTrimView(line);
        if (!trimmed.empty() && (indentationWidth(line) != base || trimmed.front() != '@')) return candidate;
        candidate = i;
    }
    return candidate;
}

StrVec collectOrderedModulePreludeLines(const StrVec& lines) {
    StrVec prelude;
    bool insideComment = false;
    for (const Str& line : lines) {
        const std::string_view trimmed = quickTrimView(line);
        if (insideComment) {
            insideComment = trimmed.find("*/") == std::string_view::npos;
        } else if (trimmed.starts_with("/*")) {
            insideComment = trimmed.find("*/") == std::string_view::npos;
        } else if (!trimmed.empty() && trimmed.front() != '#' && !trimmed.starts_with(PACKAGE) &&
                   !trimmed.starts_with(IMPORT)) {
            break;
        }
        prelude.push_back(line);
    }
    return prelude;
}

SourceModuleHeader sourceModuleHeaderOf(std::string_view text) {
    SourceModuleHeader header;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string_view line = quickTrimView(text.substr(start, end - start));
        start = end + 1;
        if (line.empty() || line.front() == '#') continue;
        if (line.starts_with(PACKAGE)) {
            header.packageName = quickTrimView(line.substr(PACKAGE.size()));
        } else if (line.starts_with(IMPORT)) {
            header.importedPackages.emplace(quickTrimView(line.substr(IMPORT.size())));
        } else {
            break;
        }
    }
    return header;
}

SourceModuleHeader readSourceModuleHeader(const Str& path) {
    const std::shared_ptr<const Str> text = sourceTextSnapshot(path);
    return text ? sourceModuleHeaderOf(*text) : SourceModuleHeader{};
}

void applySourceModuleHeader(const SourceModuleHeader& header, const ContextPtr& context) {
    if (!context) return;
    if (!header.packageName.empty()) context->setPackageName(header.packageName);
    if (header.importedPackages.size() < 2) {
        for (const Str& package : header.importedPackages) context->addImportedPackageLocal(package);
        return;
    }
    std::vector<const Str*> packages;  // by name: nothing may depend on the order of a hash table
    for (const Str& package : header.importedPackages) packages.push_back(&package);
    std::sort(packages.begin(), packages.end(), [](const Str* a, const Str* b) { return *a < *b; });
    for (const Str* package : packages) context->addImportedPackageLocal(*package);
}

void applySourceModuleHeaderToNode(const SourceModuleHeader& header, const NodePtr& node) {
    visitScopes(node, [&](const ContextPtr& context) { applySourceModuleHeader(header, context); });
}

void applyCompileUnitToNode(const Str& unitFile, const NodePtr& node) {
    if (unitFile.empty()) return;
    visitScopes(node, [&](const ContextPtr& context) { context->setCompileUnitFile(unitFile); });
}

}  // namespace vesk::compiler
