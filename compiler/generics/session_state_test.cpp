// Units, resets and keys.
#include "generics/session_state.h"

#include <gtest/gtest.h>

#include "generics/sample_program_test.h"

namespace vesk::compiler {
namespace {

TokenPtr tokenOf(const Str& file) {
    const auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "f", 1, 1);
    token->setFilename(file);
    return token;
}

TEST(SessionState, ResetClearsWhatItMayClear) {
    resetGenericSpecializerSession();
    resetGenericSpecializerSession();
    gReplGenericFunctionSpecCache["a"];
    gGenericMethodSpecCache["a"];
    gPreparedGenericMethodBundles.insert("a");
    gGenericMethodCandidateCache["a"];
    gPreloadedGenericMethodManifestOwners.insert("a");
    gSourceTextCache["kept"];
    gGenericMethodBundleLockDepth["kept"] = 1;
    {
        const ScopedSpecializationUnit unit("/a.vk");
        resetGenericSpecializerSession();
        EXPECT_EQ(specializationUnitTag(nullptr, nullptr), "/a.vk");
    }
    EXPECT_TRUE(gReplGenericFunctionSpecCache.empty() && gGenericMethodSpecCache.empty() &&
                gPreparedGenericMethodBundles.empty() && gGenericMethodCandidateCache.empty() &&
                gPreloadedGenericMethodManifestOwners.empty());
    EXPECT_EQ(gSourceTextCache.erase("kept"), 1u);
    EXPECT_EQ(gGenericMethodBundleLockDepth.erase("kept"), 1u);
}

TEST(SessionState, UnitsNestAndFallBack) {
    const auto scope = std::make_shared<Context>();
    EXPECT_EQ(specializationUnitTag(nullptr, nullptr), "");
    EXPECT_EQ(specializationUnitTag(scope, nullptr), "");
    EXPECT_EQ(specializationUnitTag(scope, tokenOf("")), "");
    EXPECT_EQ(specializationUnitTag(scope, tokenOf("/x/./t.vk")), "/x/t.vk");
    scope->setCompileUnitFile("/x/y/../c.vk");
    EXPECT_EQ(specializationUnitTag(std::make_shared<Context>(scope), tokenOf("/t.vk")), "/x/c.vk");
    {
        const ScopedSpecializationUnit outer("/a/../b.vk");
        EXPECT_EQ(specializationUnitTag(scope, nullptr), "/b.vk");
        {
            const ScopedSpecializationUnit inner("");
            EXPECT_EQ(specializationUnitTag(scope, nullptr), "/x/c.vk");
        }
        EXPECT_EQ(gActiveSpecializationUnit, "/b.vk");
    }
    EXPECT_EQ(gActiveSpecializationUnit, "");
}

TEST(SessionState, KnowsInteractiveChunks) {
    for (const Str tag : {"repl_chunk_7", "/tmp/repl_chunk_0042", "C:\\x\\repl_chunk_1"})
        EXPECT_TRUE(isReplChunkUnit(tag)) << tag;
    for (const Str tag : {"repl_chunk_", "repl_chunk_7a", "repl_chunk_7.vk", "", "/repl_chunk_1/x", "xrepl_chunk_1"}) {
        EXPECT_FALSE(isReplChunkUnit(tag)) << tag;
    }
    EXPECT_EQ(replGenericFunctionCacheKey("/src/u.vk", "id", {"Int"}, {}), "/src/u.vk|id|Int");
    EXPECT_EQ(replGenericFunctionCacheKey("/src/u.vk", "id", {"Int"}, {"Long"}), "/src/u.vk|id|Int|<Long>");
    EXPECT_EQ(replGenericFunctionCacheKey("/src/u.vk", "f", {}, {"A", "B"}), "/src/u.vk|f||<A,B>");
}

TEST(SessionState, MakesNodeParams) {
    const TokenPtr token = tokenOf("/t.vk");
    const auto params = toGenericTypeParams({{"T", "Number", ""}, {"U", "", "T"}}, token);
    ASSERT_EQ(params.size(), 2u);
    EXPECT_EQ(params[0].constraint, "Number");
    EXPECT_EQ(params[1].defaultType, "T");
    EXPECT_EQ(params[1].token, token);
    EXPECT_FALSE(params[0].flag);
}

}  // namespace
}  // namespace vesk::compiler
