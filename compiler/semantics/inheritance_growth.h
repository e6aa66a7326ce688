// Super types whose arguments grow. Types of one class lead to others through the header of the class; two ways of growing
// are mistakes of the header, found when it is linked:
//   - a lineage whose type texts double from class to class until they are too long
//   - a class that comes back in its own super types with ever larger arguments: class C<T> extends D<C<C<T>>>
// The second is looked for as a circle over type parameters: `class C<T> extends D<A>` leads from T to each parameter of
// each class named in the header whose argument mentions T, and the step grows where the argument is more than T itself.
// The types are without end exactly if some circle has a step that grows.
#pragma once

#include "semantics/compile_session.h"

namespace vesk::compiler {

// The first kind; its super types are linked. Throws.
void checkLineageLength(CompileSession& session, ClassDeclaration& declaration);
// The second kind; reports. Links the classes that the header leads to.
void checkHeaderEnds(CompileSession& session, ClassDeclaration& declaration);

}  // namespace vesk::compiler
