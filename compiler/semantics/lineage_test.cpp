// What classes have from above, against a walk over their lineage; maps that share, against plain ones.
#include "semantics/lineage.h"

#include <algorithm>
#include <map>
#include <random>

#include "semantics/model_session_test.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

TEST(PersistentMapTest, AnswersLikePlainMapsAndLeavesOlderOnesAlone) {
    using Maps = PersistentMaps<std::uint32_t>;
    using Plain = std::map<std::uint32_t, std::uint32_t>;
    std::mt19937 random(7);
    Maps maps;
    struct Both {
        Maps::Map shared = nullptr;
        Plain plain;
    };
    std::vector<Both> all(1);
    for (int step = 0; step < 2000; step++) {
        Both made = all[random() % all.size()];
        if (step % 4 == 3) {
            const Both& other = all[random() % all.size()];
            made.shared = maps.joined(made.shared, other.shared, [](auto a, auto b) { return std::max(a, b); });
            for (auto [key, value] : other.plain) made.plain[key] = std::max(made.plain[key], value);
        } else {
            const auto key = static_cast<std::uint32_t>(random() % 3 ? random() % 200 : random() | 0x80000000U);
            const auto value = static_cast<std::uint32_t>(random() % 1000);
            made.shared = maps.with(made.shared, key, value);
            made.plain[key] = value;
        }
        all.push_back(std::move(made));
    }
    for (const Both& both : all) {
        std::vector<std::pair<std::uint32_t, std::uint32_t>> seen;
        Maps::forEach(both.shared, [&](auto key, auto value) { seen.emplace_back(key, value); });
        EXPECT_EQ(seen, (std::vector<std::pair<std::uint32_t, std::uint32_t>>(both.plain.begin(), both.plain.end())));
        for (auto [key, value] : both.plain) {
            const std::uint32_t* found = Maps::find(both.shared, key);
            ASSERT_NE(found, nullptr);
            EXPECT_EQ(*found, value);
        }
        EXPECT_EQ(Maps::find(both.shared, 12345), nullptr);
    }
}

TEST(PersistentMapTest, JoiningWhatIsSharedMakesNothingNew) {
    PersistentMaps<int> maps;
    auto first = [](int a, int) { return a; };
    PersistentMaps<int>::Map small = nullptr;
    for (std::uint32_t key = 0; key < 100; key++) small = maps.with(small, key, 1);
    const auto large = maps.with(small, 1000, 1);
    EXPECT_EQ(maps.joined(large, small, first), large);
    EXPECT_EQ(maps.joined(small, small, first), small);
    EXPECT_EQ(maps.changed(large, [](int value) { return value; }), large);
}

std::vector<Str> names(const std::vector<const Type*>& types) {
    std::vector<Str> out;
    for (const Type* type : types) out.push_back(type->structured);
    return out;
}

// A hierarchy in which everything is possible: several super interfaces, names declared again, type arguments.
Str randomHierarchy(std::mt19937& random) {
    Str text;
    auto pick = [&](int below) { return static_cast<int>(random() % static_cast<unsigned>(below)); };
    auto body = [&](bool isInterface) {
        Str lines;
        for (const char* name : {"f", "g"})
            if (pick(3) == 0)
                lines += Str("    def ") + name + (pick(4) ? "()" : "<U>(u: U)") + " -> Int:\n        return 1\n";
        if (!isInterface && pick(3) == 0) lines += "    v: Int = 1\n";
        if (pick(4) == 0) lines += "    static s: Int = 1\n";
        return lines.empty() ? Str("    pass\n") : lines;
    };
    auto some = [&](const char* prefix, int count, int most) {
        Str list;
        for (int each = 0; each < count && most > 0; each++)
            if (pick(3) == 0) {
                list += (list.empty() ? "" : ", ") + Str(prefix) + std::to_string(each) + "<T>";
                most--;
            }
        return list;
    };
    for (int i = 0; i < 8; i++) {
        Str above = some("I", i, 3);
        text +=
            "interface I" + std::to_string(i) + "<T>" + (above.empty() ? "" : " extends " + above) + ":\n" + body(true);
    }
    for (int i = 0; i < 6; i++) {
        Str interfaces = some("I", 8, 2);
        text += "class C" + std::to_string(i) + "<T>";
        if (i && pick(3)) text += " extends C" + std::to_string(pick(i)) + "<T>";
        text += (interfaces.empty() ? "" : " implements " + interfaces) + ":\n" + body(false);
    }
    return text;
}

