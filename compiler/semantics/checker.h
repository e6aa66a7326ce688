// The checker: turns the syntax of one function into its typed body.
// The syntax is shared and never changed: the same class body is checked once per instantiation, each time with another
// TypeEnvironment. One Checker serves one function, or one expression whose type alone is wanted (CheckMode::Inference);
// its member functions are defined by subject in the *_checking.cpp files beside.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "host/diagnostics.h"
#include "semantics/compile_session.h"
#include "semantics/lineage.h"
#include "semantics/literals.h"
#include "semantics/name_lookup.h"
#include "semantics/typed_tree.h"

namespace vesk::compiler {

// A mistake that the checker itself has found, as opposed to those of the specializer.
class CheckMistake : public CompilerException {
public:
    CheckMistake(const TokenPtr& token, Str message)
        : CompilerException(token, std::move(message), CompilerErrorKind::CompileError, {}, {}) {}
    explicit CheckMistake(const CompilerException& other) : CompilerException(other) {}
};

// Leaves a statement that uses something whose own mistake has been reported already.
struct Poisoned {};

enum class CheckMode : unsigned char {
    Body,       // a whole function: mistakes are reported
    Inference,  // one expression: names are found through scopes, mistakes leave the type unknown
};

// One argument of a call: its expression and, once checked, its value.
struct Argument {
    NodePtr node;
    std::string_view name;  // "" = positional
    TokenPtr token;
    Expression* value = nullptr;
};
using ArgumentList = std::vector<Argument>;

// A call as written.
struct CallSite {
    const AbstractNode& node;
    TokenPtr token;
    const NodeVec& argumentNodes;
    std::string name;  // without the generic clause
    std::vector<const Type*> typeArguments;
    bool hasClause = false;
    const Type* expected = nullptr;
    std::string functionName = {};  // with its package, where the call names that
};

// Which argument goes where. Parallel to the parameters: an argument's index, -1 = default or variadic.
struct BoundArguments {
    std::vector<int> parameterToArgument, argumentToParameter, variadic, namedVariadic;
};

// What stands before a dot.
struct Receiver {
    enum class Kind : unsigned char { Value, Class, Package, Super } kind = Kind::Value;
    Expression* value = nullptr;
    bool isSelf = false;
    const Type* type = nullptr;  // of classes; raw when a generic class is named without arguments
    std::string package;
};

struct FoundField {
    const FieldSlot* slot = nullptr;  // of an object
    const FieldDeclaration* declaration = nullptr;
    const Type* type = nullptr;
    explicit operator bool() const { return declaration != nullptr; }
};

// Whether a node's name is a type that the specializer has put in the place of a type parameter.
bool isTypePutIn(const std::string& name, const AbstractNode& node);

class Checker {
public:
    Checker(CompileSession& session, TypedBody& body, FunctionInstance* function, CheckMode mode);
    ~Checker();
    Checker(const Checker&) = delete;
    Checker& operator=(const Checker&) = delete;

    // The checker at work on this thread, null when there is none.
    static Checker* active();
    // The type of an argument of the call that is being checked, null for other nodes.
    const Type* argumentType(const AbstractNode* node) const;

    // Checks the body of the function. False when mistakes were reported.
    bool checkFunction();
    // The return type that the checked body has, null when mistakes have hidden it.
    const Type* inferredReturnType() const { return inferredReturn_; }
    // What the body calls, as far as it has been checked.
    const std::vector<FunctionInstance*>& requested() const { return requested_; }
    // Inference: the type of one expression; throws CheckMistake or Poisoned when it has none.
    const Type* inferType(const NodePtr& expression, const ContextPtr& scope);

private:
    // --- mistakes (checker.cpp) ---
    [[noreturn]] void fail(const AbstractNode& node, std::string message) const;
    [[noreturn]] void fail(const TokenPtr& token, std::string message) const;
    void report(const CompilerException& mistake);
    // Runs one piece of checking; reports what it throws. False after a mistake.
    template <class Work>
    bool guarded(Work&& work);
    void guardStack(const AbstractNode& node) const;

