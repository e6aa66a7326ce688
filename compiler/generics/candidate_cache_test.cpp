// Keys, registration, aliases and canonical owners.
#include "generics/candidate_cache.h"

#include "generics/bundles/bundle_paths.h"
#include "generics/method_program_test.h"
#include "generics/typetext/native_binding_registry.h"

namespace vesk::compiler {
namespace {

CachedGenericMethodSpec entry(const Str& symbol, const StrVec& paramTypes, const StrVec& typeArgs,
                              const Str& caller = "") {
    CachedGenericMethodSpec cached;
    cached.spec.symbol = symbol;
    cached.spec.paramTypes = paramTypes;
    cached.typeArgs = typeArgs;
    cached.callerSourceUnit = caller;
    return cached;
}

TEST(CandidateCache, KeysArePlainText) {
    EXPECT_EQ(genericMethodCandidateCacheKey("Box", "map", false, ""), "Box|map|0");
    EXPECT_EQ(genericMethodCandidateCacheKey("Point", "of", true, "/src/app/main.vk"),
              "Point|of|1|caller:/src/app/main.vk");
}

TEST(CandidateCache, HoldsNoEntryTwice) {
    resetGenericSpecializerSession();
    const auto count = [](const Str& key) { return gGenericMethodCandidateCache[key].size(); };
    registerGenericMethodCandidate("Box", "m", false, entry("s", {"Int"}, {"Int"}));
    registerGenericMethodCandidate("Box", "m", false, entry("s", {"Int"}, {"Int"}));
    EXPECT_EQ(count("Box|m|0"), 1u);
    registerGenericMethodCandidate("Box", "m", false, entry("t", {"Int"}, {"Int"}));
    registerGenericMethodCandidate("Box", "m", false, entry("s", {"Long"}, {"Int"}));
    registerGenericMethodCandidate("Box", "m", false, entry("s", {"Int"}, {"Long"}));
    EXPECT_EQ(count("Box|m|0"), 4u);
    EXPECT_EQ(gGenericMethodCandidateCache["Box|m|0"][3].typeArgs, StrVec{"Long"});  // in order of registration
    // Static and instance calls, and callers, never meet.
    registerGenericMethodCandidate("Box", "m", true, entry("s", {"Int"}, {"Int"}));
    registerGenericMethodCandidate("Box", "m", false, entry("s", {"Int"}, {"Int"}, "/u.vk"));
    EXPECT_EQ(count("Box|m|1"), 1u);
    EXPECT_EQ(count("Box|m|0|caller:/u.vk"), 1u);
    EXPECT_EQ(count("Box|m|0"), 4u);
    resetGenericSpecializerSession();
    registerGenericMethodCandidate("Box", "m", false, entry("s", {"Int"}, {"Int"}));
    EXPECT_EQ(count("Box|m|0"), 1u);  // a reset is noticed
    resetGenericSpecializerSession();
}

TEST(CandidateCache, FindsByTypeArguments) {
    resetGenericSpecializerSession();
    for (int i = 0; i < 100; i++) {
        const Str type = "C" + std::to_string(i);
        registerGenericMethodCandidate("Box", "m", false, entry("s" + type, {type}, {type}));
    }
    EXPECT_EQ(genericMethodCandidatesWithTypeArgs("Box|m|0", {"C42"}), std::vector<std::size_t>{42});
    EXPECT_TRUE(genericMethodCandidatesWithTypeArgs("Box|m|0", {"C100"}).empty());
    EXPECT_TRUE(genericMethodCandidatesWithTypeArgs("Box|n|0", {"C1"}).empty());
    // Entries that somebody put there directly are found as well.
    gGenericMethodCandidateCache["Box|m|0"].push_back(entry("x", {"C42"}, {"C42"}));
    EXPECT_EQ(genericMethodCandidatesWithTypeArgs("Box|m|0", {"C42"}), (std::vector<std::size_t>{42, 100}));
    resetGenericSpecializerSession();
}

TEST(CandidateCache, AliasesAreTheConcreteClassesOfTheFamily) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const ContextPtr scope = program.load("main.vk", "import vesk.collections\n");
    const auto aliasKeys = [&](const CachedGenericMethodSpec& cached) {
        gGenericMethodSpecCache.clear();
        registerCommonConcreteCollectionAliases(scope, nullptr, "Box", "m", false, cached);
        StrVec keys;
        for (const auto& each : gGenericMethodSpecCache) keys.push_back(each.first);
        std::sort(keys.begin(), keys.end());
        return keys;
    };
    StrVec expected;
    for (const auto& row : NativeBindingRegistry::nativeBindingTypes()) {
        if (row.family != 2 || !row.isConcreteCollection) continue;
        const Str type = ClassLoader::resolveTypeName(Str(row.qualifiedName) + "<Int>", scope, nullptr);
        expected.push_back(genericMethodBundleCacheKey("Box", "m", false, {type}, {}, "/u.vk"));
    }
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(expected.size(), 6u);
    EXPECT_EQ(aliasKeys(entry("s", {"vesk.collections.List<Int>"}, {"Int"}, "/u.vk")), expected);
    EXPECT_EQ(gGenericMethodSpecCache.begin()->second.spec.symbol, "s");
    EXPECT_TRUE(aliasKeys(entry("s", {}, {})).empty());
    EXPECT_TRUE(aliasKeys(entry("s", {"Int"}, {})).empty());
    EXPECT_TRUE(aliasKeys(entry("s", {"vesk.collections.List<Int>", "Int"}, {})).empty());
    gGenericMethodSpecCache.clear();
    registerCommonConcreteCollectionAliases(nullptr, nullptr, "Box", "m", false,
                                            entry("s", {"vesk.collections.List<Int>"}, {"Int"}));
    EXPECT_TRUE(gGenericMethodSpecCache.empty());
}

TEST(CandidateCache, CanonicalOwners) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    program.load("lib/box.vk", "package lib\nclass Box<T>:\n    pass\nclass Plain:\n    class Inner:\n        pass\n");
    const ContextPtr scope = program.load("main.vk", "import lib\nimport vesk.collections\nclass Own:\n    pass\n");
    const auto canonical = [&](const Str& owner) { return canonicalOwnerClassName(scope, nullptr, owner); };
    EXPECT_EQ(canonical("Own"), "Own");
    EXPECT_EQ(canonical("Plain"), "lib.Plain");
    EXPECT_EQ(canonical("Plain.Inner"), "lib.Plain.Inner");
    EXPECT_EQ(canonical("List"), "vesk.collections.List");
    EXPECT_EQ(structuredTypeText(canonical("Box<Int>")), "lib.Box<Int>");
    EXPECT_NE(canonical("Box<Int>").find("__T_"), Str::npos);
    EXPECT_EQ(canonical(canonical("Box<Own>")), canonical("Box<Own>"));
    EXPECT_EQ(canonicalOwnerClassName(nullptr, nullptr, "lib.Plain"), "lib.Plain");
}

}  // namespace
}  // namespace vesk::compiler
