// Reads the types inside an identifier token's generic clause, by characters.
#include "syntax/type_text.h"

#include "syntax/characters.h"

namespace vesk::compiler {

void TypeSpelling::addSuffix(std::string_view suffix) {
    if (isFunction) {
        text.insert(0, 1, '(');
        text += ')';
        isFunction = false;
    }
    text += suffix;
}

namespace {

class TypeTextReader {
public:
    explicit TypeTextReader(std::string_view text) : text_(text) {}

    TypeTextResult read() {
        TypeSpelling type;
        if (readType(type)) {
            skipBlanks();
            if (at_ < text_.size()) refuse(std::string("'") + text_[at_] + "' is out of place");
        }
        return {std::move(type.text), std::move(mistake_), type.isFunction};
    }

private:
    void skipBlanks() {
        while (at_ < text_.size() && isBlank(text_[at_])) at_++;
    }
    char next() {
        skipBlanks();
        return at_ < text_.size() ? text_[at_] : '\0';
    }
    bool accept(char c) {
        if (next() != c) return false;
        at_++;
        return true;
    }
    bool acceptArrow() {
        if (next() != '-' || text_.substr(at_, 2) != "->") return false;
        at_ += 2;
        return true;
    }
    bool refuse(std::string mistake) {
        if (mistake_.empty()) mistake_ = std::move(mistake);
        return false;
    }

    bool readType(TypeSpelling& type) {
        if (++depth_ > MAX_TYPE_DEPTH) return refuse("nested too deeply");
        const bool good = next() == '(' ? readParenthesised(type) : readName(type.text);
        if (!good) return false;
        for (;;) {
            if (accept('?')) {
                if (type.text.back() == '?' && !type.isFunction) return refuse("'?' stands twice");
                type.addSuffix("?");
            } else if (accept('[')) {
                if (!accept(']')) return refuse("expected ']'");
                type.addSuffix("[]");
            } else {
                break;
            }
        }
        depth_--;
        return true;
    }

    bool readList(std::string& out, char end) {
        if (accept(end)) return true;
        for (;;) {
            TypeSpelling item;
            if (!readType(item)) return false;
            out += item.text;
            if (accept(end)) return true;
            if (!accept(',')) return refuse(std::string("expected ',' or '") + end + "'");
            out += ", ";
        }
    }

    bool readParenthesised(TypeSpelling& type) {
        at_++;
        std::string inner;
        bool holdsOneFunction = false;
        if (!accept(')')) {
            TypeSpelling first;
            if (!readType(first)) return false;
            holdsOneFunction = first.isFunction;
            inner = std::move(first.text);
            if (!accept(')')) {
                if (!accept(',')) return refuse("expected ',' or ')'");
                inner += ", ";
                holdsOneFunction = false;
                if (next() == ')') return refuse("expected a type");
                if (!readList(inner, ')')) return false;
            }
        }
        type.isFunction = true;
        if (!acceptArrow()) {
            type.text = std::move(inner);
            return holdsOneFunction || refuse("expected '->'");
        }
        TypeSpelling result;
        if (!readType(result)) return false;
        type.text = "(" + inner + ") -> " + result.text;
        return true;
    }

    bool readName(std::string& out) {
        for (;;) {
            if (!isNameStart(next())) return refuse("expected a type");
            const std::size_t begin = at_;
            while (at_ < text_.size() && isNamePart(text_[at_])) at_++;
            out += text_.substr(begin, at_ - begin);
            if (accept('<')) {
                out += '<';
                if (!readList(out, '>')) return false;
                out += '>';
            }
            if (!accept('.')) return true;
            out += '.';
        }
    }

    std::string_view text_;
    std::size_t at_ = 0;
    int depth_ = 0;
    std::string mistake_;
};

}  // namespace

TypeTextResult canonicalTypeText(std::string_view text) { return TypeTextReader(text).read(); }

}  // namespace vesk::compiler