    // --- making nodes (checker.cpp) ---
    template <class T, class... Fields>
    T* make(ExpressionKind kind, const Type* type, Place place, Fields&&... fields) {
        return body_.arena.make<T>(Expression{kind, type, place}, std::forward<Fields>(fields)...);
    }
    template <class T, class... Fields>
    T* makeStatement(StatementKind kind, Place place, Fields&&... fields) {
        return body_.arena.make<T>(Statement{kind, place}, std::forward<Fields>(fields)...);
    }
    ExpressionList list(const std::vector<Expression*>& items) { return body_.arena.copy(items); }
    BlockStatement* blockOf(const std::vector<Statement*>& statements, Place place);
    LocalVariable* newVariable(std::string_view name, const Type* type, Place place, bool isParameter = false);
    // A value that inference needs only for its type.
    Expression* typedOnly(const Type* type, Place place);
    Expression* boolean(bool value, Place place);
    Expression* text(std::string_view value, Place place);
    Expression* nullValue(Place place);
    Expression* readLocal(LocalVariable* variable, Place place);
    Expression* wrapInLets(const std::vector<std::pair<LocalVariable*, Expression*>>& lets, Expression* body);
    // The value itself when reading it twice is harmless, else a read of a new variable that `lets` fills.
    Expression* once(Expression* value, std::vector<std::pair<LocalVariable*, Expression*>>& lets);

    // --- types (conversions.cpp) ---
    const Type* builtin(TypeKind kind) const { return types_.builtin(kind); }
    const Type* declaredType(const Str& text, const ContextPtr& scope, const TokenPtr& token);
    const Type* declaredTypeUnchecked(const Str& text, const ContextPtr& scope, const TokenPtr& token);
    void validateClassConstraints(const Type* type, const TokenPtr& token);
    const Type* returnTypeOf(FunctionInstance& function);
    bool isSubclass(const ClassDeclaration* cls, const ClassDeclaration* base) const;
    // The common type of two branches, null when there is none.
    const Type* unify(const Type* first, const Type* second) const;

    // --- conversions (conversions.cpp) ---
    // Whether the expression may stand where `target` is wanted, literals included.
    bool accepts(const AbstractNode* node, const Expression* value, const Type* target) const;
    // The value as `target`; a mistake when it does not fit.
    Expression* coerce(Expression* value, const Type* target, const AbstractNode& node);
    Expression* convertAssignable(Expression* value, const Type* target);
    Expression* convertNumber(Expression* value, const Type* target);
    Expression* conversion(ConversionKind kind, Expression* value, const Type* target);
    Expression* checkCast(Expression* value, const Type* target, const AbstractNode& node);
    bool adaptLambda(Expression* value, const Type* target);

    // --- expressions (expression_checking.cpp) ---
    // Any expression; Void calls too. `expected` is a hint (null = none): the result may have another type.
    Expression* check(const NodePtr& node, const Type* expected = nullptr);
    Expression* checkUnguarded(const NodePtr& node, const Type* expected);
    // An expression that has a value.
    Expression* checkValue(const NodePtr& node, const Type* expected = nullptr);
    // What an operator computes with: its place tells literals what to be, and converts nothing before the operator.
    Expression* checkOperand(const NodePtr& node, const Type* hint);
    Expression* knownValue(Expression* value, const AbstractNode& node) const;
    // A value of exactly that type.
    Expression* checkInto(const NodePtr& node, const Type* target);
    Expression* checkLiteral(const AbstractNode& node, const Type* expected);
    Expression* integerConstant(const IntegerLiteral& literal, const Type* type, Place place);
    Expression* checkName(const ValueExpressionNode& node, const Type* expected);
    enum class ExpectedAs { Result, Hint };
    Expression* checkConditional(const AbstractNode& node, const Type* expected, ExpectedAs as = ExpectedAs::Result);
    Expression* checkIndex(const IndexExpressionNode& node);
    Expression* checkListLiteral(const AbstractNode& node, const Type* expected);
    Expression* checkMapLiteral(const AbstractNode& node, const Type* expected);
    Expression* newCollection(const Type* type, const AbstractNode& node);
    Expression* collectInto(const Type* listType, const std::vector<Expression*>& elements, const AbstractNode& node);
    Expression* functionValue(const std::vector<FunctionDeclaration*>& functions, const AbstractNode& node,
                              const Type* expected);
    std::vector<FunctionDeclaration*> functionsForUse(const std::string& name, const AbstractNode& node);
    // A name behind its package's.
    [[noreturn]] void failUnknownIn(const std::string& qualified, const AbstractNode& node, const char* what) const;
    [[noreturn]] void failUnknownName(const std::string& name, const AbstractNode& node, const char* what);

    // --- lambdas (lambda_checking.cpp) ---
    Expression* checkLambda(const LambdaNode& node, const Type* expected);

