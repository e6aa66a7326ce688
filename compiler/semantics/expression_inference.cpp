// The static type of one expression as text: the specializer's way into the checker.
// Arguments of a call that is being checked are answered from that check. Every other expression is checked by itself,
// with its names found through the scopes; what is wrong in it leaves the type unknown.
#include "host/inference_services.h"
#include "semantics/checker.h"
#include "semantics/context_state.h"

namespace vesk::compiler {

namespace {

// The type of `self` as a scope sees it, null outside of classes.
const Type* selfTypeOf(const ContextPtr& scope, TypeTable& types) {
    for (const Context* at = scope.get(); at; at = at->parent().get()) {
        const Context::State* state = at->stateIfAny();
        if (state && state->rare && !state->rare->selfType.empty()) {
            const Type* type = resolveType(state->rare->selfType, scope);
            if (type->kind != TypeKind::Unknown) return type;
        }
    }
    ClassDeclaration* declaration = enclosingClassOf(scope);
    if (!declaration) return nullptr;
    std::vector<const Type*> parameters;
    for (const std::string& name : declaration->typeParameters) parameters.push_back(types.parameter(name));
    return types.classType(declaration, parameters);
}

}  // namespace

const Type* Checker::inferType(const NodePtr& expression, const ContextPtr& scope) {
    inferenceScope_ = scope ? scope : expression->getContext();
    selfType_ = selfTypeOf(inferenceScope_, types_);
    if (selfType_) environment_ = environmentOf(selfType_);
    return check(expression)->type;
}

Str inferExpressionType(const NodePtr& expression, const ContextPtr& context) {
    if (!expression) return {};
    if (Checker* checker = Checker::active())
        if (const Type* type = checker->argumentType(expression.get())) return type->text;
    std::optional<CompilerException>& kept = keptInferenceMistake();
    kept.reset();
    try {
        CompileSession& session = CompileSession::current();
        TypedBody scratch;
        Checker checker(session, scratch, nullptr, CheckMode::Inference);
        const Type* type = checker.inferType(expression, context);
        kept.reset();
        return type->kind == TypeKind::Unknown ? Str() : type->text;
    } catch (const CheckMistake& mistake) {
        kept = mistake;
        return {};
    } catch (const Poisoned&) {
        return {};
    } catch (...) {
        kept.reset();
        throw;
    }
}

Str inferExpectedLiteralType(const NodePtr& expression, const Str& expected, const Str& actual) {
    if (!expression || expected.empty()) return actual;
    TypeTable& types = CompileSession::current().types();
    bool isNullable = expected.back() == '?';
    const Type* wanted = types.builtinNamed(isNullable ? std::string_view(expected).substr(0, expected.size() - 1)
                                                       : std::string_view(expected));
    if (wanted && wanted->isNumeric()) {
        if (std::optional<IntegerLiteral> literal = integerLiteralOf(expression.get()))
            return literalTakes(*literal, wanted->kind) ? wanted->text : actual;
        if (wanted->kind == TypeKind::Float && isPlainFloatingLiteral(expression.get())) return wanted->text;
    }
    bool isNull = expression->getKind() == NodeKind::Literal &&
                  static_cast<const LiteralNode&>(*expression).literalKind() == LiteralKind::Null;
    return isNull && isNullable ? expected : actual;
}

// Answers are kept only with the nodes of a body that is being checked, and such nodes do not change: nothing outlives
// a change of bodies or symbols but the mistake that explains the last empty answer.
void invalidateTypeInferenceCaches() { keptInferenceMistake().reset(); }

}  // namespace vesk::compiler
