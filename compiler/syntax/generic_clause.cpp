// Is the `<` behind a name a generic clause or a comparison?
// A clause holds names, `. , ? [ ] ( ) ->`, blanks, nested clauses, and line ends behind `<`, `,` or `(`; its brackets are
// balanced and two names do not stand side by side. Example: in `f(a<b, c>d)` the text `<b, c>` is a clause by its
// contents, but a name follows it directly, so it is two comparisons; in `f(a<b, c>(d))` it is one.
// A scan looks at each character once and remembers the answer for every `<` that it meets: the scan of an inner `<` would
// see the same characters up to the same end. So a line of a million `a<` costs one scan.
#include <algorithm>

#include "host/tokens.h"
#include "syntax/characters.h"

namespace vesk::compiler {

std::size_t Tokenizer::clauseEnd(std::size_t open) {
    if (open >= knownUntil_) scanClauses(open);
    while (knownNext_ < knownClauses_.size() && knownClauses_[knownNext_].open < open) knownNext_++;
    return knownNext_ < knownClauses_.size() && knownClauses_[knownNext_].open == open ? knownClauses_[knownNext_].end
                                                                                       : 0;
}

void Tokenizer::scanClauses(std::size_t open) {
    knownClauses_.clear();
    knownNext_ = 0;
    struct OpenBracket {
        char kind;
        std::size_t clause;  // index into knownClauses_, for '<'
    };
    std::vector<OpenBracket> brackets;
    bool afterOperand = true;  // behind a name or a closing bracket: another name cannot follow
    bool lineMayEnd = false;   // behind '<', ',' or '('
    std::size_t i = open;
    for (;; i++) {
        const char c = text_[i];
        if (isBlank(c)) continue;
        if (c == '\n' || (c == '\r' && text_[i + 1] == '\n')) {
            if (!lineMayEnd) break;
            continue;
        }
        if (isNameStart(c)) {
            if (afterOperand) break;
            while (isNamePart(text_[i + 1])) i++;
            afterOperand = true;
            lineMayEnd = false;
            continue;
        }
        if (c == '<') {
            brackets.push_back({'<', knownClauses_.size()});
            knownClauses_.push_back({i, 0});
            afterOperand = false;
            lineMayEnd = true;
        } else if (c == '(' || c == '[') {
            brackets.push_back({c, 0});
            afterOperand = false;
            lineMayEnd = c == '(';
        } else if (c == '>' || c == ')' || c == ']') {
            const char opening = c == '>' ? '<' : c == ')' ? '(' : '[';
            if (brackets.back().kind != opening) break;
            if (c == '>') knownClauses_[brackets.back().clause].end = i + 1;
            brackets.pop_back();
            afterOperand = true;
            lineMayEnd = false;
            if (brackets.empty()) {
                i++;
                break;
            }
        } else if (c == ',' || c == '.' || (c == '-' && text_[i + 1] == '>')) {
            if (c == '-') i++;
            afterOperand = false;
            lineMayEnd = c == ',';
        } else if (c == '?') {
            lineMayEnd = false;
        } else {
            break;
        }
    }
    knownUntil_ = std::max(i, open + 1);
}

// What follows says that `<` and `>` were comparisons.
bool Tokenizer::comparesAfter(std::size_t end) const {
    if (isNamePart(text_[end])) return true;
    while (isBlank(text_[end])) end++;
    const char c = text_[end];
    return isDigit(c) || c == '"' || c == '+' || c == '-';
}

}  // namespace vesk::compiler
