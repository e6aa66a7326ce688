// A module while it is made: its machine types, and one declaration for each function, record, text and static field
// that its code refers to.
// Referring is what drives compilation: a function that exists on demand is queued for definition here when it is named
// for the first time, a unit that holds something named is noted as needed.
#pragma once

#include <deque>
#include <unordered_map>
#include <unordered_set>

#include "il/llvm_headers.h"
#include "il/unit_compiler.h"
#include "semantics/compile_session.h"
#include "semantics/request_chain.h"
#include "semantics/typed_tree.h"

namespace vesk::compiler {

// The one native that the compiler writes itself: it depends on the annotations of a class.
inline constexpr std::string_view IDENTITY_READER = "vesk_data_Identities_of";

class ModuleBuilder {
public:
    // `unit` is the path whose declarations and registrations are defined in this module.
    ModuleBuilder(CompileSession& session, llvm::LLVMContext& context, llvm::Module& module, std::string unit);

    CompileSession& session;
    llvm::LLVMContext& context;
    llvm::Module& module;

    // --- machine types -----------------------------------------------------------------------------------
    llvm::Type *const voidType, *const boolType, *const floatType, *const doubleType;
    llvm::IntegerType *const byteType, *const shortType, *const intType, *const longType;
    llvm::PointerType* const pointerType;
    // In registers: Bool is i1.
    llvm::Type* valueType(const Type* type) const;
    // In memory: Bool is one byte.
    llvm::Type* memoryType(const Type* type) const;
    static unsigned widthOf(const Type* type);
    llvm::ConstantInt* intConstant(std::int64_t value) const { return llvm::ConstantInt::getSigned(intType, value); }
    llvm::ConstantInt* longConstant(std::int64_t value) const { return llvm::ConstantInt::getSigned(longType, value); }
    llvm::Constant* nullPointer() const { return nullPointer_; }

    // --- functions ---------------------------------------------------------------------------------------
    llvm::Function* function(FunctionInstance& instance);
    llvm::FunctionType* functionType(FunctionInstance& instance);
    // Defines `NAME.arguments`, () -> object: the list for a main function that takes one.
    void defineArgumentsOf(FunctionInstance& main);
    // A function of the run-time library; one that never returns is marked so.
    llvm::Function* runtimeFunction(std::string_view symbol, llvm::Type* result, llvm::ArrayRef<llvm::Type*> parameters,
                                    bool returns = true);
    // Type of the code behind a function value: the closure comes before the arguments.
    llvm::FunctionType* closureType(const Type* functionType);
    // The constant closure of a plain function.
    llvm::Constant* functionValue(FunctionInstance& instance, const Type* type);
    const Type* returnTypeOf(FunctionInstance& instance);
    // A function that is defined here, ready for its body.
    llvm::Function* definedFunction(const std::string& symbol, llvm::FunctionType* type,
                                    llvm::GlobalValue::LinkageTypes linkage);
    // Bool and the narrow integers reach C functions as full registers. For a function or a call.
    template <class Site>
    static void extendArguments(Site& site, const Type* result, llvm::ArrayRef<const Type*> parameters) {
        auto extension = [](const Type* type) {
            if (!type->isScalar() || type->isFloating() || type->bitWidth() >= 32) return llvm::Attribute::None;
            return type->isSignedInteger() ? llvm::Attribute::SExt : llvm::Attribute::ZExt;
        };
        if (auto kind = extension(result); kind != llvm::Attribute::None) site.addRetAttr(kind);
        for (unsigned i = 0; i < parameters.size(); i++) {
            if (auto kind = extension(parameters[i]); kind != llvm::Attribute::None) site.addParamAttr(i, kind);
        }
    }

    // --- data --------------------------------------------------------------------------------------------
    llvm::Constant* record(const Type* type);
    // Defines the record of a class or interface of this unit.
    void defineRecord(const Type* type);
    llvm::Constant* text(std::string_view value);
    llvm::Constant* staticField(const FieldDeclaration& field);
    void defineStaticField(const FieldDeclaration& field);
    // A closure without captured variables.
    llvm::Constant* constantClosure(llvm::Function* code, const Type* type);
    std::uint64_t offsetOf(const FieldSlot& field);

    // What a load or store touches, told to the optimizer: the two never overlap.
    enum class MemoryKind { ListHeader, ListElement };
    void tagMemory(llvm::Instruction& access, MemoryKind kind);

    // --- debug lines -------------------------------------------------------------------------------------
    llvm::DISubprogram* debugFunction(const std::string& displayName, const std::string& path, int line);

    // --- what is left to do ------------------------------------------------------------------------------
    // Instances that exist on demand, named but not yet defined here.
    std::deque<FunctionInstance*> pending;
    std::vector<std::string> neededFiles;
    // Symbols that other modules define already; may be null.
    const std::unordered_set<std::string>* provided = nullptr;
    // Where instantiations lie that are not defined here, null when all are; and what is used of them.
    InstantiationPlaces* places = nullptr;
    std::vector<UnitCompiler::NeededMember> neededMembers;
    // The function whose body is being lowered, null between bodies.
    FunctionInstance* current = nullptr;
    bool failed = false;
    // An error that belongs to no expression; compiling goes on.
    void reportError(const FunctionInstance& instance, const std::string& message);

private:
    struct Offsets {
        std::vector<std::uint32_t> own;  // of the fields that the class itself declares
        std::uint32_t end = 0;           // of all fields
        bool pointerFree = true;
    };
    bool isProvided(const std::string& symbol) const { return provided && provided->contains(symbol); }
    const Offsets& offsetsOf(const Type* type);
    const Offsets& addOffsets(const ClassLayout& layout, const Offsets* above);
    void needFile(const FileDeclaration* file);
    llvm::Function* declare(FunctionInstance& instance);
    bool isElsewhere(const Type* type) const;
    bool isMemberElsewhere(const FunctionInstance& instance) const;
    void noteUse(FunctionInstance& instance);
    void extendOwnArguments(llvm::Function& function, FunctionInstance& instance);
    llvm::Function* defineNativeForwarder(FunctionInstance& instance, const std::string& target);
    llvm::Function* defineIdentityReader(FunctionInstance& instance);
    llvm::GlobalVariable* dataGlobal(llvm::StringRef name);
    llvm::Constant* classRecord(const Type* type);
    llvm::Constant* farMethods(const ClassLayout& layout,
                               llvm::function_ref<llvm::Constant*(FunctionInstance*)> addressOf);
    void fillRecord(llvm::GlobalVariable* variable, const Type* type, const ClassLayout* layout);
    llvm::Constant* nameConstant(std::string_view text);

    std::string unit_;
    llvm::Constant* nullPointer_;
    llvm::StructType *textHeader_ = nullptr, *entryType_;
    llvm::AttributeList plainAttributes_, runtimeAttributes_, neverReturns_;
    llvm::DenseMap<const FunctionInstance*, llvm::Function*> functions_;
    llvm::DenseMap<const Type*, llvm::Constant*> records_;
    llvm::DenseMap<const Type*, std::unique_ptr<const Offsets>> offsets_;
    llvm::DenseMap<std::size_t, llvm::StructType*> recordTypes_;  // by the number of methods
    std::unordered_map<std::string_view, llvm::Constant*> texts_;
    std::unordered_set<std::string> needed_;
    llvm::DICompileUnit* debugUnit_ = nullptr;
    llvm::DISubroutineType* debugType_ = nullptr;
    llvm::MDNode* memoryTags_[2] = {};
    std::unordered_map<std::string, llvm::DIFile*> debugFiles_;
};

}  // namespace vesk::compiler