    // --- names (member_checking.cpp) ---
    LocalVariable* findLocal(std::string_view name, const AbstractNode& node);
    LocalVariable* scopeLocal(const std::string& name, const AbstractNode& node);
    const Type* scopeVariableType(const Context* scope, std::size_t index);
    LocalVariable* selfVariable(const AbstractNode& node);
    bool isSelfName(std::string_view name) const { return name == "self" || name == "this"; }
    Receiver receiverOf(const NodePtr& node);
    Receiver memberReceiver(const Receiver& owner, const MemberExpressionNode& link);
    const Type* boundType(const std::string& name, const AbstractNode& node);
    Receiver namedReceiver(const std::string& name, const AbstractNode& node);
    std::optional<Receiver> classReceiver(const std::string& name, const AbstractNode& node);
    FoundField findField(const Type* type, std::string_view name);
    FoundField findStaticField(const ClassDeclaration* declaration, std::string_view name);
    // A field that a bare name means inside a class; reads it from self or from the class.
    Expression* bareField(const std::string& name, const AbstractNode& node);
    Expression* checkMember(const MemberExpressionNode& node, const Type* expected);
    Expression* memberOf(const Receiver& receiver, const MemberExpressionNode& node, const Type* expected);
    Expression* readField(const FoundField& field, Expression* object, bool isSelf, const AbstractNode& node);
    bool canAccess(const ClassDeclaration* owner, MemberVisibility visibility) const;
    void requireAccess(const FieldDeclaration& field, const AbstractNode& node) const;
    [[noreturn]] void failUnknownMember(const Type* type, const std::string& name, const AbstractNode& node);
    // The receiver without its "?": references keep their null until the call checks it.
    Expression* withoutNullReceiver(Expression* value);
    std::vector<MethodCandidate> methodsNamed(const Type* type, std::string_view name);
    bool haveSameParameters(const MethodCandidate& a, const MethodCandidate& b);
    class VisibleMethodCollector;
    VisibleMethods visibleMethods(const Type* type, std::string_view name);
    void trackFile(const FileDeclaration* file);

    // --- calls (call_checking.cpp) ---
    Expression* checkCall(const CallableExpressionNode& node, const Type* expected);
    Expression* checkBareCall(const CallableExpressionNode& node, CallSite& site);
    Expression* checkReceiverCall(const CallableExpressionNode& node, CallSite& site);
    Expression* checkCallValue(const CallValueNode& node);
    Expression* checkNewArray(const Type* element, CallSite& site);
    Expression* callClosure(Expression* callee, CallSite& site);
    Expression* callFunctions(const std::vector<FunctionDeclaration*>& functions, CallSite& site);
    Expression* callMethod(const Receiver& receiver, CallSite& site);
    Expression* callMethods(std::vector<MethodCandidate> methods, const Receiver& receiver, CallSite& site);
    Expression* callSuperConstructor(CallSite& site);
    [[noreturn]] void failNoConstructor(const Type& type, const ArgumentList& arguments, const CallSite& site) const;
    Expression* construct(const Type* type, CallSite& site);
    Expression* constructBound(const Type* bound, CallSite& site);
    const Type* inferClassArguments(ClassDeclaration& declaration, CallSite& site, ArgumentList& arguments);
    std::vector<FunctionInstance*> constructorsOf(const Type* type);
    void requireInstantiable(const Type* type, const CallSite& site);
    // A call of a method by name with arguments that are checked already, null when none accepts.
    Expression* callChecked(Expression* receiver, std::string_view name, ArgumentList& arguments,
                            const AbstractNode& node, bool receiverIsSelf = false);
    Expression* callCheckedGeneric(Expression* value, std::string_view name, ArgumentList& arguments,
                                   const AbstractNode& node, bool receiverIsSelf);
    Receiver receiverOf(Expression* value, bool isSelf) const;
    Expression* invoke(FunctionInstance& target, bool isStatic, MemberVisibility visibility, const Receiver& receiver,
                       ArgumentList& arguments, const BoundArguments& bound, const CallSite& site);
    Expression* openMethodResult(const MethodCandidate& candidate, const CallSite& site);
    void requireMethodAccess(std::vector<MethodCandidate>& methods, const CallSite& site) const;
    void resolveTypeArguments(CallSite& site);
    void requireEntity(const Receiver& receiver, const CallSite& site);
    // From `name<A, B>` the name; the types wait until they are needed.
    CallSite siteOf(const CallableExpressionNode& node, const Type* expected);