TEST(LineageTest, FindsWhatAWalkFinds) {
    std::mt19937 random(11);
    for (int round = 0; round < 30; round++) {
        ModelSession session;
        const Str text = randomHierarchy(random);
        ContextPtr scope = session.load("/app/f.vk", text);
        std::vector<const Type*> types;
        for (int i = 0; i < 8; i++) types.push_back(session.type("I" + std::to_string(i) + "<Int>", scope));
        for (int i = 0; i < 6; i++) types.push_back(session.type("C" + std::to_string(i) + "<Int>", scope));
        for (const Type* type : types) {
            SCOPED_TRACE(type->structured + "\n" + text);
            ASSERT_NE(ancestryOf(type), nullptr);
            const std::vector<const Type*> lineage = lineageOf(type);
            for (const Type* other : types) {
                const bool isAbove = std::find(lineage.begin(), lineage.end(), other) != lineage.end();
                EXPECT_EQ(superTypeOf(type, other->declaration), isAbove ? other : nullptr) << other->structured;
            }
            for (MemberKind kind : {MemberKind::Method, MemberKind::InterfaceMethod, MemberKind::GenericMethod,
                                    MemberKind::Field, MemberKind::StaticField, MemberKind::FieldInitializer})
                for (const char* name : {"f", "g", "v", "s", "", "missing"}) {
                    if (kind == MemberKind::FieldInitializer && *name) continue;
                    std::vector<const Type*> walked;
                    for (const Type* each : lineage)
                        if (each->declaration && declares(*each->declaration, kind, name)) walked.push_back(each);
                    const std::vector<const Type*> found = allDeclaring(type, kind, name);
                    EXPECT_EQ(names(found), names(walked)) << name;
                    auto nearestClass = std::find_if(walked.begin(), walked.end(),
                                                     [](const Type* each) { return !each->isInterface(); });
                    EXPECT_EQ(classDeclaring(type, kind, name), nearestClass == walked.end() ? nullptr : *nearestClass);
                    std::erase(walked, type);
                    EXPECT_EQ(inherits(type, kind, name), !walked.empty()) << name;
                }
        }
    }
}

TEST(LineageTest, WhatIsNearestHasNoDeclaringTypeInBetween) {
    ModelSession session;
    ContextPtr scope = session.load("/app/f.vk", R"(interface I:
    def f() -> Int
interface J extends I:
    def f() -> Int
interface K extends I:
    pass
class A implements J:
    def f() -> Int:
        return 1
class B extends A implements K:
    pass
)");
    EXPECT_EQ(names(nearestDeclaring(session.type("B", scope), MemberKind::Method, "f")), (StrVec{"A", "I"}));
    EXPECT_EQ(names(nearestDeclaring(session.type("A", scope), MemberKind::Method, "f")), (StrVec{"A"}));
    EXPECT_EQ(names(nearestDeclaringAbove(session.type("A", scope), MemberKind::Method, "f")), (StrVec{"J"}));
    EXPECT_EQ(names(allDeclaring(session.type("B", scope), MemberKind::Method, "f")), (StrVec{"A", "I", "J"}));
}

TEST(LineageTest, ContradictoryArgumentsLeaveTheAnswerToTheWalk) {
    ModelSession session;
    ContextPtr scope = session.load("/app/f.vk", R"(interface I<T>:
    def f() -> Int
interface J extends I<Int>:
    pass
class A implements I<String>, J:
    def f() -> Int:
        return 1
class B extends A:
    pass
)");
    EXPECT_NE(ancestryOf(session.type("J", scope)), nullptr);
    EXPECT_EQ(ancestryOf(session.type("A", scope)), nullptr);
    EXPECT_EQ(ancestryOf(session.type("B", scope)), nullptr);
    EXPECT_EQ(names(allDeclaring(session.type("B", scope), MemberKind::Method, "f")),
              (StrVec{"A", "I<String>", "I<Int>"}));
    EXPECT_EQ(ancestryOf(session.type("Int[]", scope)), nullptr);
}

}  // namespace

}  // namespace vesk::compiler
