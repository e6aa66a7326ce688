// The checked program: what the checker makes and the code generator consumes.
// Every implicit thing of the source is explicit here: conversions, chosen overloads, receivers, default arguments,
// evaluation order (left to right, as the operands stand). Nodes live in the arena of their TypedBody and are
// never freed one by one; they hold no resources. Types are interned (types.h).
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "semantics/declarations.h"

namespace vesk::compiler {

struct Place {
    int line = 0, column = 0;
};

// A parameter or a local. One that a lambda captures lives in a heap cell, a fresh one each time its declaration runs.
struct LocalVariable {
    std::string_view name;
    const Type* type = nullptr;
    Place place;
    bool isParameter = false;
    bool isCaptured = false;
    // The code generator's: assigned after its declaration; sure to hold an object; the value or the room it has in
    // generated code.
    bool isAssigned = false, isNeverNull = false;
    void* lowered = nullptr;
};

enum class ExpressionKind : unsigned char {
    IntegerConstant,
    FloatingConstant,
    NullConstant,
    StringConstant,
    LocalRead,
    FieldRead,
    StaticRead,
    ElementRead,
    ArrayLength,
    Call,
    ClosureCall,
    RuntimeCall,
    NewObject,
    NewArray,
    ArrayOf,
    ListOf,
    Lambda,
    FunctionValue,
    Negate,
    Not,
    Arithmetic,
    Comparison,
    SameReference,
    And,
    Or,
    Conditional,
    Conversion,
    TypeTest,
    Concat,
    ToText,
    Let,
};

struct Expression {
    ExpressionKind kind;
    const Type* type;
    Place place;
};
using ExpressionList = std::span<Expression* const>;

// Also Bool (0, 1). Two's complement in the low bits of the type's width.
struct IntegerConstant : Expression {
    std::uint64_t value;
};
struct FloatingConstant : Expression {
    double value;
};
struct NullConstant : Expression {};
struct StringConstant : Expression {
    std::string_view value;
};
struct LocalRead : Expression {
    LocalVariable* variable;
};
// Panics "null receiver" when the object is null, unless `objectIsSelf`.
struct FieldRead : Expression {
    Expression* object;
    const FieldSlot* field;
    bool objectIsSelf;
};
struct StaticRead : Expression {
    const FieldDeclaration* field;
};
// Array element with its bounds check; a null element of a type without "?" panics.
struct ElementRead : Expression {
    Expression* array;
    Expression* index;
};  // index: Int
struct ArrayLength : Expression {
    Expression* array;
};  // Int

enum class Dispatch : unsigned char { Direct, Virtual, Interface };
// Arguments in parameter order and of exactly the parameter types, the receiver first where the target has self.
// A receiver is checked for null unless `receiverIsSelf`. Virtual: `target->slot` in the receiver's vtable.
// Interface: `target->slot` in the receiver's table for `target->owner`.
struct Call : Expression {
    FunctionInstance* target;
    ExpressionList arguments;
    Dispatch dispatch;
    bool receiverIsSelf;
};
struct ClosureCall : Expression {
    Expression* callee;
    ExpressionList arguments;
};
// A C function of the run-time library with the natural machine types of its operands.
struct RuntimeCall : Expression {
    std::string_view symbol;
    ExpressionList arguments;
};
// Allocates, runs the class's field initializers, then `constructor` (null: none) with the new object before the arguments.
struct NewObject : Expression {  // of its type
    FunctionInstance* fieldInitializer;
    FunctionInstance* constructor;
    ExpressionList arguments;
};
struct NewArray : Expression {
    Expression* length;
};  // Int; zero, false or null elements
struct ArrayOf : Expression {
    ExpressionList elements;
};
struct ListOf : Expression {
    ExpressionList elements;
};  // an ArrayList
struct TypedLambda;
struct LambdaExpression : Expression {
    TypedLambda* lambda;
};
struct FunctionValue : Expression {
    FunctionInstance* target;
};

struct Unary : Expression {
    Expression* operand;
};  // Negate, Not, ToText (any type to its text)
enum class ArithmeticOperator : unsigned char { Add, Subtract, Multiply, Divide, FloorDivide, Remainder, Power };
// Operands and result have one numeric type. Divide truncates for integers, Remainder follows FloorDivide. Integer
// division by zero and negative integer exponents panic.
struct Arithmetic : Expression {
    ArithmeticOperator op;
    Expression* left;
    Expression* right;
};
enum class ComparisonOperator : unsigned char { Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual };
// Operands have one scalar type; the result is Bool.
struct Comparison : Expression {
    ComparisonOperator op;
    Expression* left;
    Expression* right;
};
// SameReference, And, Or (lazy).
struct Binary : Expression {
    Expression* left;
    Expression* right;
};
struct Conditional : Expression {
    Expression* condition;
    Expression* thenValue;
    Expression* elseValue;
};

enum class ConversionKind : unsigned char {
    Widen,   // integer to a wider or equal one, by the source's signedness
    Narrow,  // integer to a narrower one, wrapping
    IntegerToFloating,
    FloatingToInteger,  // truncates and saturates, NaN gives 0
    FloatingResize,
    Box,        // a scalar to Object, to its "?" or to an interface it implements
    Unbox,      // to a scalar; panics when the value is null or another type ("cast")
    Reference,  // a reference to one of its super types, or null to a "?" type: nothing happens at run time
    Downcast,   // checked reference cast; null passes only when the target has "?"
    NotNull,    // `T?` to `T` of a reference: panics when null
};
struct Conversion : Expression {
    ConversionKind conversion;
    Expression* operand;
};
// False for null. The operand is a reference; scalars are decided by the checker.
struct TypeTest : Expression {
    Expression* operand;
    const Type* tested;
};
// Joins String operands; a null operand counts as "null".
struct Concat : Expression {
    ExpressionList parts;
};
// Evaluates `value` into `variable` (null: for its effects alone, it may be Void), then `body`. `type` is the body's. Long
// chains run along `body`.
struct Let : Expression {
    LocalVariable* variable;
    Expression* value;
    Expression* body;
};

enum class StatementKind : unsigned char {
    Evaluate,
    DeclareLocal,
    AssignLocal,
    AssignField,
    AssignStatic,
    AssignElement,
    If,
    While,
    ForRange,
    ForArray,
    ForCollection,
    Return,
    Break,
    Continue,
    Block,
};

struct Statement {
    StatementKind kind;
    Place place;
};
using StatementList = std::span<Statement* const>;

struct EvaluateStatement : Statement {
    Expression* expression;
};
struct DeclareLocal : Statement {
    LocalVariable* variable;
    Expression* initializer;
};  // null: zero, false or null
struct AssignLocal : Statement {
    LocalVariable* variable;
    Expression* value;
};
struct AssignField : Statement {
    Expression* object;
    const FieldSlot* field;
    Expression* value;
    bool objectIsSelf;
};
struct AssignStatic : Statement {
    const FieldDeclaration* field;
    Expression* value;
};
struct AssignElement : Statement {
    Expression* array;
    Expression* index;
    Expression* value;
};
struct BlockStatement : Statement {
    StatementList statements;
};
struct IfStatement : Statement {
    Expression* condition;
    BlockStatement* thenBlock;
    Statement* elseStatement;
};  // block, if or null
struct WhileStatement : Statement {
    Expression* condition;
    BlockStatement* body;
};
// `variable` (Int) runs from `from` up to and without `to`, both evaluated once.
struct ForRange : Statement {
    LocalVariable* variable;
    Expression* from;
    Expression* to;
    BlockStatement* body;
};
struct ForArray : Statement {
    LocalVariable* variable;
    Expression* array;
    BlockStatement* body;
};
// Walks with an iterator: `iterator` starts as `makeIterator`; `hasNext` and `next` (of the variable's type) read it. What
// is an ArrayList exactly (`listType`) may be walked over directly. All read `source`, which holds `collection`.
struct ForCollection : Statement {
    LocalVariable* variable;
    LocalVariable* source;
    Expression* collection;
    LocalVariable* iterator;
    Expression *makeIterator, *hasNext, *next;
    const Type* listType;  // null: no list can come here
    BlockStatement* body;
};
struct ReturnStatement : Statement {
    Expression* value;
};  // null for Void

// A lambda: a function of its own whose captured variables are reached through its closure.
struct TypedLambda {
    std::string symbol, displayName;
    std::vector<LocalVariable*> parameters;
    std::vector<LocalVariable*> captures;  // variables of enclosing functions; `self` counts as one
    const Type* returnType = nullptr;
    BlockStatement* body = nullptr;
    Place place;
};

// Memory for typed nodes: freed as a whole.
class Arena {
public:
    Arena() = default;
    ~Arena();
    Arena(Arena&&) noexcept;
    Arena& operator=(Arena&&) noexcept;

    template <class T, class... Fields>
    T* make(Fields&&... fields) {
        return new (allocate(sizeof(T), alignof(T))) T{std::forward<Fields>(fields)...};
    }
    template <class T>
    std::span<T const> copy(const std::vector<T>& items) {
        T* room = static_cast<T*>(allocate(sizeof(T) * items.size(), alignof(T)));
        for (std::size_t i = 0; i < items.size(); i++) new (room + i) T(items[i]);
        return {room, items.size()};
    }
    std::string_view copy(std::string_view text);

private:
    void* allocate(std::size_t size, std::size_t alignment);
    std::vector<std::unique_ptr<char[]>> blocks_;
    char* next_ = nullptr;
    char* end_ = nullptr;
};

// One checked function. Parameter 0 is self where the function has one.
struct TypedBody {
    FunctionInstance* function = nullptr;
    std::vector<LocalVariable*> parameters;
    BlockStatement* body = nullptr;
    std::vector<TypedLambda*> lambdas;  // all, nested ones after those that hold them
    std::vector<std::unique_ptr<TypedLambda>> ownedLambdas;
    Arena arena;
};

}  // namespace vesk::compiler
