// The checker on vesk sources. Mistakes are written where they are expected, as `# error COLUMN: message` at the end of
// the line that causes them (several joined by " && "); a program without such comments must be free of them.
#include <algorithm>
#include <set>

#include "generics/generic_specializer.h"
#include "semantics/model_session_test.h"
#include "semantics/typed_tree.h"

namespace vesk::compiler {

namespace {

// Every body of a file and of the specializations that these ask for.
void checkEverything(CompileSession& session, FileDeclaration& file) {
    resetGenericSpecializerSession();
    ScopedSpecializationUnit unit(file.path);
    auto check = [&](FunctionInstance* instance) {
        if (instance) session.bodyOf(*instance);
    };
    auto tolerant = [&](auto work) {
        try {
            work();
        } catch (const CompilerException& error) {
            session.report(error);
        }
    };
    for (FunctionDeclaration* function : file.functions)
        if (!function->generic) tolerant([&] { check(session.instanceOf(*function)); });
    std::vector<ClassDeclaration*> classes = file.classes;
    for (std::size_t i = 0; i < classes.size(); i++) {
        classes.insert(classes.end(), classes[i]->nested.begin(), classes[i]->nested.end());
        const Type* type = session.types().classType(classes[i], {});
        for (auto& method : classes[i]->methods)
            if (!method->isGeneric() && (method->isStatic || !classes[i]->isGeneric()))
                tolerant([&] { check(session.instanceOf(*method, type)); });
        if (!classes[i]->isInterface && !classes[i]->isGeneric())
            tolerant([&] { check(session.fieldInitializerOf(type)); });
    }
    tolerant([&] { check(session.unitInitializerOf(file)); });
    for (std::size_t done = 0;;) {
        auto registered = session.registrationsOf(file.path, done);
        if (registered.empty()) break;
        done += registered.size();
        for (auto& registration : registered)
            tolerant([&] { check(session.specializedInstance(registration.symbol)); });
    }
}

StrVec expectedMistakes(const Str& source) {
    StrVec expected;
    std::size_t line = 0, start = 0;
    while (start < source.size()) {
        std::size_t end = std::min(source.find('\n', start), source.size());
        line++;
        Str text = source.substr(start, end - start);
        start = end + 1;
        std::size_t comment = text.find("# error ");
        if (comment == Str::npos) continue;
        for (Str rest = text.substr(comment + 2); !rest.empty();) {
            std::size_t next = rest.find(" && error ");
            Str one = rest.substr(0, next);
            rest = next == Str::npos ? Str() : rest.substr(next + 4);
            expected.push_back(std::to_string(line) + ":" + one.substr(6));
        }
    }
    return expected;
}

StrVec reportedMistakes(CompileSession& session) {
    StrVec reported;
    for (const CompilerException& error : session.diagnostics()) {
        const TokenPtr token = error.getToken();
        reported.push_back(std::to_string(token ? token->getLine() : 0) + ":" +
                           std::to_string(token ? token->getColumn() : 0) + ": " + error.what());
    }
    return reported;
}

// Checks a program and compares its mistakes, exactly, with its comments.
void checkProgram(const Str& source) {
    ModelSession session;
    session.load("/app/main.vk", source);
    FileDeclaration* file = session->loadedFile("/app/main.vk");
    ASSERT_NE(file, nullptr) << source;
    checkEverything(*session, *file);
    EXPECT_EQ(reportedMistakes(*session), expectedMistakes(source)) << source;
}

}  // namespace

TEST(Checking, AcceptsWhatIsRight) {
    checkProgram(R"(
class Point:
    x: Int = 0
    y: Int
    static made: Int = 0
    def init(x: Int, y: Int = 2):
        self.x = x
        self.y = y
        Point.made += 1
    def operator+(other: Point) -> Point:
        return Point(self.x + other.x, y = self.y + other.y)
    def operator[](i: Int) -> Int:
        return self.x if i == 0 else self.y
    def operator[]=(i: Int, value: Int) -> Void:
        if i == 0:
            x = value
        else:
            y = value
    def length() -> Double:
        return (x * x + y * y) as Double
    static def origin() -> Point:
        return Point(0, 0)

interface Named:
    def name() -> String
    def shout() -> String:
        return self.name() + "!"

class Animal implements Named:
    kind: String
    def init(kind: String):
        self.kind = kind
    def name() -> String:
        return self.kind

class Dog extends Animal:
    def init():
        super.init("dog")
    def name() -> String:
        return "good " + super.name()

class Box<T>:
    private value: T
    def init(value: T):
        self.value = value
    def get() -> T:
        return self.value
    def swap(other: T):
        var old = self.value
        self.value = other
        return old

def twice(x: Int):
    return x * 2

def describe(n: Named) -> String:
    return n.shout()

def main(args: Int) -> Int:
    p: Point = Point(1)
    p = p + Point.origin()
    p[0] = 3
    p[1] += p[0]
    b: Box<Int> = Box(3)
    return b.get() + twice(p.x)
)" + Str());
}

TEST(Checking, PlacesEveryMistake) {
    for (const char* source : {
             // names
             "def f() -> Int:\n    return missing  # error 12: Unknown name 'missing'\n",
             "def f(count: Int) -> Int:\n    return cuont  # error 12: Unknown name 'cuont' (did you mean 'count'?)\n",
             "def f() -> Void:\n    x = 1  # error 5: Unknown name 'x'\n",
             "def f() -> Void:\n    prnit(1)  # error 5: Unknown function 'prnit' (did you mean 'print'?)\n",
             "def f() -> Int:\n    print(y)  # error 11: 'y' is used before its declaration\n    y: Int = 1\n    "
             "return y\n",
             "def f() -> Void:\n    y: Int = 1\n    y: Int = 2  # error 5: 'y' is already declared in this scope (line "
             "2)\n",
             "def f(a: Int) -> Void:\n    a: Int = 1  # error 5: 'a' is already declared in this scope (line 1)\n",
             "def f(a: Int) -> Void:\n    if a == 1:\n        a: String = \"inner\"\n        print(a)\n",
             // types
             "def f() -> Void:\n    a: Int = \"text\"  # error 14: expected Int, got String\n    b: String = 1  # "
             "error 17: expected String, got Int\n",
             "def f() -> Void:\n    b: Byte = 256  # error 15: 256 does not fit Byte\n    c: Byte = 255\n    d: SByte "
             "= -128\n",
             "def f() -> Void:\n    a: Int = 2147483648  # error 14: 2147483648 does not fit Int\n    b: Int = "
             "-2147483648\n    c: Long = 2147483648\n",
             "def f() -> Void:\n    a: Long = 99999999999999999999  # error 15: The integer literal "
             "99999999999999999999 is too large\n",
             "def f() -> Void:\n    a: Int = 1L  # error 14: expected Int, got Long\n    b: Float = 1\n    c: Float = "
             "1.5\n    d: Float = 1.5f * 2\n",
             "def f(s: String?) -> Void:\n    a: String = s\n    b: String? = null\n    c: String = null  # error 17: "
             "expected String, got Null\n",
             "def f() -> Void:\n    if 1:  # error 8: expected Bool, got Int\n        pass\n    while \"x\":  # error "
             "11: expected Bool, got String\n        pass\n",
             "def f() -> Void:\n    var x = null  # error 13: The type of 'x' is not known from null: write it\n    "
             "print(x)\n",
             "def f() -> Void:\n    var x = missing  # error 13: Unknown name 'missing'\n    print(x + 1)\n    y: Int "
             "= x\n",
             // functions
             "def two(a: Int, b: Int) -> Int:\n    return a + b\n\ndef f() -> Void:\n    two(1)  # error 5: function "
             "two expects 2 arguments (got 1)\n    two(1, 2, 3)  # error 5: function two expects 2 arguments (got 3)\n "
             "   two(1, c = 2)  # error 5: function two has no parameter 'c'\n    two(1, a = 2)  # error 5: The "
             "parameter 'a' of function two is given twice\n    two(1, \"b\")  # error 12: expected Int, got String\n",
             "def f() -> Int:  # error 5: missing return: 'f' returns Int\n    print(1)\n",
             "def f(a: Bool) -> Int:  # error 5: missing return: 'f' returns Int\n    if a:\n        return 1\n",
             "def f(a: Bool) -> Int:\n    if a:\n        return 1\n    else:\n        panic(\"no\")\n",
             "def f() -> Int:\n    while true:\n        pass\n",
             "def f() -> Int:  # error 5: missing return: 'f' returns Int\n    while true:\n        break\n",
             "def f() -> Void:\n    return 1  # error 12: 'f' returns nothing, got Int\n\ndef g() -> Int:\n    return  "
             "# error 5: expected Int, got a return without a value\n",
             "def f(a: Bool):\n    if a:\n        return 1\n    return \"x\"  # error 5: Inconsistent return types: "
             "Int and String\n",
             "def f():  # error 5: Cannot infer the return type of 'f': it depends on itself\n    return f()\n",
             "def f(n: Int):  # error 5: Cannot infer the return type of 'f': it depends on itself\n    return "
             "g(n)\n\ndef g(n: Int):\n    return f(n)\n",
             "def f(a: Int) -> Int:\n    return a\n\ndef f(a: String) -> Int:\n    return f(1.5)  # error 12: No "
             "overload of 'f' accepts (Double)\n",
             "def f(a: Object, b: Int) -> Int:\n    return b\n\ndef f(a: Int, b: Object) -> Int:\n    return f(1, 2)  "
             "# error 12: Ambiguous call of 'f' with (Int, Int)\n",
             "def f() -> Void:\n    x: Int = print(1)  # error 14: expected Int, got a call that returns nothing\n",
             // operators
             "class P:\n    x: Int = 0\n\ndef f(p: P) -> Void:\n    print(p + p)  # error 13: '+' does not take P and "
             "P\n    print(p < p)  # error 13: '<' does not take P and P\n    print(p == p)\n    print(1 && true)  # "
             "error 13: '&&' expected Bool, got Int\n    print(!1)  # error 11: '!' expected Bool, got Int\n    "
             "print(1L + 1uL)  # error 14: '+' has no common type for Long and ULong: convert one of them with 'as'\n  "
             "  print(-\"x\")  # error 11: '-' does not take String\n    print(\"a\" == 1)  # error 15: Cannot compare "
             "String with Int\n",
             "def f(a: ULong, b: UInt) -> Bool:\n    var c = a + 1\n    b += 1\n    d: UInt = b + 1\n    return a > 0 "
             "&& b == 3\n",
             "def f(a: String) -> Void:\n    print(a as Int)  # error 13: Cannot cast String to Int\n    print(1.5 as "
             "Int)\n    o: Object = a\n    print(o as Int)\n    print(o as String)\n",
             // members
             "class A:\n    value: Int = 1\n    def go() -> Void:\n        pass\n\ndef f(a: A) -> Void:\n    a.valeu = "
             "2  # error 7: A has no member 'valeu' (did you mean 'value'?)\n    a.goo()  # error 7: A has no member "
             "'goo' (did you mean 'go'?)\n    print(a.go)  # error 13: 'go' is a method: call it with its arguments\n  "
             "  a.value = \"x\"  # error 15: expected Int, got String\n",
             "class A:\n    private x: Int = 1\n    private def m() -> Void:\n        pass\n    protected y: Int = "
             "2\n\nclass B extends A:\n    def n() -> Int:\n        self.m()  # error 14: Cannot access private method "
             "'m' of A\n        return self.y\n\ndef f(a: A) -> Void:\n    print(a.x)  # error 13: Cannot access "
             "private field 'x' of A\n    print(a.y)  # error 13: Cannot access protected field 'y' of A\n    a.m()  # "
             "error 7: Cannot access private method 'm' of A\n",
             "class A:\n    x: Int = 1\n    static def s() -> Int:\n        return x  # error 16: 'x' is a field of an "
             "object: a static method has none\n    def m() -> Int:\n        return 1\n    static def t() -> Int:\n    "
             "    return self.x  # error 16: There is no 'self' in a static method\n    static def u() -> Int:\n       "
             " return m()  # error 16: 'm' needs an object: it is not static\n",
             // classes
             "interface Shape:\n    def area() -> Double\n    def name() -> String\n\nclass Round implements Shape:\n  "
             "  def name() -> String:\n        return \"round\"\n\ndef f() -> Void:\n    Shape()  # error 5: Cannot "
             "instantiate interface Shape\n    Round()  # error 5: Cannot instantiate Round: it does not implement "
             "'area'\n",
             "class Box<T>:\n    value: T\n    def init(value: T):\n        self.value = value\n\ndef f() -> Void:\n   "
             " a: Box<Int> = Box(1)\n    b: Box<Int> = Box<String>(\"a\")  # error 19: expected Box<Int>, got "
             "Box<String>\n    c: Box<String> = Box<String>(1)  # error 34: expected String, got Int\n    Box()  # "
             "error 5: constructor of Box<T> expects 1 argument (got 0)\n",
             "class Top<T: Comparable<T>>:\n    value: T\n    def init(value: T):\n        self.value = value\n\nclass "
             "Plain:\n    pass\n\ndef f() -> Void:\n    Top(1)\n    Top(Plain())  # error 5: Type Plain does not "
             "satisfy generic constraint vesk.Comparable__T_Plain\n",
             "class Box<T>:\n    static def of(x: Int) -> Int:\n        y: T = x  # error 9: T names a type parameter, "
             "which has no meaning here\n        return x\n",
             "class Outer:\n    class Inner:\n        x: Int = 1\n    static count: Int = 0\n\ndef f() -> Int:\n    "
             "var i = Outer.Inner()\n    Outer.count = i.x\n    Outer.cuont = 1  # error 11: Outer has no member "
             "'cuont' (did you mean 'count'?)\n    return Outer.count\n",
             "def f(x: Int[]) -> Int:\n    return 1\n\ndef f(x: String[][]) -> String:\n    return \"\"\n\ndef g() -> "
             "Int:\n    s: String = f([[\"a\"]])\n    return f([1, 2]) + f([1.5])  # error 24: No overload of 'f' "
             "accepts (vesk.collections.ArrayList<Double>)\n",
             // calls of values
             "def f(g: (Int) -> Int, n: Int) -> Int:\n    g(1, 2)  # error 5: A call of (Int) -> Int expects 1 "
             "arguments (got 2)\n    n(1)  # error 5: A value of type Int cannot be called\n    return g(n)\n",
             "def apply(g: (Int) -> Double) -> Double:\n    return g(1)\n\ndef f(k: Int) -> Double:\n    return "
             "apply((x: Int) => x + k)\n",
             "def f() -> Void:\n    for x in 5:  # error 14: A value of type Int cannot be iterated\n        print(x + "
             "1)\n",
         })
        checkProgram(source);
}

TEST(Checking, FollowsGenericFunctions) {
    for (const char* source : {
             "def pick<T>(a: T, b: T, first: Bool = true) -> T:\n    if first:\n        return a\n    return b\n\ndef "
             "f() -> Int:\n    s: String = pick(\"a\", \"b\", first = false)\n    return pick(1, 2)\n",
             "def pick<T>(a: T, b: T) -> T:\n    return a\n\ndef f() -> Void:\n    a: Int = pick(\"a\", \"b\")  # "
             "error 14: expected Int, got String\n    pick(1, \"b\")  # error 5: Inconsistent generic argument for T\n "
             "   pick(1)  # error 5: function pick expects 2 arguments (got 1)\n    pick<Int, Int>(1, 2)  # error 5: "
             "generic specialization expects 1 type arguments (got 2)\n    pick(null, null)  # error 5: argument has "
             "unknown type\n",
             "def get<T>(a: T) -> Int:\n    return a.size  # error 14: Int has no member 'size'\n\ndef f() -> Int:\n   "
             " return get(1)\n",
             "def get<T>(a: T):\n    return a.size  # error 14: Int has no member 'size'\n\ndef f() -> Int:\n    "
             "return get(1)\n",
             "def orElse<T>(a: T?, b: T) -> T:\n    if a is null:\n        return b\n    return a\n\ndef f() -> "
             "String:\n    return orElse(null, \"x\")\n",
             "def last<T>(items: T[]) -> T:\n    return items[items.length() - 1]\n\ndef f() -> Int:\n    return "
             "last([1, 2, 3])\n",
             "def apply<T, R>(f: (T) -> R, x: T) -> R:\n    return f(x)\n\ndef g() -> String:\n    return apply((n: "
             "Int) => \"n\" + n, 2)\n",
             "def count<T>(n: Int, x: T) -> Int:\n    if n == 0:\n        return 0\n    return 1 + count(n - 1, "
             "x)\n\ndef f() -> Int:\n    return count(3, \"x\")\n",
             "def wrap<T>(x: T) -> Int:\n    var copy = x\n    var again = wrapped(copy)\n    return "
             "again.get()\n\nclass Box<T>:\n    value: T\n    def init(value: T):\n        self.value = value\n    def "
             "get() -> Int:\n        return 1\n\ndef wrapped<T>(x: T) -> Box<T>:\n    return Box<T>(x)\n\ndef f() -> "
             "Int:\n    return wrap(1) + wrap(\"s\")\n",
         })
        checkProgram(source);
}

TEST(Checking, ShowsTheRequestsOfASpecialization) {
    ModelSession session;
    session.load("/app/main.vk",
                 "def inner<T>(a: T) -> Int:\n    return a.size\n\ndef outer<T>(a: T) -> Int:\n    return "
                 "inner(a)\n\ndef f() -> Int:\n    return outer(1)\n");
    checkEverything(*session, *session->loadedFile("/app/main.vk"));
    std::vector<CompilerException> errors = session->diagnostics();
    ASSERT_EQ(errors.size(), 1u);
    StrVec notes;
    for (const DiagnosticNote& note : errors[0].getNotes())
        notes.push_back(std::to_string(note.token->getLine()) + ": " + note.message);
    EXPECT_EQ(notes, (StrVec{"5: in specialization of inner<Int> requested here",
                             "8: in specialization of outer<Int> requested here"}));
}

TEST(Checking, ShowsTheDeclaredSignature) {
    ModelSession session;
    session.load("/app/main.vk",
                 "def two(a: Int, b: String = \"x\") -> Int:\n    return a\n\ndef f() -> Int:\n    return two()\n");
    checkEverything(*session, *session->loadedFile("/app/main.vk"));
    std::vector<CompilerException> errors = session->diagnostics();
    ASSERT_EQ(errors.size(), 1u);
    ASSERT_EQ(errors[0].getNotes().size(), 1u);
    EXPECT_EQ(errors[0].getNotes()[0].message, "declared as two(a: Int, b: String = ...) -> Int");
    EXPECT_EQ(errors[0].getNotes()[0].token->getLine(), 1);
}

// The types of expressions, by the type a variable gets from them.
TEST(Checking, TypesExpressions) {
    struct Case {
        const char* expression;
        const char* type;
    };
    const Str declarations =
        "class Dog:\n    age: Int = 1\n    def operator+(other: Dog) -> Long:\n        return 1\n"
        "def value<T>(x: T) -> T:\n    return x\n\n"
        "def f(i: Int, l: Long, u: UInt, b: Byte, s: Short, fl: Float, d: Double, t: String, o: Object, dog: Dog, n: "
        "Int?, a: Int[]) -> Void:\n";
    for (const Case& each : {
             Case{"1", "Int"},
             {"1 if true else 2.5", "Double"},
             {"1L", "Long"},
             {"1u", "UInt"},
             {"1uL", "ULong"},
             {"0xFF", "Int"},
             {"1.5", "Double"},
             {"1.5f", "Float"},
             {"true", "Bool"},
             {"\"x\"", "String"},
             {"i + l", "Long"},
             {"b + b", "Int"},
             {"b + u", "UInt"},
             {"u + i", "Long"},
             {"s + fl", "Float"},
             {"i + fl", "Double"},
             {"fl + d", "Double"},
             {"b ** b", "Int"},
             {"i / 2", "Int"},
             {"d // 2", "Double"},
             {"-b", "Int"},
             {"-u", "UInt"},
             {"-5", "Int"},
             {"u + 1", "Long"},
             {"fl * 2", "Double"},
             {"i < l", "Bool"},
             {"!true", "Bool"},
             {"t + 1", "String"},
             {"1 + t", "String"},
             {"1 + 2 + t + 3 + 4", "String"},
             {"dog + dog", "Long"},
             {"dog.age", "Int"},
             {"o as Int", "Int"},
             {"i as Byte", "Byte"},
             {"o is Dog", "Bool"},
             {"type(Dog)", "String"},
             {"a[0]", "Int"},
             {"a.length()", "Int"},
             {"n", "Int?"},
             {"i if true else d", "Double"},
             {"t if true else null", "String?"},
             {"value(i)", "Int"},
             {"value<Object>(i)", "Object"},
             {"value(value(t))", "String"},
             {"Int[](3)", "Int[]"},
             {"(x: Int) => x + l", "(Int) -> Long"},
             {"i.toString()", "String"},
             {"t.length()", "Int"},
             {"i.compareTo(2)", "Int"},
             {"Dog()", "Dog"},
             {"t < \"x\"", "Bool"},
             {"n == null", "Bool"},
             {"f", ""},
         }) {
        ModelSession session;
        session.load("/app/main.vk", declarations + "    var result = " + each.expression + "\n");
        FileDeclaration* file = session->loadedFile("/app/main.vk");
        ASSERT_NE(file, nullptr);
        ScopedSpecializationUnit unit(file->path);
        resetGenericSpecializerSession();
        FunctionDeclaration* function = file->functions.back();
        std::unique_ptr<TypedBody> body = session->bodyOf(*session->instanceOf(*function));
        if (!*each.type) continue;
        ASSERT_NE(body, nullptr) << each.expression << ": "
                                 << (session.mistakes().empty() ? "" : session.mistakes()[0]);
        auto* declared = static_cast<const DeclareLocal*>(body->body->statements[0]);
        EXPECT_EQ(declared->variable->type->structured, each.type) << each.expression;
        // The specializer's question gets the same answer, through scopes alone.
        auto& node = static_cast<const DeclarationNode&>(*function->node->getBody()[0]);
        EXPECT_EQ(inferExpressionType(node.getInitializer()), declared->variable->type->text) << each.expression;
    }
}

TEST(Checking, InfersThroughScopes) {
    ModelSession session;
    session.load(
        "/app/main.vk",
        "def f(items: String[]):\n    var n = 1\n    for item in items:\n        var m = item.length() + n\n        "
        "var k = item\n    for i in range(0, 3):\n        var j = i\n    var u = unknown\n    return n\n");
    FunctionDeclaration* function = session->loadedFile("/app/main.vk")->functions[0];
    const NodeVec& body = function->node->getBody();
    auto initializer = [](const NodePtr& node) { return static_cast<const DeclarationNode&>(*node).getInitializer(); };
    const auto& loop = static_cast<const BlockNode&>(*body[1]).getStatements();
    const auto& counted = static_cast<const BlockNode&>(*body[2]).getStatements();
    EXPECT_EQ(inferExpressionType(initializer(loop[0])), "Int");
    EXPECT_EQ(inferExpressionType(initializer(loop[1])), "String");
    EXPECT_EQ(inferExpressionType(initializer(counted[0])), "Int");
    EXPECT_EQ(inferExpressionType(initializer(body[3])), "");
    EXPECT_TRUE(session.mistakes().empty());
}

TEST(Checking, LiteralsTakeTheExpectedType) {
    ModelSession session;
    session.load(
        "/app/main.vk",
        "def f() -> Void:\n    var a = 5\n    var b = 1.5\n    var c = null\n    var d = 5L\n    var e = \"x\"\n");
    const NodeVec& body = session->loadedFile("/app/main.vk")->functions[0]->node->getBody();
    struct Case {
        std::size_t position;
        const char *expected, *actual, *answer;
    };
    for (const Case& each : {Case{0, "Long", "Int", "Long"},
                             {0, "Double", "Int", "Double"},
                             {0, "Byte?", "Int", "Byte"},
                             {0, "String", "Int", "Int"},
                             {1, "Float", "Double", "Float"},
                             {1, "Int", "Double", "Double"},
                             {2, "String?", "Null", "String?"},
                             {2, "String", "Null", "Null"},
                             {3, "Int", "Long", "Long"},
                             {3, "Long", "Long", "Long"},
                             {4, "Object", "String", "String"},
                             {0, "", "Int", "Int"}}) {
        auto node = static_cast<const DeclarationNode&>(*body[each.position]).getInitializer();
        EXPECT_EQ(inferExpectedLiteralType(node, each.expected, each.actual), each.answer)
            << each.position << " as " << each.expected;
    }
}

// Long chains and deep requests end without a crash.
TEST(Checking, SurvivesLongChains) {
    Str sum = "1", text = "\"a\"", both = "true", branches;
    for (int i = 0; i < 100000; i++) {
        sum += " + 1";
        text += " + 1";
        both += " && true";
    }
    for (int i = 0; i < 20000; i++) branches += "    elif n == 2:\n        n = 3\n";
    checkProgram("def f(n: Int) -> String:\n    var a = " + sum + "\n    var b = " + both +
                 "\n    if n == 1:\n        n = 2\n" + branches + "    return " + text + "\n");
}

TEST(Checking, BoundsEndlessSpecialization) {
    ModelSession session;
    session.load("/app/main.vk",
                 "class Box<T>:\n    value: T\n    def init(value: T):\n        self.value = value\n\n"
                 "def grow<T>(x: T) -> Int:\n    return grow(Box<T>(x))\n\ndef f() -> Int:\n    return grow(1)\n");
    checkEverything(*session, *session->loadedFile("/app/main.vk"));
    std::vector<CompilerException> errors = session->diagnostics();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_GE(errors[0].getNotes().size(), 200u);
}

}  // namespace vesk::compiler
