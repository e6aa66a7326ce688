// Method nodes made from declaration records: signatures alone, signatures with the body read again from the source, and
// finished specializations registered with a unit.
#pragma once

#include "generics/session_state.h"
#include "host/model_records.h"
#include "host/requested_specialization.h"

namespace vesk::compiler {

// The parameters as declared, with these types.
std::vector<FunctionParam> genericMethodParams(const GenericMethodInfo& info, const StrVec& paramTypes,
                                               const TokenPtr& token);
// The node's scope becomes one inside of the class: with its self type and, but for static methods, `self` and `this`.
void putIntoClass(const MethodNode& node, const Str& owner);
// The signature as a node of its own, without a body.
std::shared_ptr<MethodNode> syntheticGenericMethod(const GenericMethodInfo& info, const ContextPtr& context,
                                                   const TokenPtr& token);
// The specialized signature of a native method, from the cache alone.
std::shared_ptr<MethodNode> rebuildCachedNativeGenericMethod(const CachedGenericMethodSpec& cached,
                                                             const ContextPtr& context, const TokenPtr& token);
// Signature and body, with type parameters replaced in the signature and in the generic clauses of the body. A node whose
// body cannot be cut out of its file has none. Null only without a context.
std::shared_ptr<MethodNode> materializeGenericMethodFromInfo(const GenericMethodInfo& info, const ContextPtr& context,
                                                             const TokenPtr& token, const StrVec& typeParamNames,
                                                             const StrVec& typeArgs);
// The same, or the method parsed from its file; null when there is neither.
std::shared_ptr<MethodNode> loadGenericMethod(const GenericMethodInfo& info, const Str& owner,
                                              const ContextPtr& context, const TokenPtr& token,
                                              const StrVec& typeParamNames, const StrVec& typeArgs);
// "Box.map<String>", as diagnostics and traces name a specialization.
Str genericMethodDisplayName(const GenericMethodInfo& info, const Str& owner, const StrVec& typeArgs);
// The same as a link of the chain of requests.
RequestedSpecialization requestedGenericMethod(const GenericMethodInfo& info, const Str& owner, const StrVec& typeArgs,
                                               const TokenPtr& token);
// Makes a node concrete: body, parameter types and return type, stamped with the unit that will hold it. A node that was
// made concrete before (it has no type parameters any more) only gets its signature.
void concretizeGenericMethod(const std::shared_ptr<MethodNode>& node, const GenericMethodInfo& info, const Str& owner,
                             const StrVec& typeArgs, const StrVec& paramTypes, const Str& returnType, const Str& unit,
                             const ContextPtr& context, const TokenPtr& token);

// Registers a specialization in the unit under way when it belongs there: the unit declares the method, or is a bundle of
// its owner. False when it does not; then it goes into a bundle. `node` may be null.
bool emitGenericMethodSpecializationInCurrentUnit(const ContextPtr& context, const TokenPtr& token, const Str& owner,
                                                  const Str& method, const GenericMethodInfo& info,
                                                  std::shared_ptr<MethodNode> node, const GenericMethodSpec& spec,
                                                  const StrVec& typeArgs);
// The unit that receives a specialization: the unit tag, else the scope's compile unit.
Str receivingUnit(const ContextPtr& context, const TokenPtr& token);

}  // namespace vesk::compiler