    // --- arguments and overloads (argument_checking.cpp) ---
    ArgumentList argumentsOf(const NodeVec& nodes);
    void checkArguments(ArgumentList& arguments);
    bool bind(const ArgumentList& arguments, const FunctionInstance& function, BoundArguments& bound) const;
    // The overload that the call means with its arguments bound and checked; a mistake when there is none or no best one.
    FunctionInstance* chooseOverload(const std::vector<FunctionInstance*>& overloads, ArgumentList& arguments,
                                     BoundArguments& bound, const CallSite& site, bool mayFail);
    void checkEmptyLiterals(const std::vector<FunctionInstance*>& fitting, const std::vector<BoundArguments>& bindings,
                            ArgumentList& arguments);
    bool acceptsArguments(const FunctionInstance& function, const ArgumentList& arguments,
                          const BoundArguments& bound) const;
    const Type* wantedBy(const FunctionInstance& function, const BoundArguments& bound, std::size_t argument) const;
    bool isArrayLiteralFor(const AbstractNode* node, const Type* target) const;
    void coerceArguments(const FunctionInstance& function, ArgumentList& arguments, const BoundArguments& bound,
                         const AbstractNode& call);
    static bool mayHaveRefusedOverload(const FunctionInstance& function);
    [[noreturn]] void failArity(const FunctionInstance& function, const ArgumentList& arguments,
                                const CallSite& site) const;
    // The call with arguments in parameter order, defaults filled in and everything evaluated as written.
    struct Target {
        FunctionInstance* function = nullptr;
        Expression* receiver = nullptr;
        Dispatch dispatch = Dispatch::Direct;
        bool receiverIsSelf = false;
        const Type* newObject = nullptr;  // of constructor calls that make the object
    };
    Expression* arrange(const Target& target, ArgumentList& arguments, const BoundArguments& bound,
                        const CallSite& site);
    Expression* literalDefault(const FunctionInstance& target, std::size_t parameter, Place place);
    void noteRequest(FunctionInstance& target, const TokenPtr& token);
    void noteConstruction(const Type* type, const TokenPtr& token);

    // --- generic calls (generic_call_checking.cpp) ---
    Expression* callGenericFunction(const FunctionDeclaration& function, CallSite& site, ArgumentList& arguments);
    Expression* callGenericMethod(const std::vector<MethodCandidate>& methods, const Receiver& receiver, CallSite& site,
                                  ArgumentList& arguments);
    // A declaration as a call meets it: its parameters with the arguments of its class in them, its own type parameters
    // open.
    struct DeclaredSignature {
        FunctionInstance parameters;
        const std::vector<GenericTypeParam>* typeParameters = nullptr;
        std::vector<std::string> typeParameterNames;
        TypeParameterIndex typeParameterIndex;
        Str shape;  // of methods: equal for those that hide one another
        ContextPtr scope;
        MethodCandidate method = {};  // what it is of, null for functions
    };
    // "both<T, R>(x: T, g: (T) -> R) -> R", as the notes of errors show it.
    static std::string describe(const DeclaredSignature& declaration);
    const DeclaredSignature& declaredSignatureOf(const MethodCandidate& candidate);
    const DeclaredSignature& declaredSignatureOf(const FunctionDeclaration& function);
    std::unique_ptr<DeclaredSignature> declaredSignature(const CallableDeclarationNode& node,
                                                         const TypeEnvironment* environment) const;
    // One declaration that the arguments of a call pair with.
    struct BoundDeclaration {
        const DeclaredSignature* declaration = nullptr;
        BoundArguments bound;
    };
    std::vector<BoundDeclaration> declarationsThatBind(const std::vector<MethodCandidate>& methods,
                                                       const ArgumentList& arguments);
    void checkGenericArguments(ArgumentList& arguments, const BoundDeclaration& callee, const CallSite& site);
    StrVec explicitArguments(const BoundDeclaration& callee, const CallSite& site, const ArgumentList& arguments);
    StrVec explicitArguments(const std::vector<BoundDeclaration>& callees, const CallSite& site,
                             const ArgumentList& arguments);
    void checkInferredArguments(ArgumentList& arguments, const CallSite& site);
    void adaptLambdas(ArgumentList& arguments, const BoundDeclaration& callee, const StrVec& typeArguments);
    Expression* openGenericResult(const std::vector<std::string>& names, const Str& returnType, const ContextPtr& scope,
                                  const CallSite& site);
    bool hasOpenTypes(const CallSite& site, const ArgumentList& arguments) const;
    [[noreturn]] void rethrowWithRequest(const CompilerException& error, const CallSite& site,
                                         const std::string& displayName);

