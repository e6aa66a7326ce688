// Parameter lists compared as overloads are: by their types, whatever their type parameters are called.
//
// Two methods hide one another when their lists are equal up to a one-to-one renaming of type parameters, however many of
// these there are: `f<A, B>(x: A, y: List<B>)` has the list of `f<T, U, V>(p: U, q: List<T>)`, not that of
// `f<T>(x: T, y: List<T>)`.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// Equal for lists that are equal in this sense. Each type parameter stands as its place among those that occur.
Str parameterShape(const StrVec& paramTypes, const StrVec& typeParamNames);

}  // namespace vesk::compiler
