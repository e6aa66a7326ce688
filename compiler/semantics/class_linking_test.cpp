// Mistakes in declarations, class layouts, instances and their symbols, generic methods as the specializer sees them.
#include "semantics/model_session_test.h"

namespace vesk::compiler {

namespace {

// The mistakes of a file whose declarations are checked.
StrVec mistakesOf(const Str& text, const Str& path = "/app/f.vk") {
    ModelSession session;
    session.load(path, text);
    session->checkDeclarations(*session->loadedFile(path));
    return session.mistakes();
}

TEST(DeclarationTest, Mistakes) {
    struct Case {
        const char* text;
        StrVec mistakes;
    };
    for (const Case& each : std::vector<Case>{
             {"class A extends B:\n    x: Int\nclass B extends C:\n    x: Int\nclass C extends A:\n    x: Int\n",
              {"f.vk:1: Cyclic inheritance: class 'A' inherits from itself",
               "f.vk:3: Cyclic inheritance: class 'B' inherits from itself",
               "f.vk:5: Cyclic inheritance: class 'C' inherits from itself"}},
             {"interface A extends A:\n    def f() -> Int\n",
              {"f.vk:1: Cyclic inheritance: class 'A' inherits from itself"}},
             {"class A extends Lost:\n    x: Int\n", {"f.vk:1: Unknown type 'Lost'"}},
             {"class A extends Int:\n    x: Int\n", {"f.vk:1: Type Int cannot be extended"}},
             {"interface I:\n    def f() -> Int\nclass A extends I:\n    x: Int\n",
              {"f.vk:3: I is an interface: write 'implements'"}},
             {"class B:\n    x: Int\nclass A implements B:\n    x: Int\n", {"f.vk:3: Type B is not an interface"}},
             {"interface I:\n    def f() -> Int\nclass A implements I, I:\n    x: Int\n",
              {"f.vk:3: Interface I is named twice"}},
             {"class A:\n    x: Int\nclass A:\n    x: Int\n",
              {"f.vk:3: 'A' is declared twice: here and at /app/f.vk:1"}},
             {"class String:\n    x: Int\n", {"f.vk:1: 'String' is the name of a built-in type"}},
             {"class A:\n    x: Int\n    x: Long\n", {"f.vk:3: Field 'x' is declared twice"}},
             {"class A:\n    x: Lost\n    y: Void\n",
              {"f.vk:2: Unknown type 'Lost'", "f.vk:3: A field cannot have type Void"}},
             {"class A:\n    def f(x: Int) -> Int:\n        return 1\n    def f(y: vesk.Int) -> Int:\n        return "
              "1\n",
              {"f.vk:4: Method 'f' is declared twice with the same parameter types"}},
             {"def f(x: Int) -> Int:\n    return 1\ndef f(y: vesk.Int) -> Int:\n    return 1\n",
              {"f.vk:3: Function 'f' is declared twice with the same parameter types"}},
             {"def f(x: Int) -> Int:\n    return 1\ndef f(y: Long) -> Int:\n    return 1\n", {}},
             {"def f<T>(x: T) -> T:\n    return x\ndef f(y: Int) -> Int:\n    return 1\n",
              {"f.vk:3: Generic function 'f' shares its name with another function of its package: declared at "
               "/app/f.vk:3 and at /app/f.vk:1"}},
             {"def A() -> Int:\n    return 1\nclass A:\n    x: Int\n",
              {"f.vk:3: 'A' is a function of this package already"}},
             {"def f(x: Lost, y: Int) -> Gone:\n    return 1\n",
              {"f.vk:1: Unknown type 'Lost'", "f.vk:1: Unknown type 'Gone'"}},
             {"class A<T>:\n    static x: T\n    static def f(x: T[]) -> Int:\n        return 1\n    static def "
              "g<T>(x: T) -> T:\n        return x\n",
              {"f.vk:2: A static member cannot name the type parameter 'T' of its class",
               "f.vk:3: A static member cannot name the type parameter 'T' of its class"}},
             {"import lost\n", {"f.vk:1: Unknown package 'lost'"}},
             {"class A:\n    def f() -> Int:\n        return 1\nclass B extends A:\n    def f() -> String:\n        "
              "return \"\"\n",
              {"f.vk:5: Method 'f' returns String, but the one it overrides returns Int"}},
             {"class A:\n    def f() -> Object:\n        return 1\nclass B extends A:\n    def f() -> String:\n        "
              "return \"\"\n",
              {}},
             {"class A:\n    def f() -> Int:\n        return 1\nclass B extends A:\n    private def f() -> Int:\n      "
              "  return 1\n",
              {"f.vk:5: Method 'f' is less visible than the one it overrides"}},
             {"class Outer<T>:\n    class Inner:\n        x: T\n", {"f.vk:3: Unknown type 'T'"}},
             {"class A extends B:\n    x: Int\nclass B:\n    x: Int\n", {}},
         })
        EXPECT_EQ(mistakesOf(each.text), each.mistakes) << each.text;
}

TEST(DeclarationTest, OnlyTheLibraryHasNatives) {
    StrVec mistakes = mistakesOf("native def f() -> Int\n");
    ASSERT_EQ(mistakes.size(), 1u);
    EXPECT_EQ(mistakes[0], "f.vk:1: Only the standard library may declare native functions");
    mistakes = mistakesOf("class A:\n    native def f() -> Int\n");
    ASSERT_EQ(mistakes.size(), 1u);
    EXPECT_EQ(mistakes[0], "f.vk:2: Only the standard library may declare native functions");
}

TEST(DeclarationTest, TheStandardLibraryIsSound) {
    ModelSession session;
    for (const char* package : {"vesk", "vesk.collections", "vesk.math", "vesk.data"})
        for (FileDeclaration* file : std::vector<FileDeclaration*>(session->filesOfPackage(package))) {
            EXPECT_TRUE(file->isStandardLibrary);
            session->checkDeclarations(*file);
        }
    EXPECT_EQ(session.mistakes(), StrVec{});
    EXPECT_FALSE(session->filesOfPackage("vesk").empty());
}

TEST(DeclarationTest, LongChainsOfClasses) {
    Str text;
    for (int i = 0; i < 20000; i++)
        text += "class C" + std::to_string(i) + " extends C" + std::to_string(i + 1) + ":\n    pass\n";
    ModelSession session;
    ContextPtr scope = session.load("/app/chain.vk", text + "class C20000:\n    x: Int\n");
    session->linkSuperTypes(*lookupClass("C0", scope));
    EXPECT_EQ(scope->getClassSuper("C19999"), "C20000");
    EXPECT_TRUE(scope->isAssignable("C20000", "C0"));
    EXPECT_FALSE(scope->isAssignable("C0", "C20000"));
}

// "p.Shown: Base.show Shown.twice" for each interface that the class has a table of its own for.
StrVec tablesOf(const ClassLayout& layout) {
    StrVec tables;
    for (const InterfaceTable& table : layout.interfaces()) {
        Str line = table.interface->structured + ":";
        for (const FunctionInstance* method : table.methods) line += " " + (method ? method->shownName() : "-");
        tables.push_back(line);
    }
    return tables;
}

TEST(LayoutTest, FieldsAndVtables) {
    ModelSession session;
    ContextPtr scope = session.load("/app/f.vk", R"(package p
interface Shown:
    def show() -> String
    def twice() -> String:
        return self.show() + self.show()

interface Sized extends Shown:
    def size(x: Int) -> Int

class Base<T> implements Shown:
    value: T
    static made: Int = 0
    def init(value: T):
        self.value = value
    def get() -> T:
        return self.value
    def put(x: T) -> Void:
        self.value = x
    def show() -> String:
        return "base"
    private def secret() -> Int:
        return 1
    def map<U>(x: U) -> U:
        return x

class Derived extends Base<Int> implements Sized:
    extra: String = "x"
    def put(x: Int) -> Void:
        self.value = x
    def put(x: String) -> Void:
        self.extra = x
    def size(x: Int) -> Int:
        return x
    def toString() -> String:
        return "derived"

class Open implements Sized:
    x: Int
)");
    CompileSession& compile = *session;
    const ClassLayout& derived = compile.layoutOf(session.type("Derived", scope));
    const ClassLayout& base = compile.layoutOf(session.type("Base<Int>", scope));
    const ClassLayout& object = compile.layoutOf(compile.types().builtin(TypeKind::Object));
    EXPECT_EQ(derived.super, &base);
    EXPECT_EQ(base.super, &object);
    EXPECT_EQ(object.super, nullptr);
    auto names = [](const ClassLayout& layout) {
        StrVec out;
        for (std::size_t slot = 0; slot < layout.slotCount; slot++) {
            const FunctionInstance* method = layout.methodAt(slot);
            out.push_back(method ? method->shownName() : "-");
        }
        return out;
    };
    EXPECT_EQ(names(object), (StrVec{"Object.toString", "Object.equals", "Object.hashCode"}));
    EXPECT_EQ(names(base), (StrVec{"Object.toString", "Object.equals", "Object.hashCode", "Base<Int>.get",
                                   "Base<Int>.put", "Base<Int>.show"}));
    EXPECT_EQ(names(derived), (StrVec{"Derived.toString", "Object.equals", "Object.hashCode", "Base<Int>.get",
                                      "Derived.put", "Base<Int>.show", "Derived.put", "Derived.size"}));
    for (std::size_t i = 0; i < derived.slotCount; i++) EXPECT_EQ(derived.methodAt(i)->slot, static_cast<int>(i));
    EXPECT_EQ(derived.methodAt(derived.slotCount), nullptr);
    ASSERT_EQ(base.fields.size(), 1u);
    EXPECT_EQ(base.fields[0].name, "value");
    EXPECT_EQ(base.fields[0].type, compile.types().builtin(TypeKind::Int));
    ASSERT_EQ(derived.fields.size(), 1u);
    EXPECT_EQ(derived.inheritedFields, 1u);
    EXPECT_EQ(derived.fields[0].name, "extra");
    EXPECT_EQ(derived.fields[0].index, 1u);
    EXPECT_FALSE(derived.isOnDemand);
    EXPECT_TRUE(base.isOnDemand);
    EXPECT_FALSE(derived.isAbstract);
    EXPECT_EQ(tablesOf(base), (StrVec{"p.Shown: Base<Int>.show Shown.twice"}));
    EXPECT_EQ(tablesOf(derived), (StrVec{"p.Sized: Derived.size"}));  // the other one is that of Base
    const ClassLayout& open = compile.layoutOf(session.type("Open", scope));
    EXPECT_TRUE(open.isAbstract);
    EXPECT_EQ(open.interfaces().at(0).methods.at(0), nullptr);
    EXPECT_TRUE(compile.layoutOf(session.type("Sized", scope)).isInterface);
    EXPECT_EQ(derived.symbol, "vesk_c_p.Derived");
    EXPECT_EQ(base.symbol, "vesk_c_p.Base__T_Int");
    EXPECT_EQ(session.mistakes(), StrVec{});
    // The private method and the generic one are bound when the program is compiled.
    for (const auto& method : lookupClass("Base", scope)->methods)
        if (method->name == "secret") {
            EXPECT_EQ(compile.instanceOf(*method, base.type)->slot, -1);
        }
    EXPECT_NE(ModelSession::thrown([&] { compile.layoutOf(session.type("Base", scope)); }), "");
    EXPECT_NE(ModelSession::thrown([&] { compile.layoutOf(session.type("Int[]", scope)); }), "");
    EXPECT_EQ(compile.layoutOf(compile.types().builtin(TypeKind::Int)).interfaces().at(0).interface->structured,
              "vesk.Comparable<Int>");
}

TEST(LayoutTest, AnInterfaceNamedAgainIsAnsweredAgainWhereDefaultsCompete) {
    ModelSession session;
    const ContextPtr scope = session.load("/app/f.vk", R"(package p
interface Left:
    def f() -> Int:
        return 1
    def g() -> Int:
        return 1
interface Right:
    def f() -> Int:
        return 2
interface Nearer extends Right:
    def h() -> Int:
        return 3
class A implements Left, Right:
    pass
class B extends A implements Right:
    pass
class C extends A implements Nearer:
    pass
class D extends A:
    pass
)");
    const auto tables = [&](const char* name) { return tablesOf(session->layoutOf(session.type(name, scope))); };
    EXPECT_EQ(tables("A"), (StrVec{"p.Left: Left.f Left.g", "p.Right: Left.f"}));
    EXPECT_EQ(tables("B"), (StrVec{"p.Right: Right.f", "p.Left: Right.f Left.g"}));
    EXPECT_EQ(tables("C"), (StrVec{"p.Nearer: Nearer.h", "p.Right: Right.f", "p.Left: Right.f Left.g"}));
    EXPECT_EQ(tables("D"), StrVec{});
}

TEST(InstanceTest, SymbolsAndInitializers) {
    ModelSession session;
    ContextPtr scope = session.load("/app/f.vk", R"(package p
def area(x: Int, y: Double = 1.0) -> Double:
    return y
def area(x: String) -> Double:
    return 1.0
def nothing():
    pass
def moved(x: Int, y: Double, z: Double = y + 1.0) -> Double:
    return z
class Box<T>:
    value: T
    note: String = "n"
    static made: Int = 0
    def init(value: T):
        self.value = value
    def get() -> T:
        return self.value
    static def of(x: Int) -> Box<Int>:
        return Box<Int>(x)
class Plain:
    x: Int
)");
    CompileSession& compile = *session;
    auto area = lookupFunctions("area", scope);
    ASSERT_EQ(area.size(), 2u);
    FunctionInstance* first = compile.instanceOf(*area[0]);
    EXPECT_EQ(first, compile.instanceOf(*area[0]));
    EXPECT_EQ(first->symbol, "vesk_f_p.area__P_Int_cDouble");
    EXPECT_EQ(compile.instanceOf(*area[1])->symbol, "vesk_f_p.area__P_String");
    EXPECT_EQ(area[1]->overloadIndex, 2u);
    FunctionInstance* nothing = compile.instanceOf(*lookupFunctions("nothing", scope)[0]);
    EXPECT_EQ(nothing->symbol, "vesk_f_p.nothing");
    EXPECT_EQ(nothing->returnType, nullptr);
    FunctionInstance* defaultValue = compile.defaultValueOf(*first, 1);
    EXPECT_EQ(defaultValue->symbol, "vesk_f_p.area__P_Int_cDouble.default1");
    EXPECT_EQ(defaultValue->parameterTypes.size(), 0u);  // it names none of the earlier parameters
    EXPECT_EQ(defaultValue->returnType, compile.types().builtin(TypeKind::Double));
    EXPECT_EQ(compile.defaultValueOf(*first, 1), defaultValue);
    FunctionInstance* moved = compile.instanceOf(*lookupFunctions("moved", scope)[0]);
    const FunctionInstance* naming = compile.defaultValueOf(*moved, 2);
    EXPECT_EQ(naming->parameterTypes, std::vector{compile.types().builtin(TypeKind::Double)});
    const Type* box = session.type("Box<Long>", scope);
    ClassDeclaration* declaration = box->declaration;
    auto instance = [&](const Str& name) {
        for (const auto& method : declaration->methods)
            if (method->name == name) return compile.instanceOf(*method, box);
        return static_cast<FunctionInstance*>(nullptr);
    };
    EXPECT_EQ(instance("init")->symbol, "vesk_m_p.Box__T_Long.init__P_Long");
    EXPECT_EQ(instance("init")->kind, InstanceKind::Constructor);
    EXPECT_TRUE(instance("init")->returnType->isVoid());
    EXPECT_EQ(instance("get")->symbol, "vesk_m_p.Box__T_Long.get");
    EXPECT_EQ(instance("get")->linkage, InstanceLinkage::OnDemand);
    EXPECT_EQ(instance("get")->returnType, compile.types().builtin(TypeKind::Long));
    EXPECT_EQ(instance("get")->shownName(), "Box<Long>.get");
    EXPECT_EQ(instance("of")->symbol, "vesk_m_p.Box.of__P_Int");
    EXPECT_EQ(instance("of")->linkage, InstanceLinkage::Unit);
    EXPECT_FALSE(instance("of")->hasSelf);
    ASSERT_NE(compile.fieldInitializerOf(box), nullptr);
    EXPECT_EQ(compile.fieldInitializerOf(box)->symbol, "vesk_i_p.Box__T_Long");
    EXPECT_EQ(compile.fieldInitializerOf(session.type("Plain", scope)), nullptr);
    EXPECT_NE(compile.unitInitializerOf(*declaration->file), nullptr);
    EXPECT_EQ(compile.unitInitializerOf(*compile.filesOfPackage("vesk").front()), nullptr);
    EXPECT_EQ(declaration->fields.at(2)->symbol, "vesk_s_p.Box.made");
    FunctionInstance* print = compile.instanceOf(*lookupFunctions("print", scope).at(0));
    EXPECT_EQ(print->symbol, "vesk_print");
    EXPECT_EQ(print->linkage, InstanceLinkage::Native);
    const Type* text = compile.types().builtin(TypeKind::String);
    for (const auto& method : declarationOf(text)->methods)
        if (method->name == "length") {
            EXPECT_EQ(compile.instanceOf(*method, text)->symbol, "vesk_String_length");
        }
    FunctionInstance* check = compile.instanceOf(*lookupFunctions("assert", scope).at(0));
    EXPECT_EQ(compile.defaultValueOf(*check, 1)->linkage, InstanceLinkage::OnDemand);
    EXPECT_EQ(session.mistakes(), StrVec{});
}

TEST(GenericMethodTest, OverloadsOfOwnerAndSuperTypes) {
    ModelSession session;
    ContextPtr scope = session.load("/app/f.vk", R"(package p
interface Far<T>:
    def make<U>(x: U, y: T) -> U:
        return x
    def only<V>(x: V) -> V:
        return x

interface Near<T> extends Far<T>:
    def near<V>(x: V) -> T[]

class Base<T>:
    def map<U>(f: (T) -> U, more: Int = 1) -> Box<U>:
        return null
    def map<A, B>(x: A, y: B) -> T:
        return null
    def make<Z>(x: Z, y: T) -> Z:
        return x

class Box<T: Comparable<T>> extends Base<T[]> implements Far<T>:
    private def map<W>(g: (T[]) -> W, more: Int = 2) -> Box<W>:
        return null
    static def of<T>(*items: T, **named: Int) -> Box<T>:
        return null
    def plain() -> Int:
        return 1
)");
    auto lines = [&](const Str& owner, const Str& name) {
        StrVec out;
        auto infos = name.empty() ? scope->getAllGenericMethods(owner) : scope->getGenericMethods(owner, name);
        for (const GenericMethodInfo& info : infos) {
            Str line = info.ownerClass + "." + info.name + "#" + std::to_string(info.overloadIndex) + "(";
            for (const Str& type : info.paramTypes) line += type + ";";
            out.push_back(line + ")" + info.returnType + ":" + std::to_string(info.declarationLine));
        }
        return out;
    };
    // Exactly what the class declares, in order.
    StrVec expected = {"p.Box__T_Int.map#1((Int[]) -> W;Int;)p.Box<W>:20"};
    EXPECT_EQ(lines("Box<Int>", "map"), expected);
    EXPECT_EQ(lines("p.Box__T_Int", "map"), expected);
    EXPECT_EQ(lines("Box<Int>?", "map"), expected);
    EXPECT_EQ(lines("Base<Int>", "map"),
              (StrVec{"p.Base__T_Int.map#1((Int) -> U;Int;)p.Box<U>:12", "p.Base__T_Int.map#2(A;B;)Int:14"}));
    EXPECT_EQ(lines("Box<Int>", "make"), StrVec());
    EXPECT_EQ(lines("Near<Int>", "only"), StrVec());
    EXPECT_EQ(lines("Far<Int>", ""), (StrVec{"p.Far__T_Int.make#1(U;Int;)U:3", "p.Far__T_Int.only#1(V;)V:5"}));
    EXPECT_EQ(lines("Box", "of"),
              (StrVec{"p.Box.of#1(vesk.collections.ArrayList<T>;vesk.collections.Map__T_String_cInt;)p.Box<T>:22"}));
    EXPECT_TRUE(scope->isGenericMethod("Box<Int>", "only"));
    EXPECT_FALSE(scope->isGenericMethod("Box<Int>", "plain"));
    EXPECT_FALSE(scope->isGenericMethod("Nowhere", "map"));
    EXPECT_TRUE(scope->isGenericMethod("Box<Q>", "map"));
    auto of = scope->getGenericMethods("Box", "of").at(0);
    EXPECT_TRUE(of.isStatic && of.isVariadic && of.isNamedVariadic);
    EXPECT_EQ(of.variadicIndex, 0);
    EXPECT_EQ(of.namedVariadicIndex, 1);
    auto map = scope->getGenericMethods("Box<Int>", "map").at(0);
    EXPECT_EQ(map.visibility, MemberVisibility::Private);
    EXPECT_EQ(map.paramHasDefault, (std::vector<bool>{false, true}));
    EXPECT_FALSE(map.defaultValueTokens.at(1).empty());
    EXPECT_EQ(map.sourceFile, "/app/f.vk");
    EXPECT_GT(map.nextCodeLine, map.declarationLine);
    EXPECT_TRUE(scope->getGenericMethods("Int", "map").empty());
    EXPECT_EQ(scope->getAllGenericMethods("Box<Int>").size(), 2u);
}

TEST(GenericMethodTest, OwnersNearestFirst) {
    ModelSession session;
    ContextPtr scope = session.load("/app/f.vk", R"(package p
interface Far<T>:
    def f<U>(x: U, y: T) -> U:
        return x

interface Near<T> extends Far<T>:
    def f<U>(x: U, y: T) -> U:
        return x

interface Other:
    def g<U>(x: U) -> U:
        return x

class Base<T> implements Other:
    def f<U>(x: U) -> U:
        return x
    static def made<U>(x: U) -> U:
        return x

class Box<T> extends Base<T[]> implements Far<T>, Near<T>:
    def plain() -> Int:
        return 1

class Last<T> extends Box<T>:
    def f<U>(x: U) -> U:
        return x
)");
    auto owners = [&](const Str& owner, const Str& method) {
        StrVec out;
        const StrVec places{"self ", "class ", "interface "};
        for (const GenericMethodOwner& each : scope->getGenericMethodOwners(owner, method))
            out.push_back(places[static_cast<std::size_t>(each.place)] + each.name);
        return out;
    };
    EXPECT_EQ(owners("Box<Int>", "f"),
              (StrVec{"class p.Base__T_Int_a", "interface p.Far__T_Int", "interface p.Near__T_Int"}));
    EXPECT_EQ(owners("Last<Int>", "f"), (StrVec{"self p.Last__T_Int", "class p.Base__T_Int_a", "interface p.Far__T_Int",
                                                "interface p.Near__T_Int"}));
    EXPECT_EQ(owners("Near<Int>", "f"), (StrVec{"self p.Near__T_Int", "interface p.Far__T_Int"}));
    EXPECT_EQ(owners("Last<Int>", "g"), StrVec{"interface p.Other"});
    EXPECT_EQ(owners("Box", "made"), StrVec{"class p.Base"});
    EXPECT_EQ(owners("Box<Int>", "plain"), StrVec());
    EXPECT_EQ(owners("Nowhere", "f"), StrVec());
    EXPECT_EQ(owners("Box<Int>", "").size(), 4u);
}

TEST(GenericFunctionTest, Declarations) {
    ModelSession session;
    ContextPtr scope = session.load("/app/f.vk",
                                    "package p\n\n@Pure\ndef pick<T: Comparable<T>, U = Int>(a: T, b: T = a, *rest: U) "
                                    "-> T:\n    return a\n\ndef plain(x: Int) -> Int:\n    return x\n");
    ContextPtr other = session.load("/app/g.vk", "import p\n");
    EXPECT_TRUE(scope->isGenericFunction("pick"));
    EXPECT_TRUE(other->isGenericFunction("pick"));
    EXPECT_TRUE(other->isGenericFunction("p.pick"));
    EXPECT_FALSE(scope->isGenericFunction("plain"));
    EXPECT_FALSE(session->rootContext()->isGenericFunction("pick"));
    auto info = other->getGenericFunction("pick");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->sourceFile, "/app/f.vk");
    EXPECT_EQ(info->declarationLine, 4);
    EXPECT_EQ(info->nextCodeLine, 7);
    ASSERT_EQ(info->typeParams.size(), 2u);
    EXPECT_EQ(info->typeParams[0].constraint, "Comparable<T>");
    EXPECT_EQ(info->typeParams[1].defaultType, "Int");
    EXPECT_EQ(info->paramTypes, (StrVec{"T", "T", "vesk.collections.ArrayList<U>"}));
    EXPECT_EQ(info->variadicIndex, 2);
    EXPECT_EQ(info->returnType, "T");
    EXPECT_EQ(scope->getGenericFunction("plain"), nullptr);
}

TEST(LongTypeTexts, MeanSomethingElseBesideATypeParameterCalledLikeAPart) {
    ModelSession session;
    const ContextPtr scope = session.load("/app/f.vk", "def f() -> Void:\n    pass\n");
    std::string text = "(Int";
    for (int i = 0; i < 40; i++) text += ", Int";
    text += ") -> Int";
    const Type* plain = resolveType(text, scope);
    ASSERT_EQ(session->types().withLongText(text), plain);
    EXPECT_TRUE(plain->isConcrete);
    const auto inside = std::make_shared<Context>(scope);
    inside->addGenericTypeParam("Int");
    EXPECT_FALSE(resolveType(text, inside)->isConcrete);
    EXPECT_EQ(resolveType(text, scope), plain);
}

}  // namespace

}  // namespace vesk::compiler
