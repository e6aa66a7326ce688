// Completing entity and identity types.
#include "generics/inference/entity_identity.h"

#include <gtest/gtest.h>

#include "generics/sample_program_test.h"

namespace vesk::compiler {
namespace {

const Str ENTITIES =
    "package shop\n"
    "\n"
    "class Customer:\n"
    "    @Id\n"
    "    key: Long\n"
    "    name: String\n"
    "class Torn:\n"
    "    @Id\n"
    "    a: Long\n"
    "    @Id\n"
    "    b: Int\n"
    "class Keyless:\n"
    "    name: String\n";

TEST(EntityIdentity, Completes) {
    SampleProgram program;
    const ContextPtr scope = program.load("shop/main.vk", ENTITIES);
    struct Case {
        Str owner, method;
        StrVec written, completed;
    };
    const Str manager = "vesk.data.EntityManager", policy = "vesk.data.PolicyScope";
    const std::vector<Case> cases = {
        {manager, "repository", {"shop.Customer"}, {"shop.Customer", "Long"}},
        {policy, "find", {"shop.Customer"}, {"shop.Customer", "Long"}},
        {manager, "find", {"shop.Customer", "Long"}, {"shop.Customer", "Long"}},
        {manager, "save", {"shop.Customer"}, {"shop.Customer"}},
        {"EntityManager", "find", {"shop.Customer"}, {"shop.Customer"}},
        {manager, "find", {}, {}},
        {manager, "find", {""}, {""}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(completeEntityManagerIdentityTypeArguments(scope, nullptr, c.owner, c.method, c.written), c.completed)
            << c.method;
    }
    EXPECT_EQ(completeEntityManagerIdentityTypeArguments(nullptr, nullptr, manager, "find", {"shop.Customer"}),
              StrVec{"shop.Customer"});
}

TEST(EntityIdentity, Fails) {
    SampleProgram program;
    const ContextPtr scope = program.load("shop/main.vk", ENTITIES);
    const std::vector<std::pair<Str, Str>> cases = {
        {"shop.Torn",
         "Cannot infer identity type for shop.Torn because its effective identity is ambiguous; use @EmbeddedId, "
         "@IdClass, or an explicit key type"},
        {"shop.Keyless",
         "Cannot infer identity type for shop.Keyless because it has no effective @Id property; use "
         "find<shop.Keyless, TId>() with an explicit key type"},
        {"shop.Nobody", "Cannot infer entity identity type: unknown entity type shop.Nobody"},
    };
    for (const auto& [entity, message] : cases) {
        EXPECT_EQ(messageOf([&] {
                      completeEntityManagerIdentityTypeArguments(scope, nullptr, "vesk.data.EntityManager", "find",
                                                                 {entity});
                  }),
                  message);
    }
}

}  // namespace
}  // namespace vesk::compiler
