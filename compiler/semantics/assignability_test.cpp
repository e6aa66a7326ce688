// Assignability: every pair of built-in types against the written rules, classes, interfaces, nullable types.
#include <map>
#include <set>

#include "semantics/model_session_test.h"

namespace vesk::compiler {

namespace {

// The rules as they are written down: direct steps, closed here the slow way.
struct WideningRules {
    std::map<Str, std::set<Str>> targets;

    WideningRules() {
        auto chain = [this](const StrVec& names) {
            for (std::size_t i = 0; i + 1 < names.size(); i++) targets[names[i]].insert(names[i + 1]);
        };
        chain({"SByte", "Short", "Int", "Long"});
        chain({"Byte", "UShort", "UInt", "ULong"});
        chain({"Byte", "Short"});
        chain({"UShort", "Int"});
        chain({"UInt", "Long"});
        for (bool changed = true; changed;) {
            changed = false;
            for (auto& [source, found] : targets)
                for (const Str& middle : std::set<Str>(found))
                    for (const Str& target : targets[middle]) changed |= found.insert(target).second;
        }
        for (const char* integer : {"Byte", "SByte", "Short", "UShort", "Int", "UInt", "Long", "ULong"}) {
            targets[integer].insert("Double");
            targets[integer].insert("AbstractInt");
            targets[integer].insert("Number");
        }
        for (const char* small : {"Short", "UShort", "Byte", "SByte"}) targets[small].insert("Float");
        targets["Float"].insert("Double");
        for (const char* floating : {"Float", "Double"}) {
            targets[floating].insert("AbstractFloat");
            targets[floating].insert("Number");
        }
        targets["AbstractInt"].insert("Number");
        targets["AbstractFloat"].insert("Number");
    }
};

const StrVec BUILTINS = {"Bool",   "Byte",   "SByte",       "Short",         "UShort", "Int",
                         "UInt",   "Long",   "ULong",       "Float",         "Double", "String",
                         "Object", "Number", "AbstractInt", "AbstractFloat", "Void",   "Null"};

struct AssignabilityTest : testing::Test {
    ModelSession session;
    ContextPtr scope = session.load("/app/shapes.vk", R"(package shapes
interface Named:
    def name() -> String

interface Sized extends Named:
    def size() -> Int

interface Source<T>:
    def get() -> T

class Base<T> implements Source<T>:
    value: T

class Derived<A> extends Base<A[]> implements Sized, Comparable<Derived<A>>:
    other: A

class Leaf extends Derived<Int>:
    leaf: Int

class Other:
    x: Int
)");
    bool accepts(const Str& target, const Str& source) { return scope->isAssignable(target, source); }
};

TEST_F(AssignabilityTest, EveryPairOfBuiltInTypes) {
    WideningRules rules;
    for (const Str& target : BUILTINS) {
        for (const Str& source : BUILTINS) {
            bool expected = source == target || (target == "Object" && source != "Void" && source != "Null") ||
                            rules.targets[source].count(target);
            EXPECT_EQ(accepts(target, source), expected) << source << " to " << target;
            bool hasNull = target != "Void" && target != "Null";
            if (!hasNull) continue;
            bool intoNullable = source == "Null" || expected;
            EXPECT_EQ(accepts(target + "?", source), intoNullable) << source << " to " << target << "?";
        }
    }
}

TEST_F(AssignabilityTest, ClassesAndInterfaces) {
    struct Case {
        const char *target, *source;
        bool accepted;
    };
    for (const Case& each : std::vector<Case>{
             {"Base<Int[]>", "Leaf", true},
             {"Base<Int>", "Leaf", false},
             {"Derived<Int>", "Leaf", true},
             {"Derived<Long>", "Leaf", false},
             {"Derived<Object>", "Derived<Int>", false},
             {"Leaf", "Derived<Int>", false},
             {"Source<Int[]>", "Leaf", true},
             {"Source<Int>", "Leaf", false},
             {"Named", "Leaf", true},
             {"Sized", "Leaf", true},
             {"Named", "Sized", true},
             {"Sized", "Named", false},
             {"Comparable<Derived<Int>>", "Leaf", true},
             {"Comparable<Leaf>", "Leaf", false},
             {"Other", "Leaf", false},
             {"Object", "Leaf", true},
             {"Object", "Named", true},
             {"vesk.Object", "Other", true},
             {"Comparable<Int>", "Int", true},
             {"Comparable<Long>", "Int", false},
             {"Comparable<String>", "String", true},
             {"Comparable<Bool>", "Bool", true},
             {"Comparable<Double>", "Double", true},
             {"Comparable<Object>", "Object", false},
             {"shapes.Source<Int[]>", "shapes.Leaf", true},
             {"Leaf?", "Leaf", true},
             {"Leaf", "Leaf?", true},
             {"Named?", "Leaf?", true},
             {"Named", "Leaf?", true},
             {"Leaf?", "Null", true},
             {"Leaf", "Null", false},
             {"Int", "Int?", true},
             {"Int?", "Int", true},
             {"Object", "Int?", true},
             {"Object?", "Int?", true},
             {"Long", "Int?", false},
             {"Long?", "Int?", false},
             {"Int[]", "Int[]", true},
             {"Long[]", "Int[]", false},
             {"Object[]", "Leaf[]", false},
             {"Object", "Int[]", true},
             {"Int[]?", "Int[]", true},
             {"(Int) -> Int", "(Int)->Int", true},
             {"(Int) -> Object", "(Int) -> Int", false},
             {"((Int) -> Int)?", "(Int) -> Int", true},
             {"Object", "(Int) -> Int", true},
             {"Source<T>", "Source<T>", true},
             {"Source<T>", "Base<T>", true},
             {"Source<T>", "Base<U>", false},
             {"Nowhere", "Nowhere", true},
             {"Nowhere", "Elsewhere", false},
             {"Object", "Nowhere", true},
             {"", "Int", false},
             {"Int", "", false},
             {"Object", "", false},
             {"Base<>", "Leaf", false},
             {"Base<", "Leaf", false},
         })
        EXPECT_EQ(accepts(each.target, each.source), each.accepted) << each.source << " to " << each.target;
    EXPECT_TRUE(accepts(session.resolve("Base<Int[]>", scope), session.resolve("Leaf", scope)));
    EXPECT_TRUE(accepts("Source<Int[]>", session.resolve("Derived<Int>", scope)));
}

TEST_F(AssignabilityTest, SuperTypesOfEverySpelling) {
    Str flattened = session.resolve("Derived<Long>", scope);
    for (const Str& text : {Str("Derived<Long>"), Str("shapes.Derived<Long>"), flattened, Str("Derived<Long>?")}) {
        EXPECT_EQ(scope->getClassSuper(text), "shapes.Base__T_Long_a") << text;
        EXPECT_EQ(scope->getImplementedInterfaces(text),
                  (StrVec{"shapes.Sized", "vesk.Comparable__T_shapes_dDerived_lLong_g"}))
            << text;
        EXPECT_TRUE(scope->implementsInterface(text, "Named")) << text;
        EXPECT_TRUE(scope->implementsInterface(text, "Source")) << text;
        EXPECT_FALSE(scope->implementsInterface(text, "Source<Int>")) << text;
        EXPECT_EQ(scope->getClassPackage(text), "shapes") << text;
    }
    EXPECT_EQ(scope->getClassSuper("Derived"), "shapes.Base<A[]>");
    EXPECT_EQ(scope->getClassSuper("Other"), "Object");
    EXPECT_EQ(scope->getClassSuper("Object"), "");
    EXPECT_EQ(scope->getClassSuper("Named"), "");
    EXPECT_EQ(scope->getClassSuper("Nowhere"), "");
    EXPECT_EQ(scope->getClassPackage("Int"), "vesk");
    EXPECT_EQ(scope->getClassPackage("Nowhere"), "");
    EXPECT_EQ(scope->getImplementedInterfaces("Int"), StrVec{"vesk.Comparable__T_Int"});
}

TEST_F(AssignabilityTest, Visibility) {
    ClassDeclaration* base = lookupClass("Base", scope);
    ContextPtr inBase = std::make_shared<Context>(base->node->context());
    ContextPtr inLeaf = std::make_shared<Context>(lookupClass("Leaf", scope)->node->context());
    ContextPtr elsewhere = session.load("/app/else.vk", "package elsewhere\nclass X:\n    x: Int\n");
    struct Case {
        ContextPtr scope;
        MemberVisibility visibility;
        bool allowed;
    };
    for (const Case& each : std::vector<Case>{{inBase, MemberVisibility::Private, true},
                                              {inBase, MemberVisibility::Protected, true},
                                              {inLeaf, MemberVisibility::Private, false},
                                              {inLeaf, MemberVisibility::Protected, true},
                                              {scope, MemberVisibility::Protected, false},
                                              {scope, MemberVisibility::Internal, true},
                                              {elsewhere, MemberVisibility::Internal, false},
                                              {elsewhere, MemberVisibility::Public, true},
                                              {inLeaf, MemberVisibility::Internal, true}})
        EXPECT_EQ(each.scope->canAccessVisibility("shapes.Base<Int>", each.visibility), each.allowed);
    EXPECT_FALSE(inBase->canAccessVisibility("Nowhere", MemberVisibility::Private));
}

TEST_F(AssignabilityTest, EntityIdentities) {
    ContextPtr entities = session.load("/app/entities.vk", R"(package entities
class One:
    @Id
    key: Long

class Inherits extends One:
    x: Int

class None:
    key: Long

class Two:
    @Id
    first: Long
    @Id
    second: Int

class Key:
    a: Int

@IdClass(Key)
class ByClass:
    @Id
    first: Long
    @Id
    second: Int

class Embedded:
    @EmbeddedId
    key: Key
    @Id
    other: Int
)");
    struct Case {
        const char* entity;
        int code;
        const char* identity;
    };
    for (const Case& each : std::vector<Case>{{"One", 1, "Long"},
                                              {"Inherits", 1, "Long"},
                                              {"None", 0, ""},
                                              {"Two", 2, ""},
                                              {"ByClass", 1, "entities.Key"},
                                              {"Embedded", 1, "entities.Key"},
                                              {"Nowhere", 0, ""}}) {
        Str identity;
        EXPECT_EQ(entities->resolveEntityIdentityType(each.entity, identity), each.code) << each.entity;
        EXPECT_EQ(identity, each.identity) << each.entity;
    }
}

}  // namespace

}  // namespace vesk::compiler
