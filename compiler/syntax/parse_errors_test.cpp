// Every mistake the parser reports, with its place; recovery; and texts made to hurt.
#include <chrono>

#include "syntax/parse_check_test.h"

namespace vesk::compiler {
namespace {

struct ErrorCase {
    const char* text;
    const char* errors;
};

void checkErrors(const std::vector<ErrorCase>& cases) {
    for (const ErrorCase& c : cases) EXPECT_EQ(errorsOf(c.text), Str(c.errors) + "\n") << c.text;
}

// The same for statements, which stand on line 2 behind four blanks.
void checkStatementErrors(const std::vector<ErrorCase>& cases) {
    for (const ErrorCase& c : cases) {
        const Str text = "def f():\n    " + Str(c.text) + "\n";
        EXPECT_EQ(errorsOf(text), Str(c.errors) + "\n") << text;
    }
}

TEST(ParseErrors, Layout) {
    checkErrors({
        {"def f():\n    if a:\n\tpass\n",
         "3:2: mixed indentation: this line does not begin with the blanks of its header's line"},
        {"def f():\n    a()\n\tb()\n",
         "3:2: mixed indentation: this line begins with other blanks than the lines of its block"},
        {"def f():\n    a()\n      b()\n", "3:7: mixed indentation: this line is deeper than the lines of its block"},
        {"def f():\n    if a:\n        b()\n      c()\n",
         "4:7: mixed indentation: no block around this line begins with its blanks"},
        {"def f():\n  if a:\n \t  b()\n",
         "3:5: mixed indentation: this line does not begin with the blanks of its header's line"},
        {"  def f():\n    pass\n", "1:3: mixed indentation: a line at file level begins with no blanks"},
        {"def f():\n    pass\n  def g():\n    pass\n",
         "3:3: mixed indentation: no block around this line begins with its blanks"},
        {"def f(): pass\n", "1:10: the body of this function begins on the next line, not behind the ':'"},
        {"class A: pass\n", "1:10: the body of this class begins on the next line, not behind the ':'"},
        {"def f():\n    if a: b()\n", "2:11: the body of 'if' begins on the next line, not behind the ':'"},
        {"def f():\ndef g():\n    pass\n",
         "2:1: expected an indented body of this function, found a line that is not deeper"},
        {"def f():\n    while a:\n    b()\n",
         "3:5: expected an indented body of 'while', found a line that is not deeper"},
        {"def f():\n", "1:9: expected an indented body of this function, found the end of the file"},
        {"class A:\n# x\n", "1:9: expected an indented body of this class, found the end of the file"},
    });
}

TEST(ParseErrors, FilesAndNames) {
    checkErrors({
        {"import a\npackage b\n", "2:1: 'package' stands before the imports"},
        {"package a\npackage b\n", "2:1: a file has one 'package' line"},
        {"def f():\n    pass\nimport a\n", "3:1: 'import' stands before all declarations"},
        {"package a.\n", "1:11: expected the name of a package, found the end of the file"},
        {"import a b\n", "1:10: unexpected 'b' after the name of the package"},
        {"import a.b<C>\n", "1:10: the name of a package has no generic clause"},
        {"x = 1\n", "1:1: expected 'def', 'class' or 'interface', found 'x'"},
        {"private def f():\n    pass\n", "1:1: 'private' is for members of classes"},
        {"@A\n", "1:1: an annotation stands above a declaration, which begins with the same blanks"},
        {"@A def f():\n    pass\n", "1:4: an annotation stands on a line of its own"},
        {"def __f():\n    pass\n",
         "1:5: '__f' belongs to the compiler: names do not begin with '__' or contain '__T_'"},
        {"class A__T_Int:\n    pass\n",
         "1:7: 'A__T_Int' belongs to the compiler: names do not begin with '__' or contain '__T_'"},
        {"def f(__a: Int):\n    pass\n",
         "1:7: '__a' belongs to the compiler: names do not begin with '__' or contain '__T_'"},
        {"def f(self: Int):\n    pass\n", "1:7: 'self' cannot be declared"},
        {"def class():\n    pass\n", "1:5: expected the name of a function, found 'class'"},
        {"def operator+(a: Int):\n    pass\n", "1:5: 'operator+' is declared in a class"},
    });
}

TEST(ParseErrors, Functions) {
    checkErrors({
        {"def f\n", "1:6: expected '(' and the parameters, found the end of the file"},
        {"def f(a):\n    pass\n", "1:8: expected ':' and the type of the parameter 'a', found ')'"},
        {"def f(a: Int,):\n    pass\n", "1:14: expected the name of a parameter, found ')'"},
        {"def f(a: Int b: Int):\n    pass\n", "1:14: expected ',' or ')' in the parameters, found 'b'"},
        {"def f(a: Int, a: Int):\n    pass\n", "1:15: the parameter 'a' is declared twice"},
        {"def f(*a: Int, *b: Int):\n    pass\n", "1:16: a function has one '*' parameter"},
        {"def f(**a: Int, b: Int):\n    pass\n", "1:17: the '**' parameter stands last"},
        {"def f(*a: Int = 1):\n    pass\n", "1:15: a variadic parameter has no default"},
        {"def f() Int:\n    pass\n", "1:9: expected '->' and the result's type, or ':' before the body, found 'Int'"},
        {"def f() -> Int\n", "1:5: the function 'f' needs a body"},
        {"native def f() -> Int:\n    pass\n", "1:22: a native function has no body"},
        {"native def f<T>(a: T)\n", "1:12: a native generic function needs a written return type"},
        {"def f<>():\n    pass\n", "1:7: expected the name of a type parameter, found '>'"},
        {"def f<T,>():\n    pass\n", "1:9: expected the name of a type parameter, found '>'"},
        {"def f<T, T>():\n    pass\n", "1:10: the type parameter 'T' is declared twice"},
        {"def f<T U>():\n    pass\n", "1:9: expected ',' or '>' in the type parameters, found 'U'"},
        {"def f(a: Int\ndef g():\n    pass\n",
         "1:13: expected ',' or ')' in the parameters, found the end of the line"},
        {"native native def f()\n", "1:8: 'native' stands twice"},
    });
}

TEST(ParseErrors, Classes) {
    checkErrors({
        {"class A extends B, C:\n    pass\n", "1:18: a class extends one class; interfaces follow 'implements'"},
        {"class A implements B extends C:\n    pass\n", "1:22: 'extends' stands before 'implements'"},
        {"interface A implements B:\n    pass\n", "1:13: an interface extends interfaces: write 'extends'"},
        {"class A\n    pass\n", "1:8: expected ':' before the body of this class, found the end of the line"},
        {"class A extends B<\n  C>:\n    pass\n", "2:5: the header of a class stands on one line"},
        {"class A:\n    x\n", "2:6: expected ':' and the type of the field 'x', found the end of the file"},
        {"class A:\n    var x: Int\n", "2:5: a field is written 'name: Type', without 'var'"},
        {"class A:\n    native x: Int\n", "2:5: a field cannot be native"},
        {"class A:\n    private public x: Int\n", "2:13: 'public' contradicts the modifier before it"},
        {"class A:\n    x: Int 1\n", "2:12: unexpected '1' after the field"},
        {"class A:\n    return 1\n", "2:5: expected a field, 'def', 'class' or 'interface', found 'return'"},
        {"class A:\n    def m() -> Int\n", "2:9: the method 'm' of a class needs a body"},
        {"class A:\n    static class B:\n        pass\n", "2:5: 'static' is not for classes"},
        {"class A:\n    native def m():\n        pass\n", "2:19: a native method has no body"},
        {"class A:\n    native def m<T>(a: T)\n", "2:16: a native generic method needs a written return type"},
        {"class A:\n    static def init():\n        pass\n", "2:16: 'init' cannot be static"},
        {"class A:\n    def init<T>():\n        pass\n", "2:9: 'init' has no type parameters of its own"},
        {"class A:\n    def init() -> Int:\n        pass\n", "2:9: 'init' has no return type"},
        {"class A:\n    def operator&&(b: A):\n        pass\n", "2:9: 'operator&&' cannot be declared"},
        {"class A:\n    def operator++():\n        pass\n", "2:9: 'operator++' cannot be declared"},
        {"interface A:\n    x: Int\n", "2:5: an interface has no fields"},
        {"interface A:\n    def init()\n", "2:9: an interface has no 'init'"},
        {"interface A:\n    def m<T>(a: T)\n", "2:9: the generic method 'm' needs a body"},
        {"interface A:\n    static def m()\n", "2:16: the static method 'm' needs a body"},
    });
}

TEST(ParseErrors, Statements) {
    checkStatementErrors({
        {"x = 1 y", "2:11: unexpected 'y' after the statement"},
        {"x: Int = 1 2", "2:16: unexpected '2' after the declaration"},
        {"x:", "2:7: expected a type, found the end of the file"},
        {"var x", "2:10: expected ':' and a type, or '=' and a value, found the end of the file"},
        {"var 1 = 2", "2:9: expected the name of a variable, found '1'"},
        {"return 1 2", "2:14: unexpected '2' after the statement"},
        {"f() = 1", "2:9: cannot assign to this expression: expected a variable, a member or an element before '='"},
        {"1 += 1", "2:7: cannot assign to this expression: expected a variable, a member or an element before '+='"},
        {"self = 1", "2:10: cannot assign to 'self'"},
        {"x = y = 1", "2:11: unexpected '=' after the statement"},
        {"break", "2:5: 'break' outside a loop"},
        {"continue", "2:5: 'continue' outside a loop"},
        {"else:\n        a()", "2:5: 'else' without an 'if' above it"},
        {"if a\n        b()", "2:9: expected ':' before the body of 'if', found the end of the line"},
        {"for 1 in a:\n        b()", "2:9: expected the name of the loop variable, found '1'"},
        {"for i of a:\n        b()", "2:11: expected 'in' behind the loop variable, found 'of'"},
        {"def g():\n        pass", "2:5: functions are declared in a file or a class, not inside a body"},
        {"class A:\n        pass", "2:5: classes are declared in a file or a class, not inside a body"},
        {"import a", "2:5: 'import' stands at the beginning of a file"},
        {"@A", "2:5: an annotation stands above a declaration, not above a statement"},
        {"pass 1", "2:10: unexpected '1' after the statement"},
        {"x<T>: Int = 1", "2:5: the name of a variable has no generic clause"},
    });
}

TEST(ParseErrors, Expressions) {
    checkStatementErrors({
        {"x = ", "2:8: expected an expression, found the end of the file"},
        {"x = )", "2:9: expected an expression, found ')'"},
        {"x = (1", "2:11: expected ')', found the end of the file"},
        {"f(1,)", "2:9: expected an expression, found ')'"},
        {"f(1 2)", "2:9: expected ',' or ')' in the arguments, found '2'"},
        {"f(x = 1, 2)", "2:14: a positional argument cannot follow a named one"},
        {"x = [1, ]", "2:13: expected an expression, found ']'"},
        {"x = {1}", "2:11: expected ':' behind the key, found '}'"},
        {"x = {1: 2,}", "2:15: expected an expression, found '}'"},
        {"x = a[1", "2:12: expected ']' behind the index, found the end of the file"},
        {"x = a.1", "2:11: expected the name of a member behind '.', found '1'"},
        {"x = a.", "2:11: expected the name of a member behind '.', found the end of the file"},
        {"x = a == !b", "2:14: '!' binds looser than the operator before it: put it in parentheses"},
        {"x = -!b", "2:10: '!' binds looser than the operator before it: put it in parentheses"},
        {"x = a if b", "2:15: expected 'else' of the conditional expression, found the end of the file"},
        {"x = (a) => b", "2:11: expected ':' and the type of the parameter 'a', found ')'"},
        {"x = (a: Int, a: Int) => b", "2:18: the parameter 'a' is declared twice"},
        {"x = type(1)", "2:14: expected a type, found '1'"},
        {"x = a as 1", "2:14: expected a type, found '1'"},
        {"x = Int[]", "2:14: expected '(' and the length of the array, found the end of the file"},
        {"x = a ? b : c", "2:13: expected '[]' of an array type, found 'b'"},
        {"x = f(1).A<B>.c()", "2:14: a type cannot stand behind a value"},
        {"x = A<B,,C>(1)", "2:9: malformed generic clause: expected a type"},
        {"x = A<(B)>(1)", "2:9: malformed generic clause: expected '->'"},
        {"x: A?? = 1", "2:10: '?' stands twice"},
        {"x: (A) = 1", "2:12: expected '->' and the result of the function type, found '='"},
        {"x: (A B) -> C = 1", "2:11: expected ',' or ')' in the type, found 'B'"},
        {"x++", "2:8: expected an expression, found the end of the file"},
        {"x = class", "2:9: expected an expression, found 'class'"},
    });
}

TEST(ParseErrors, SeveralInOneRun) {
    EXPECT_EQ(errorsOf("def first() -> Int:\n"
                       "    return )\n"
                       "    x = \"open\n"
                       "\n"
                       "def second( -> Int:\n"
                       "    return ]\n"
                       "\n"
                       "def third() -> Int:\n"
                       "    if a b:\n"
                       "        y = = 1\n"
                       "    else:\n"
                       "        z = = 1\n"
                       "    w = (1 + 2\n"
                       "    return 3 $ 4\n"
                       "\n"
                       "class C:\n"
                       "    m: = 2\n"
                       "    def k():\n"
                       "        f(1,)\n"
                       "    def l():\n"
                       "        pass\n"),
              "2:12: expected an expression, found ')'\n"
              "3:9: this string is not closed: expected '\"' before the end of the line\n"
              "5:13: expected the name of a parameter, found '->'\n"
              "9:10: expected ':' before the body of 'if', found 'b'\n"
              "13:15: expected ')', found the end of the line\n"
              "14:14: unexpected character '$'\n"
              "17:8: expected a type, found '='\n"
              "19:13: expected an expression, found ')'\n");
}

// What stands behind a refused header is passed over with it, up to the next line that may be a declaration.
TEST(ParseErrors, LinesThatLostTheirHeaderAreOneMistake) {
    checkErrors({
        {"def f(:\n    pass\nx = 1\nprint(x)\nreturn x\n", "1:7: expected the name of a parameter, found ':'"},
        {"x = 1\nprint(x)\nif x:\n    y = 2\nelse:\n    y = 3\nfor i in x:\n    pass\n",
         "1:1: expected 'def', 'class' or 'interface', found 'x'"},
        {"def f():\nvar x = 1\nprint(x)\ndef g():\n    pass\n",
         "2:1: expected an indented body of this function, found a line that is not deeper"},
        {"x = 1\nclas A:\n    a: Int\n\nprint(x)\nclas B:\n    b: Int\n",
         "1:1: expected 'def', 'class' or 'interface', found 'x'\n"
         "2:1: expected 'def', 'class' or 'interface', found 'clas'\n"
         "6:1: expected 'def', 'class' or 'interface', found 'clas'"},
        {"x = 1\ndef g():\n    pass\nprint(x)\n",
         "1:1: expected 'def', 'class' or 'interface', found 'x'\n"
         "4:1: expected 'def', 'class' or 'interface', found 'print'"},
        {"class A:\n    a: Int\n    def f(:\n    print(a)\n    return a\n    if a:\n        pass\n    b:\n",
         "3:11: expected the name of a parameter, found ':'\n8:7: expected a type, found the end of the file"},
    });
}

TEST(ParseErrors, GoodPartsSurvive) {
    const ParsedSample sample = parseSample("def a():\n    x = )\n    y()\n\ndef (:\n    pass\n\ndef b():\n    pass\n");
    EXPECT_EQ(sample.errors.size(), 2U);
    EXPECT_EQ(printTree(sample.tree), "def a():\n    (call y)\ndef b():\n    pass\n");
}

TEST(ParseErrors, ThereIsAnEndToReporting) {
    Str text = "def f():\n";
    for (int i = 0; i < 1000; i++) text += "    x = )\n";
    const ParsedSample sample = parseSample(text);
    ASSERT_EQ(sample.errors.size(), 201U);
    EXPECT_EQ(sample.errors.back(), "201:9: too many errors; the rest of the file is not read");
}

// ------------------------------------------------------------------------------------------- hostile texts

Str repeated(const Str& text, int count) {
    Str all;
    all.reserve(text.size() * static_cast<std::size_t>(count));
    for (int i = 0; i < count; i++) all += text;
    return all;
}

Str firstError(const Str& text) {
    const ParsedSample sample = parseSample(text);
    return sample.errors.empty() ? "" : sample.errors.front();
}

constexpr int DEEP = 100'000;

TEST(HostileTexts, NestingIsBounded) {
    const auto statement = [](const Str& text) { return firstError("def f():\n    " + text + "\n"); };
    EXPECT_EQ(statement(repeated("(", 255) + "a" + repeated(")", 255)), "");
    EXPECT_EQ(statement(repeated("(", DEEP) + "a" + repeated(")", DEEP)), "2:261: nested too deeply");
    EXPECT_EQ(statement(repeated("(", DEEP)), "2:261: nested too deeply");
    EXPECT_EQ(statement(repeated("[", DEEP)), "2:261: nested too deeply");
    EXPECT_EQ(statement(repeated("f(", DEEP)), "2:517: nested too deeply");
    EXPECT_EQ(statement(repeated("-", DEEP) + "a"), "2:260: nested too deeply");
    EXPECT_EQ(statement(repeated("!", DEEP) + "a"), "2:260: nested too deeply");
    EXPECT_EQ(statement(repeated("a**", DEEP) + "a").substr(0, 2), "2:");
    EXPECT_EQ(statement(repeated("a if b else ", DEEP) + "c").substr(0, 2), "2:");
    EXPECT_EQ(statement(repeated("() => ", DEEP) + "c").substr(0, 2), "2:");
    EXPECT_EQ(statement("x: " + repeated("A<", DEEP) + "B" + repeated(">", DEEP)), "2:8: nested too deeply");
    EXPECT_EQ(statement("x: " + repeated("(", DEEP) + "B" + repeated(")", DEEP)), "2:264: nested too deeply");
    EXPECT_EQ(statement("x: " + repeated("() -> ", DEEP) + "B").substr(0, 2), "2:");
    EXPECT_EQ(statement(repeated("A<", DEEP) + "B" + repeated(">", DEEP) + "()"), "2:5: nested too deeply");
}

TEST(HostileTexts, BlocksAreBounded) {
    Str blocks = "def f():\n", classes;
    for (int i = 0; i < 2000; i++) {
        blocks += Str(static_cast<std::size_t>(i) + 1, ' ') + "if a:\n";
        classes += Str(static_cast<std::size_t>(i), ' ') + "class A:\n";
    }
    EXPECT_EQ(firstError(blocks), "258:258: nested too deeply");
    EXPECT_EQ(firstError(classes), "257:263: nested too deeply");
}

TEST(HostileTexts, LongChainsAreLegal) {
    const auto parse = [](const Str& text) { return parseSample("def f():\n    " + text + "\n"); };
    for (const char* link : {"+ a ", "&& a ", "< a ", ".b ", ".b() ", "[0] ", "(0) ", "as Int ", "is T "}) {
        const ParsedSample sample = parse("a " + repeated(link, DEEP));
        EXPECT_EQ(joinLines(sample.errors), "") << link;
        EXPECT_GT(printTree(sample.tree).size(), static_cast<std::size_t>(DEEP)) << link;
    }
    const ParsedSample branches = parse("if a:\n        pass\n" + repeated("    elif b:\n        pass\n", DEEP));
    EXPECT_EQ(joinLines(branches.errors), "");
    EXPECT_GT(printTree(branches.tree).size(), static_cast<std::size_t>(DEEP));
}

// Megabytes each; a quadratic parser would take hours.
TEST(HostileTexts, LongLinesTakeLinearTime) {
    constexpr int MEGABYTES = 3'000'000;
    const Str lines[] = {
        repeated("a<", MEGABYTES / 2),
        repeated("a<b>1, ", MEGABYTES / 7),
        repeated("(", MEGABYTES),
        "f(" + repeated("a<(", MEGABYTES / 3),
        "A<B>" + repeated(".A<B>", MEGABYTES / 5) + ".x()",
        "\"" + Str(MEGABYTES, 'x') + "\"",
        "/*" + Str(MEGABYTES, '*'),
        repeated("/* */", MEGABYTES / 5),
        Str(MEGABYTES, '\t') + "x",
        Str(MEGABYTES, '$'),
    };
    for (const Str& line : lines) {
        const auto start = std::chrono::steady_clock::now();
        parseSample("def f():\n    x = " + line + "\n");
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        EXPECT_LT(seconds.count(), 60.0) << line.substr(0, 20);
    }
}

// Every beginning of a text, and every text with one byte changed, is parsed or refused with a place.
TEST(HostileTexts, TruncatedAndDamaged) {
    const Str text =
        "package a.b\n@A(1)\nclass Box<T: C<T> = D> extends B<T> implements I:\n    private x: Map<K, (T) -> V>? = {1: "
        "\"\\n\"}\n"
        "    def m<U>(*a: U, b: Int = 2) -> U[]:\n        if a<b && !c is List<T> || d>e:\n            return U[](1)\n"
        "        for i in [1, 2]:  # c\n            x[i.y<Int>(z = 1)].v **= (q: Int) => 1.5f /* d */\n";
    EXPECT_EQ(joinLines(parseSample(text).errors), "");
    const auto check = [](const Str& damaged) {
        for (const Str& error : parseSample(damaged).errors) EXPECT_NE(error.substr(0, 2), "0:") << damaged;
        try {
            TreeGenerator(SAMPLE_PATH, std::make_shared<Tokenizer>(damaged, SAMPLE_PATH), std::make_shared<Context>(),
                          true)
                .generateTree();
        } catch (const CompilerException& error) {
            EXPECT_NE(error.getToken(), nullptr) << damaged;
        }
    };
    for (std::size_t i = 0; i < text.size(); i++) {
        check(text.substr(0, i));
        for (char c : {'\0', '\n', '"', '(', ')', '<', '>', ' ', '\t', ':', '\xFF', 'x', '/', '*'}) {
            Str damaged = text;
            damaged[i] = c;
            check(damaged);
        }
        check(text.substr(0, i) + text.substr(i + 1));
    }
}

}  // namespace
}  // namespace vesk::compiler
