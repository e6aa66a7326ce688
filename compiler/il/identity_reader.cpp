// Reads the identity of an entity: its @EmbeddedId or @Id field, or a new object of its @IdClass, whose fields are filled
// from the @Id fields of the same names.
#include "il/module_builder.h"
#include "runtime/exports.h"
#include "runtime/object_layout.h"
#include "semantics/name_lookup.h"

namespace vesk::compiler {
namespace {

// Of a whole object, inherited ones first.
std::vector<const FieldSlot*> allFields(const ClassLayout& layout) {
    std::vector<const FieldSlot*> fields(layout.inheritedFields + layout.fields.size());
    for (const ClassLayout* at = &layout; at; at = at->super)
        for (const FieldSlot& field : at->fields) fields[field.index] = &field;
    return fields;
}

std::vector<const FieldSlot*> annotatedFields(const ClassLayout& layout, std::string_view annotation) {
    std::vector<const FieldSlot*> found;
    for (const FieldSlot* field : allFields(layout)) {
        const auto& annotations = field->declaration->node->getAnnotations();
        if (std::any_of(annotations.begin(), annotations.end(),
                        [&](const auto& each) { return each && each->getName() == annotation; }))
            found.push_back(field);
    }
    return found;
}

// The one field that is the identity, null when it is made of several.
const FieldSlot* identityField(const ClassLayout& layout, const Type* identity) {
    for (std::string_view annotation : {"EmbeddedId", "Id"}) {
        std::vector<const FieldSlot*> fields = annotatedFields(layout, annotation);
        if (fields.size() == 1 && fields[0]->type == identity) return fields[0];
    }
    return nullptr;
}

}  // namespace

llvm::Function* ModuleBuilder::defineIdentityReader(FunctionInstance& instance) {
    const Type *entity = withoutNull(instance.typeArguments[0]), *identity = instance.typeArguments[1];
    llvm::Function* reader = definedFunction("identity of " + entity->structured + " " + identity->structured,
                                             functionType(instance), llvm::GlobalValue::LinkOnceODRLinkage);
    if (!reader->empty()) return reader;
    functions_[&instance] = reader;
    llvm::IRBuilder<> builder(llvm::BasicBlock::Create(context, "", reader));
    auto fail = [&](const std::string& message) {
        reportError(instance, message);
        builder.CreateUnreachable();
        return reader;
    };
    Str known;
    int answer =
        entity->kind == TypeKind::Class ? session.rootContext()->resolveEntityIdentityType(entity->text, known) : 0;
    if (answer == 0) return fail(entity->structured + " has no @Id field: it cannot be kept by its identity");
    if (answer != 1)
        return fail(entity->structured + " has several @Id fields: it needs an @EmbeddedId or an @IdClass");
    if (const Type* own = resolveType(known, session.rootContext()); own != identity)
        return fail("The identity of " + entity->structured + " is " + own->structured + ", not " +
                    identity->structured);

    // A null entity has no identity.
    llvm::Value* object = reader->getArg(0);
    llvm::BasicBlock *isNull = llvm::BasicBlock::Create(context, "", reader),
                     *read = llvm::BasicBlock::Create(context, "", reader);
    builder.CreateCondBr(builder.CreateICmpEQ(object, nullPointer_), isNull, read);
    builder.SetInsertPoint(isNull);
    builder.CreateCall(runtimeFunction("vesk_rt_panic_null", voidType, {}, false));
    builder.CreateUnreachable();
    builder.SetInsertPoint(read);
    auto fieldOf = [&](llvm::Value* from, const FieldSlot& field) {
        return builder.CreateInBoundsGEP(byteType, from, longConstant(std::int64_t(offsetOf(field))));
    };

    const ClassLayout& layout = session.layoutOf(entity);
    if (const FieldSlot* field = identityField(layout, identity)) {
        llvm::Value* value = builder.CreateLoad(memoryType(identity), fieldOf(object, *field));
        builder.CreateRet(identity->kind == TypeKind::Bool ? builder.CreateTrunc(value, boolType) : value);
        return reader;
    }
    if (identity->kind != TypeKind::Class) return fail("The identity of " + entity->structured + " cannot be read");
    llvm::Value* made =
        builder.CreateCall(runtimeFunction("vesk_rt_new", pointerType, {pointerType}), {record(identity)});
    std::vector<const FieldSlot*> parts = annotatedFields(layout, "Id");
    for (const FieldSlot* wanted : allFields(session.layoutOf(identity))) {
        auto part =
            std::find_if(parts.begin(), parts.end(), [&](const FieldSlot* each) { return each->name == wanted->name; });
        if (part == parts.end() || (*part)->type != wanted->type)
            return fail(entity->structured + " has no @Id field '" + wanted->name + "' of type " +
                        wanted->type->structured + " for " + identity->structured);
        llvm::Value* value = builder.CreateLoad(memoryType(wanted->type), fieldOf(object, **part));
        builder.CreateStore(value, fieldOf(made, *wanted));
    }
    builder.CreateRet(made);
    return reader;
}

}  // namespace vesk::compiler
