// Types, their texts, and flattened names there and back.
#include "semantics/type_flattening.h"

#include <rapidcheck.h>

#include "semantics/model_session_test.h"

namespace vesk::compiler {

namespace {

constexpr const char* CLASSES = R"(package a.b_c

class Box<T>:
    value: T

class Pair<A, B>:
    first: A

class _T_:
    x: Int

class Outer:
    class Inner<T>:
        x: T
)";

struct FlatteningTest : testing::Test {
    ModelSession session;
    ContextPtr scope = session.load("/app/classes.vk", CLASSES);

    // A random concrete type over the classes above.
    const Type* anyType(int depth) {
        TypeTable& types = session->types();
        int choice = *rc::gen::inRange(0, depth > 0 ? 10 : 4);
        switch (choice) {
            case 0: return types.builtin(TypeKind::Int);
            case 1: return types.builtin(TypeKind::String);
            case 2: return session.type("_T_", scope);
            case 3: return types.builtin(TypeKind::AbstractFloat);
            case 4: return types.array(anyType(depth - 1));
            case 5: return types.nullable(anyType(depth - 1));
            case 6: {
                std::vector<const Type*> parameters;
                for (int count = *rc::gen::inRange(0, 3); count > 0; count--) parameters.push_back(anyType(depth - 1));
                return types.function(parameters, anyType(depth - 1));
            }
            case 7: return types.classType(lookupClass("Outer.Inner", scope), {anyType(depth - 1)});
            case 8: return types.classType(lookupClass("Pair", scope), {anyType(depth - 1), anyType(depth - 1)});
            default: return types.classType(lookupClass("Box", scope), {anyType(depth - 1)});
        }
    }
};

TEST_F(FlatteningTest, TextsOfTypes) {
    struct Case {
        const char *written, *structured, *text;
    };
    for (const Case& each : std::vector<Case>{
             {"Int", "Int", "Int"},
             {"vesk.Int", "Int", "Int"},
             {"vesk.Object", "Object", "Object"},
             {" Box< Int > ", "a.b_c.Box<Int>", "a.b_c.Box__T_Int"},
             {"a.b_c.Box<Int>", "a.b_c.Box<Int>", "a.b_c.Box__T_Int"},
             {"Pair<Int,String>", "a.b_c.Pair<Int, String>", "a.b_c.Pair__T_Int_cString"},
             {"Box<Box<Int>>", "a.b_c.Box<a.b_c.Box<Int>>", "a.b_c.Box__T_a_db_uc_dBox_lInt_g"},
             {"Box<Int>[]?", "a.b_c.Box<Int>[]?", "a.b_c.Box__T_Int[]?"},
             {"Box<Int[]>", "a.b_c.Box<Int[]>", "a.b_c.Box__T_Int_a"},
             {"Box<_T_>", "a.b_c.Box<a.b_c._T_>", "a.b_c.Box__T_a_db_uc_d_uT_u"},
             {"( Int,Box<Int> )->Int?", "(Int, a.b_c.Box<Int>) -> Int?", "(Int, a.b_c.Box__T_Int) -> Int?"},
             {"((Int) -> Int)[]", "((Int) -> Int)[]", "((Int) -> Int)[]"},
             {"((Int) -> Int)?", "((Int) -> Int)?", "((Int) -> Int)?"},
             {"(Int)", "Int", "Int"},
             {"() -> Void", "() -> Void", "() -> Void"},
             {"Int??", "Int?", "Int?"},
             {"Outer.Inner<Int>", "a.b_c.Outer.Inner<Int>", "a.b_c.Outer.Inner__T_Int"},
             {"Nowhere<Int,String>", "Nowhere<Int, String>", "Nowhere<Int, String>"},
             {"Nowhere", "Nowhere", "Nowhere"},
             {"Box", "a.b_c.Box", "a.b_c.Box"},
             {"Box<", "Box<", "Box<"},
             {"### auto typed var ###", "### auto typed var ###", "### auto typed var ###"},
         }) {
        const Type* type = session.type(each.written, scope);
        EXPECT_EQ(type->structured, each.structured) << each.written;
        EXPECT_EQ(type->text, each.text) << each.written;
        EXPECT_EQ(session.type(type->text, scope), type) << each.written;
        EXPECT_EQ(session.type(type->structured, scope), type) << each.written;
    }
}

TEST_F(FlatteningTest, ParametersStayStructured) {
    TypeTable& types = session->types();
    ContextPtr inner = std::make_shared<Context>(scope);
    inner->addGenericTypeParam("T");
    EXPECT_EQ(session.resolve("Box<T>", inner), "a.b_c.Box<T>");
    EXPECT_EQ(session.resolve("Pair<Box<Int>, T>", inner), "a.b_c.Pair<a.b_c.Box__T_Int, T>");
    const Type* open = session.type("(Pair<T, Int>[]?) -> T", inner);
    const StrVec names{"T"}, otherNames{"U"};
    const TypeParameterIndex parameters(names), others(otherNames);
    const std::vector<const Type*> arguments{types.builtin(TypeKind::Long)};
    EXPECT_EQ(types.substitute(open, {&parameters, &arguments}), session.type("(Pair<Long, Int>[]?) -> Long", scope));
    EXPECT_EQ(types.substitute(open, {&others, &arguments}), open);
    EXPECT_EQ(types.substitute(open, {&parameters, &arguments, parameters}), open);
}

// What a name must be, whatever type it was made for.
void checkFlattened(const std::string& text) {
    std::size_t marker = text.find("__T_");
    RC_ASSERT(marker != std::string::npos);
    std::string part = text.substr(marker + 4);
    RC_ASSERT(part.find("__") == std::string::npos);
    RC_ASSERT(text.find("__T_", marker + 1) == std::string::npos);
    RC_ASSERT(part.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") ==
              std::string::npos);
    RC_ASSERT(text.size() <= MAX_FLATTENED_NAME + 40);
}

TEST_F(FlatteningTest, RoundTripThroughTheTable) {
    bool holds = rc::check("a flattened name means the type it was made for", [&] {
        const Type* type = session->types().classType(lookupClass("Pair", scope), {anyType(4), anyType(4)});
        checkFlattened(type->text);
        RC_ASSERT(session->types().unflatten(type->text) == type);
        RC_ASSERT(session.type(type->structured, scope) == type);
        RC_ASSERT(session.resolve(type->text, scope) == type->text);
        StrVec args;
        Str base;
        RC_ASSERT(ClassLoader::resolveConcreteGenericBase(type->text, base) && base == "a.b_c.Pair");
        RC_ASSERT(ClassLoader::resolveConcreteGenericArgs(type->text, args) && args.size() == 2);
        RC_ASSERT(args[0] == type->arguments[0]->text && args[1] == type->arguments[1]->text);
        Str again = "Pair<" + args[0] + ", " + args[1] + ">";
        RC_ASSERT(session.resolve(again, scope) == type->text);
    });
    EXPECT_TRUE(holds);
}

TEST_F(FlatteningTest, NamesFromAnotherProcessAreReadBack) {
    bool holds = rc::check("a session that never made the type understands its name", [&] {
        const Type* type = session->types().classType(lookupClass("Pair", scope), {anyType(2), anyType(2)});
        if (type->text.find("_h") != std::string::npos) return;  // hashed names need the table
        ModelSession other;
        ContextPtr otherScope = other.load("/app/classes.vk", CLASSES);
        RC_ASSERT(other->types().unflatten(type->text) == nullptr);
        RC_ASSERT(other.type(type->text, otherScope)->structured == type->structured);
    });
    EXPECT_TRUE(holds);
}

TEST_F(FlatteningTest, DifferentTypesHaveDifferentNames) {
    bool holds = rc::check("flattening is injective", [&] {
        const Type* first = session->types().classType(lookupClass("Box", scope), {anyType(4)});
        const Type* second = session->types().classType(lookupClass("Box", scope), {anyType(4)});
        RC_ASSERT((first == second) == (first->text == second->text));
    });
    EXPECT_TRUE(holds);
}

TEST_F(FlatteningTest, OnlyOwnTextsAreTakenApart) {
    for (const char* text :
         {"Box", "Box<Int>", "a.b_c.Box__T_", "a.b_c.Box__T_Nowhere", "a.b_c.Box__T_Int_cInt", "a.b_c.Box__T_Int_",
          "a.b_c.Box__T__hfeed", "__vesk_f_id__T_7b71a14cd8afb565", "__vesk_m_Box_get__T_3073447b5e565d6", "__T_Int",
          "a.b_c.Outer__T_Int", "a.b_c.Box__T_Int?", "a.b_c.Box__T_vesk_dInt", ""}) {
        Str base = "kept";
        StrVec args = {"kept"};
        EXPECT_FALSE(ClassLoader::resolveConcreteGenericBase(text, base)) << text;
        EXPECT_FALSE(ClassLoader::resolveConcreteGenericArgs(text, args)) << text;
        EXPECT_EQ(base, "kept");
        EXPECT_EQ(args, StrVec{"kept"});
    }
}

TEST_F(FlatteningTest, GrowingTypesStaySmall) {
    const Type* type = session->types().builtin(TypeKind::Int);
    for (int depth = 0; depth < 300; depth++) {
        type = session->types().classType(lookupClass("Pair", scope), {type, type});
        ASSERT_LE(type->text.size(), MAX_FLATTENED_NAME + 40);
        ASSERT_LE(type->structured.size(), 40000u);
        ASSERT_EQ(session->types().unflatten(type->text), type);
    }
}

TEST_F(FlatteningTest, HostileTextsCostLittle) {
    auto nested = [](std::string_view open, std::string_view close, int times) {
        Str text;
        for (int i = 0; i < times; i++) text += open;
        text += "Int";
        for (int i = 0; i < times; i++) text += close;
        return text;
    };
    for (const Str& text :
         {nested("Box<", ">", 100000), nested("Box<", "", 100000), nested("(", ")", 100000), nested("", "[]", 100000),
          nested("() -> ", "", 100000), nested("a.", "", 100000), Str(1000000, '<'), Str(1000000, ',')}) {
        EXPECT_EQ(session.resolve(text, scope), text);
        EXPECT_NE(ModelSession::thrown([&] { resolveDeclaredType(text, scope, nullptr); }), "");
        EXPECT_FALSE((*scope).isAssignable(text, "Int"));
        ClassLoader::canonicalBaseTypeName(text, scope, nullptr);
        FunctionTypeSignature signature;
        parseFunctionTypeName(text, signature);
    }
}

}  // namespace

}  // namespace vesk::compiler
