// Makes the code of one checked function and of the lambdas in it.
// A variable that nothing assigns after its declaration is just a value; others have room in the frame, or in a heap
// cell when a lambda captures them. Failing checks branch to blocks behind the function's end, so that the straight way
// stays short; only calls carry debug lines, since only at a call can a trace be taken.
#pragma once

#include "il/module_builder.h"

namespace vesk::compiler {

class FunctionLowering {
public:
    explicit FunctionLowering(ModuleBuilder& moduleBuilder);

    // Fills `function` with the body, and defines the body's lambdas.
    void lower(TypedBody& body, llvm::Function& function);

private:
    using Value = llvm::Value;
    using Blocks = llvm::SmallVector<llvm::BasicBlock*, 8>;
    struct Loop {
        llvm::BasicBlock *next, *end;
    };
    // The block that ends the function when a check without arguments fails.
    struct Failure {
        const llvm::Function* reporter = nullptr;
        llvm::DebugLoc line;
        llvm::BasicBlock* block = nullptr;
    };

    // --- functions ---------------------------------------------------------------------------------------
    void begin(llvm::Function& function, const std::string& displayName, int line);
    void finish(const Type* returnType);
    void lowerLambda(TypedLambda& lambda, llvm::GlobalValue::LinkageTypes linkage);
    void declareParameter(LocalVariable& variable, Value* argument);

    // --- statements (statement_lowering.cpp) ---------------------------------------------------------------
    void block(const BlockStatement* statements);
    void statement(const Statement* statement);
    void ifStatement(const IfStatement* statement);
    void whileStatement(const WhileStatement* statement);
    void forRange(const ForRange* statement);
    void forArray(const ForArray* statement);
    void forCollection(const ForCollection* statement);  // list_lowering.cpp
    void declare(LocalVariable& variable, Value* value);
    void assign(LocalVariable& variable, Value* value);
    bool isReachable() const { return builder_.GetInsertBlock() != nullptr; }

    // --- expressions (expression_lowering.cpp) -------------------------------------------------------------
    Value* lower(const Expression* expression);
    // One node, given the value of its first operand where firstOperand() names one.
    Value* lowerNode(const Expression* expression, Value* first);
    static const Expression* firstOperand(const Expression* expression);
    Value* call(const Call* expression, Value* receiver);
    Value* dispatchedCall(const Call* expression, llvm::ArrayRef<Value*> arguments);
    // The code that a call of a method reaches through the receiver's record.
    Value* virtualMethod(const FunctionInstance& target, Value* receiver, const Place& place);
    Value* interfaceMethod(const FunctionInstance& target, Value* receiver, const Place& place);
    Value* closureCall(const ClosureCall* expression, Value* callee);
    Value* newObject(const NewObject* expression);
    Value* arrayOf(const ArrayOf* expression);
    Value* listOf(const ListOf* expression);  // list_lowering.cpp
    void storeElements(const Type* element, llvm::ArrayRef<Value*> values, Value* data);
    Value* lambdaValue(const LambdaExpression* expression);
    Value* lazy(const Binary* expression, Value* left);
    Value* conditional(const Conditional* expression);
    Value* concat(const Concat* expression, Value* first);
    Value* toText(const Expression* operand, Value* value);
    Value* readVariable(const LocalVariable& variable);
    static bool isNeverNull(const Expression* expression);

    // --- lists (list_lowering.cpp) ---------------------------------------------------------------------------
    // The methods of ArrayList that are a few instructions for an object that is exactly one.
    enum class ListMethod { None, Size, IsEmpty, Get, Set, Add };
    static ListMethod listMethodOf(const FunctionInstance& target);
    Value* listCall(const Call* expression, ListMethod method, llvm::ArrayRef<Value*> arguments);
    Value* hasRecord(Value* object, const Type* type);
    Value* loadHeader(Value* list, llvm::Type* type, std::uint64_t offset);
    Value* loadLong(Value* list, std::uint64_t offset);
    Value* loadData(Value* list);
    void storeLong(Value* list, Value* value, std::uint64_t offset);
    Value* loadElement(const Type* type, Value* from);
    void storeElement(const Type* type, Value* value, Value* to);
    // Address of an element of a list, after the check of the index.
    Value* listElement(Value* list, Value* index, const Type* element, Place place);

    // --- arithmetic and conversions (arithmetic_lowering.cpp) ----------------------------------------------
    Value* arithmetic(const Arithmetic* expression, Value* left);
    Value* integerDivision(const Arithmetic* expression, Value* left, Value* right);
    Value* floatingArithmetic(const Arithmetic* expression, Value* left, Value* right);
    Value* power(const Arithmetic* expression, Value* left, Value* right);
    Value* comparison(const Comparison* expression, Value* left);
    Value* conversion(const Conversion* expression, Value* operand);
    Value* typeTest(const TypeTest* expression, Value* operand);

    // --- pieces of code ------------------------------------------------------------------------------------
    llvm::CallInst* emitCall(llvm::Function* function, llvm::ArrayRef<Value*> arguments, Place place);
    llvm::CallInst* emitCall(llvm::FunctionType* type, Value* code, llvm::ArrayRef<Value*> arguments, Place place);
    // Goes on where `fails` is false; elsewhere the run-time function is called, which does not return.
    void failIf(Value* fails, std::string_view panic, llvm::ArrayRef<Value*> arguments, Place place);
    void checkNotNull(Value* reference, Place place);
    // Address of an array element, after the checks.
    Value* elementAddress(Value* array, Value* index, const Type* arrayType, Place place);
    Value* address(Value* object, std::uint64_t offset);
    Value* load(const Type* type, Value* from);
    void store(const Type* type, Value* value, Value* to);
    Value* frameRoom(llvm::Type* type);
    Value* newCell(const Type* type);
    llvm::BasicBlock* newBlock();
    // Appends the block and goes on in it.
    void startBlock(llvm::BasicBlock* block);
    llvm::DebugLoc lineOf(Place place);
    // What debug information says of the function under way; made when first asked for.
    llvm::DISubprogram* debugScope();

    ModuleBuilder& module_;
    llvm::IRBuilder<> builder_;
    llvm::Function* function_ = nullptr;
    llvm::BasicBlock* entry_ = nullptr;
    std::string displayName_;  // of the function under way
    int ownLine_ = 0;
    llvm::DISubprogram* debug_ = nullptr;
    llvm::DebugLoc line_;
    int lineNumber_ = -1;
    const TypedBody* body_ = nullptr;
    llvm::SmallVector<llvm::BasicBlock*, 8> failureBlocks_;
    Failure lastFailure_;
    llvm::SmallVector<Loop, 8> loops_;
    std::vector<const Expression*> spine_;
    std::string path_;
};

}  // namespace vesk::compiler