    // --- operators (operator_checking.cpp) ---
    Expression* checkOperator(const NodePtr& node, const Type* expected);
    Expression* checkUnary(const OperatorExpressionNode& node, const Type* expected);
    Expression* checkTypeTest(const OperatorExpressionNode& node);
    struct Operand {
        Expression* value = nullptr;         // null while it is a literal without a type
        const AbstractNode* node = nullptr;  // null for the result of an inner operator
        std::optional<IntegerLiteral> literal;
    };
    Operand operand(const NodePtr& node, const Type* expected);
    Expression* valueOf(const Operand& operand);
    Expression* combine(Operand& left, Operand& right, const std::string& op, const AbstractNode& node,
                        const Type* expected);
    Expression* arithmetic(Operand& left, Operand& right, ArithmeticOperator op, const AbstractNode& node,
                           const Type* expected, const std::string& name);
    Expression* comparison(Operand& left, Operand& right, const std::string& op, const AbstractNode& node);
    Expression* equality(Expression* left, Expression* right, bool negated, const AbstractNode& node);
    Expression* callOperator(Expression* left, std::string_view op, Expression* right, const AbstractNode& node);
    Expression* condition(Expression* value, const std::string& op, const AbstractNode& node);
    void settleLiterals(Operand& left, Operand& right, const Type* expected);
    Expression* textOf(Expression* value);

    // --- statements (statement_checking.cpp) ---
    // Each answers whether the code behind the statement can be reached.
    bool checkStatements(const NodeVec& statements, std::vector<Statement*>& out);
    bool checkStatement(const NodePtr& node, std::vector<Statement*>& out);
    bool checkBlock(const NodeVec& statements, Place place, BlockStatement*& out);
    bool checkIf(const IfNode& node, std::vector<Statement*>& out);
    bool checkWhile(const WhileNode& node, std::vector<Statement*>& out);
    void checkFor(const ForNode& node, std::vector<Statement*>& out);
    void checkForBody(const ForNode& node, LocalVariable* variable, std::vector<Statement*> first,
                      BlockStatement*& out);
    void checkDeclaration(const DeclarationNode& node, std::vector<Statement*>& out);
    void checkReturn(const ReturnNode& node, std::vector<Statement*>& out);
    void checkAssignment(const AssignmentNode& node, std::vector<Statement*>& out);
    Expression* assignedValue(Expression* current, const AssignmentNode& node, const Type* target, bool& isDone);
    void assignMember(const AssignmentNode& node, std::vector<Statement*>& out);
    void assignField(const FoundField& field, Expression* object, bool isSelf, const AssignmentNode& node,
                     std::vector<Statement*>& out);
    void assignIndex(const AssignmentNode& node, std::vector<Statement*>& out);
    Expression* keep(Expression* value, std::vector<Statement*>& out);
    const Type* elementType(Expression* iterable, const AbstractNode& node);
    const Type* directList(const Type* collection, const Type* element, const TokenPtr& token);
    const CallableExpressionNode* rangeCall(const NodePtr& node);
    void declareLocal(LocalVariable* variable, const TokenPtr& token);
    bool neverReturns(const Expression* expression) const;

    // --- interactive chunks (chunk_checking.cpp) ---
    void checkChunk(std::vector<Statement*>& out);
    void declareChunkVariable(const DeclarationNode& node, std::vector<Statement*>& out);
    void showResult(const NodePtr& node, std::vector<Statement*>& out);
    // A variable of the chunk around this code or of an earlier one.
    FoundField findChunkField(const std::string& name, const AbstractNode& node);
    Expression* chunkVariable(const std::string& name, const AbstractNode& node);

    // --- bodies (body_checking.cpp) ---
    void declareParameters();
    void checkFieldInitializer(std::vector<Statement*>& out);
    void checkUnitInitializer(std::vector<Statement*>& out);
    void checkDefaultValue(std::vector<Statement*>& out);
    void finishReturns(bool endIsReachable, std::vector<Statement*>& out);

    CompileSession& session_;
    TypeTable& types_;
    TypedBody& body_;
    FunctionInstance* function_;
    CheckMode mode_;
    TypeEnvironment environment_;
    const Type* selfType_ = nullptr;  // of the enclosing class, also in static methods
    LocalVariable* self_ = nullptr;
    Checker* previous_;
    bool hasMistakes_ = false;

