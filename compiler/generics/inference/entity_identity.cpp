// The identity type of an entity, asked of the host.
#include "generics/inference/entity_identity.h"

#include <exception>

#include "host/class_loader.h"
#include "host/context.h"
#include "host/diagnostics.h"

namespace vesk::compiler {

namespace {

// What Context::resolveEntityIdentityType answers.
constexpr int NO_IDENTITY = 0, AMBIGUOUS_IDENTITY = 2;

bool takesIdentity(const Str& owner, const Str& method) {
    return (method == "repository" || method == "find") &&
           (owner == "vesk.data.EntityManager" || owner == "vesk.data.PolicyScope");
}

void loadEntity(const Str& entity, const ContextPtr& context, const TokenPtr& token) {
    try {
        ClassLoader::ensureClassLoaded(entity, context, token);
    } catch (const std::exception&) {
        throw compileError(token, "Cannot infer entity identity type: unknown entity type " + entity);
    }
}

}  // namespace

StrVec completeEntityManagerIdentityTypeArguments(const ContextPtr& context, const TokenPtr& token, const Str& owner,
                                                  const Str& method, const StrVec& explicitTypeArgs) {
    if (!context || explicitTypeArgs.size() != 1 || explicitTypeArgs[0].empty() || !takesIdentity(owner, method)) {
        return explicitTypeArgs;
    }
    const Str& entity = explicitTypeArgs[0];
    loadEntity(entity, context, token);
    Str identity;
    switch (context->resolveEntityIdentityType(entity, identity)) {
        case NO_IDENTITY:
            throw compileError(token, "Cannot infer identity type for " + entity +
                                          " because it has no effective @Id property; use " + method + "<" + entity +
                                          ", TId>() with an explicit key type");
        case AMBIGUOUS_IDENTITY:
            throw compileError(token,
                               "Cannot infer identity type for " + entity +
                                   " because its effective identity is ambiguous; use @EmbeddedId, @IdClass, or an "
                                   "explicit key type");
        default: break;
    }
    if (identity.empty()) throw compileError(token, "Cannot resolve identity type for " + entity);
    return {entity, identity};
}

}  // namespace vesk::compiler
