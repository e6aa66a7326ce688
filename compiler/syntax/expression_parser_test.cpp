// Expressions and types, printed in prefix form.
#include "syntax/parse_check_test.h"
#include "syntax/type_text.h"

namespace vesk::compiler {
namespace {

struct ExpressionCase {
    const char* text;
    const char* tree;
};

void checkExpressions(const std::vector<ExpressionCase>& cases) {
    for (const ExpressionCase& c : cases) EXPECT_EQ(expressionOf(c.text), c.tree) << c.text;
}

TEST(Expressions, Precedence) {
    checkExpressions({
        {"a || b && c", "(|| a (&& b c))"},
        {"a && b || c && d", "(|| (&& a b) (&& c d))"},
        {"!a == b", "(! (== a b))"},
        {"!a && !b || !c", "(|| (&& (! a) (! b)) (! c))"},
        {"!!a", "(! (! a))"},
        {"a < b == c", "(== (< a b) c)"},
        {"a + b < c - d", "(< (+ a b) (- c d))"},
        {"a - b - c", "(- (- a b) c)"},
        {"a + b * c / d // e % f @ g", "(+ a (@ (% (// (/ (* b c) d) e) f) g))"},
        {"a * b as Int", "(* a (call __vesk_cast__Int b))"},
        {"a as Int * b", "(* (call __vesk_cast__Int a) b)"},
        {"-a as Int", "(call __vesk_cast__Int (- a))"},
        {"a as Int as Long", "(call __vesk_cast__Long (call __vesk_cast__Int a))"},
        {"-a ** b", "(- (** a b))"},
        {"a ** b ** c", "(** a (** b c))"},
        {"a ** -b ** c", "(** a (- (** b c)))"},
        {"- -a", "(- (- a))"},
        {"+a - -b", "(- (+ a) (- b))"},
        {"-a.b(1)[2]", "(- (index (call (. a b) 1) 2))"},
        {"(a + b) * c", "(* (+ a b) c)"},
        {"a < b && c > d", "(&& (< a b) (> c d))"},
        {"a is T && b", "(&& (is a 'T') b)"},
        {"a + b is T", "(is (+ a b) 'T')"},
        {"!a is T", "(! (is a 'T'))"},
        {"a is T == b", "(== (is a 'T') b)"},
        {"x is null || y isnot null", "(|| (is x null) (isnot y null))"},
        {"a if b else c", "(if b a c)"},
        {"a if b || c else d if e else f", "(if (|| b c) a (if e d f))"},
        {"a || b if c else d", "(if c (|| a b) d)"},
    });
}

TEST(Expressions, Primaries) {
    checkExpressions({
        {"1_000uL", "1_000uL"},
        {"1.5f", "1.5f"},
        {"true", "true"},
        {"null", "null"},
        {"\"a\\n\\u{41}\"", "\"a\\nA\""},
        {"[]", "(list)"},
        {"[1, [2], a<b]", "(list 1 (list 2) (< a b))"},
        {"{}", "(map)"},
        {"{\"a\": 1, b: {c: d}}", "(map \"a\" 1 b (map c d))"},
        {"{a: b<c}", "(map a (< b c))"},
        {"self.x", "(. self x)"},
        {"super.m(1)", "(call (. super m) 1)"},
    });
}

TEST(Expressions, CallsMembersAndIndexes) {
    checkExpressions({
        {"f()", "(call f)"},
        {"f(1, x = 2, y = a == b)", "(call f 1 (x = 2) (y = (== a b)))"},
        {"f<Int,List<T>>(1)", "(call f<Int, List<T>> 1)"},
        {"a.b.c", "(. (. a b) c)"},
        {"a.b(1).c<Int>(2)", "(call (. (call (. a b) 1) c<Int>) 2)"},
        {"f(1)(2)", "(call-value (call f 1) 2)"},
        {"xs[0](1)", "(call-value (index xs 0) 1)"},
        {"(f)(1)", "(call-value f 1)"},
        {"a[i][j].k", "(. (index (index a i) j) k)"},
        {"Box<Int>(3)", "(call Box<Int> 3)"},
        {"a.b.Box<Int>(3)", "(call (. (. a b) Box<Int>) 3)"},
        {"Box<Int>.of(1)", "(call (. __vesk_typeexpr__Box<Int> of) 1)"},
        {"Box.of<Int>(1)", "(call (. Box of<Int>) 1)"},
        {"a.b.Box< Int >.of(1)", "(call (. __vesk_typeexpr__a.b.Box<Int> of) 1)"},
        {"Box<T>.Inner<U>(1)", "(call (. __vesk_typeexpr__Box<T> Inner<U>) 1)"},
        {"Box<T>.Inner<U>.of()", "(call (. __vesk_typeexpr__Box<T>.Inner<U> of))"},
        {"pick<Int>", "pick<Int>"},
        {"f(\n  a,\n  b\n)", "(call f a b)"},
    });
}

TEST(Expressions, ArraysAndTypes) {
    checkExpressions({
        {"Int[](10)", "(call Int[] 10)"},
        {"T[][](n)", "(call T[][] n)"},
        {"T?[](n)", "(call T?[] n)"},
        {"a.b.Box<Int>[](1)", "(call a.b.Box<Int>[] 1)"},
        {"((Int) -> Bool)[](3)", "(call ((Int) -> Bool)[] 3)"},
        {"Int[](10)[1]", "(index (call Int[] 10) 1)"},
        {"type(Map<K,V>[])", "(call type 'Map<K, V>[]')"},
        {"Application.type(T)", "(call Application.type 'T')"},
        {"vesk.Application.type((A)->B)", "(call vesk.Application.type '(A) -> B')"},
        {"x.type(1)", "(call (. x type) 1)"},
        {"type", "type"},
        {"x as a.b.C<D>?[]", "(call __vesk_cast__a.b.C<D>?[] x)"},
        {"x is (A, B) -> C?", "(is x '(A, B) -> C?')"},
        {"x is ((A) -> B)?", "(is x '((A) -> B)?')"},
        {"x is ((A) -> B)", "(is x '(A) -> B')"},
        {"x is ((A) -> B) -> C", "(is x '((A) -> B) -> C')"},
        {"x is () -> Void", "(is x '() -> Void')"},
        {"x is List<((A,B) -> C)[]>", "(is x 'List<((A, B) -> C)[]>')"},
    });
}

TEST(Expressions, Lambdas) {
    checkExpressions({
        {"() => 1", "(lambda () 1)"},
        {"(x: Int, y: List<T>) => x + y", "(lambda (x: Int, y: List<T>) (+ x y))"},
        {"(x: Int) => (y: Int) => x", "(lambda (x: Int) (lambda (y: Int) x))"},
        {"f((x: Int) => x, 1)", "(call f (lambda (x: Int) x) 1)"},
        {"(f: (Int) -> Bool) => f(1)", "(lambda (f: (Int) -> Bool) (call f 1))"},
        {"(x: Int) => a if b else c", "(lambda (x: Int) (if b a c))"},
        {"((x: Int) => x)(3)", "(call-value (lambda (x: Int) x) 3)"},
        {"(((a)))", "a"},
    });
}

TEST(TypeText, CanonicalSpelling) {
    const struct {
        const char* text;
        const char* canonical;
        const char* mistake;
    } cases[] = {
        {"Map<String,List<Int>>", "Map<String, List<Int>>", ""},
        {" a . b.C < D > ", "a.b.C<D>", ""},
        {"Box<>", "Box<>", ""},
        {"Box<T>.Inner<U>[]?", "Box<T>.Inner<U>[]?", ""},
        {"F<(A,B)->C>", "F<(A, B) -> C>", ""},
        {"F<((A)->B)?>", "F<((A) -> B)?>", ""},
        {"F<((A)->B)>", "F<(A) -> B>", ""},
        {"F<()->(A)->B[]>", "F<() -> (A) -> B[]>", ""},
        {"F<A,,B>", nullptr, "expected a type"},
        {"F<A,>", nullptr, "expected a type"},
        {"F<(A)>", nullptr, "expected '->'"},
        {"F<(A, B)>", nullptr, "expected '->'"},
        {"F<A?"
         "?>",
         nullptr, "'?' stands twice"},
        {"F<A[B]>", nullptr, "expected ']'"},
        {"F<A", nullptr, "expected ',' or '>'"},
        {"F<A>>", nullptr, "'>' is out of place"},
        {"", nullptr, "expected a type"},
    };
    for (const auto& c : cases) {
        const TypeTextResult result = canonicalTypeText(c.text);
        EXPECT_EQ(result.mistake, c.mistake) << c.text;
        if (c.canonical == nullptr) continue;
        EXPECT_EQ(result.text, c.canonical);
        EXPECT_EQ(canonicalTypeText(result.text).text, result.text);
    }
}

}  // namespace
}  // namespace vesk::compiler