    struct VisibleLocal {
        LocalVariable* variable;
        const Type* type;    // Unknown when its declaration was mistaken
        unsigned depth;      // of the lambda that declares it, 0 = the function itself
        std::size_t hidden;  // position + 1 of the outer or earlier one of this name, 0 = none
    };
    std::vector<VisibleLocal> visible_;
    // By name: position + 1 of the last visible one. A body may declare tens of thousands.
    std::unordered_map<std::string_view, std::size_t> visibleByName_;
    std::size_t scopeStart_ = 0;  // first of visible_ that the innermost scope declares
    std::vector<TypedLambda*> lambdas_;
    std::vector<std::unordered_set<const LocalVariable*>> captured_;  // parallel to them: what their captures hold
    struct BlockScope {
        explicit BlockScope(Checker& checker)
            : checker_(checker), count_(checker.visible_.size()), start_(checker.scopeStart_) {
            checker.scopeStart_ = count_;
        }
        ~BlockScope() {
            checker_.forgetVisible(count_);
            checker_.scopeStart_ = start_;
        }
        BlockScope(const BlockScope&) = delete;
        BlockScope& operator=(const BlockScope&) = delete;

    private:
        Checker& checker_;
        std::size_t count_, start_;
    };
    void addVisible(LocalVariable* variable, const Type* type);
    void forgetVisible(std::size_t count);  // all but the first `count`
    LocalVariable* capture(const VisibleLocal& local);

    // Return statements of a function whose type is being inferred, or of a declared one.
    const Type* declaredReturn_ = nullptr;
    const Type* inferredReturn_ = nullptr;
    struct PendingReturn {
        ReturnStatement* statement;
        NodePtr node;  // null for a bare return
        TokenPtr token;
    };
    std::vector<PendingReturn> pendingReturns_;
    struct Loop {
        bool hasBreak = false;
    };
    std::vector<Loop> loops_;

    struct KnownArgument {
        const AbstractNode* node;
        const Type* type;
        std::size_t hidden;  // position + 1 of the entry that this one hides, 0 = none
    };
    std::vector<KnownArgument> argumentTypes_;
    std::unordered_map<const AbstractNode*, std::size_t> argumentPositions_;  // position + 1 of the last entry
    void addArgumentType(const AbstractNode* node, const Type* type);
    void forgetArgumentTypes(std::size_t count);  // all but the first `count`
    struct ArgumentMark {
        explicit ArgumentMark(Checker& checker) : checker_(checker), count_(checker.argumentTypes_.size()) {}
        ~ArgumentMark() { checker_.forgetArgumentTypes(count_); }
        ArgumentMark(const ArgumentMark&) = delete;
        ArgumentMark& operator=(const ArgumentMark&) = delete;

    private:
        Checker& checker_;
        std::size_t count_;
    };
    // Specializations this body has asked for: declaration, explicit types, argument types.
    struct CallShapeHash {
        std::size_t operator()(const std::vector<const void*>& shape) const;
    };
    std::unordered_map<std::vector<const void*>, FunctionInstance*, CallShapeHash> specialized_;
    std::map<std::pair<const void*, const Type*>, std::unique_ptr<DeclaredSignature>> declaredSignatures_;
    std::unordered_set<const Type*> validated_;
    std::unordered_set<const ClassLayout*> requestedLayouts_;
    std::vector<FunctionInstance*> requested_;
    std::unordered_map<const AbstractNode*, const Type*> inferredLocals_;  // inference: null while under way
    std::unordered_map<std::uint64_t, LocalVariable*> scopeLocals_;
    const FileDeclaration* lastTracked_ = nullptr;
    ContextPtr inferenceScope_;
    int requestDepth_ = 0;  // of the function, as it was when checking began
};

Place placeOf(const AbstractNode& node);
Place placeOf(const TokenPtr& token);

// "pick(a: Int, b: Int = ...) -> Int", as messages show a declaration.
std::string signatureText(const FunctionInstance& function);
// Adds one note per request that led to `function`, innermost first.
void addRequestNotes(CompilerException& error, const FunctionInstance* function);

// The first mistake that the last inference on this thread kept to itself.
std::optional<CompilerException>& keptInferenceMistake();

template <class Work>
bool Checker::guarded(Work&& work) {
    try {
        work();
        return true;
    } catch (const Poisoned&) {
        hasMistakes_ = true;
    } catch (const CompilerException& mistake) {
        report(mistake);
    }
    return false;
}

}  // namespace vesk::compiler
